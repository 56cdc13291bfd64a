#!/usr/bin/env python3
"""Scenarios on the board VM (scripts/board_vm.sh test): qemu's console UART is a
shell driven through a unix socket, the panel UART is played by tav_panel_emu in
script mode. Prints one line per check and closes with "board: N passed, N failed"."""
import os, re, select, socket, subprocess, sys, time

args = sys.argv[1:]
B, EMU, QEMU = args[args.index('--build') + 1], args[args.index('--emu') + 1], args[args.index('--') + 1:]
CON, PANEL, LOG = f'{B}/console.sock', f'{B}/panel.sock', f'{B}/console.log'
results = []


def check(ok, what):
    results.append(bool(ok))
    print(f"board: {'ok  ' if ok else 'FAIL'} {what}", flush=True)
    return ok


def connect(path, timeout=30):
    # qemu makes the socket once it runs; it then waits for us (server=on,wait=on).
    end = time.monotonic() + timeout
    while True:
        s = socket.socket(socket.AF_UNIX)
        try:
            s.connect(path)
            return s
        except OSError:
            s.close()
            if time.monotonic() > end:
                raise
            time.sleep(0.05)


class Console:
    def __init__(self, sock):
        self.s, self.buf, self.n, self.log = sock, '', 0, open(LOG, 'w')

    def expect(self, pattern, timeout):
        end = time.monotonic() + timeout
        while not (m := re.search(pattern, self.buf)):
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.s], [], [], left)[0]:
                raise TimeoutError(f'console: no {pattern!r} within {timeout} s')
            data = self.s.recv(4096).decode(errors='replace')
            if not data:
                raise EOFError('console closed')
            self.log.write(data)
            self.log.flush()
            self.buf += data
        out, self.buf = self.buf[:m.start()], self.buf[m.end():]
        return out, m

    def run(self, cmd, timeout=30):
        """Runs cmd in the guest's shell: (exit status, output)."""
        self.n += 1
        self.s.sendall(f'{cmd}\necho "@@{self.n}:$?@@"\n'.encode())
        out, m = self.expect(rf'@@{self.n}:(\d+)@@\r?\n', timeout)
        return int(m.group(1)), out.replace('\r', '')


class Panel:
    def __init__(self):
        self.p = subprocess.Popen([EMU, '--device', PANEL, '--log', f'{B}/panel.log'], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.buf = b''

    def line(self, timeout):
        end = time.monotonic() + timeout
        while b'\n' not in self.buf:
            if not select.select([self.p.stdout], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError('panel emulator silent')
            data = os.read(self.p.stdout.fileno(), 4096)
            if not data:
                raise EOFError('panel emulator ended')
            self.buf += data
        l, self.buf = self.buf.split(b'\n', 1)
        return l.decode(errors='replace')

    def cmd(self, c, wait_ms=0):
        self.p.stdin.write(c + '\n')
        self.p.stdin.flush()
        if not wait_ms:
            return True
        answer = self.line(wait_ms / 1000 + 10)
        if not answer.startswith('ok'):
            s = self.dump()
            print(f'board: {c}: {answer}; the panel shows |{s["lcd0"]}| / |{s["lcd1"]}|')
        return answer.startswith('ok')

    def dump(self):
        self.p.stdin.write('dump\n')
        self.p.stdin.flush()
        lines = [self.line(10) for _ in range(12)]
        return {l.split(' ', 1)[0]: l.split(' ', 1)[1] for l in lines}

    def keys(self, *ks):
        for k in ks:
            self.cmd(f'press {k}')


def stacks(maps):
    """Thread stacks: read-write anonymous mappings right above a guard page, and [stack]."""
    rows = [l.split() for l in maps.splitlines() if re.match(r'[0-9a-f]+-', l)]
    span = lambda r: [int(x, 16) for x in r[0].split('-')]
    found = [(span(b)[1] - span(b)[0]) // 1024 for a, b in zip(rows, rows[1:])
             if a[1] == '---p' and b[1] == 'rw-p' and len(b) == 5 and span(a)[1] == span(b)[0]]
    return found + [(span(r)[1] - span(r)[0]) // 1024 for r in rows if r[-1] == '[stack]']


def scenarios(con, panel, t0):
    INIT = '/etc/init.d/tav_keyboard'
    con.expect(r'board: up after', 90)
    con.run("stty -echo; PS1=''")
    # 1. The init script starts the program; the home page comes up.
    check(con.run(f'{INIT} start')[0] == 0, 'init script start')
    home = panel.cmd('wait-lcd 0 VOSW: 17 18 19 90000', 90000) and panel.cmd('wait-lcd 1 VISW: 01 02', 10000)
    check(home, f'home page {time.monotonic() - t0:.1f} s after qemu started')
    print('board: stty -F /dev/ttyPSC3:', ' '.join(con.run('stty -F /dev/ttyPSC3')[1].split()))
    rc, stty = con.run('stty -a -F /dev/ttyPSC3')
    check(rc == 0 and {'19200', 'cs8', '-parenb', '-cstopb', '-icanon', '-echo'} <= set(re.split(r'[\s;]+', stty)),
          'panel port at 19200 8N1, raw')
    # 2. Input 3 to output 20 from the keys; the core then has the route.
    panel.keys(2, 0, 3)
    check(panel.cmd('wait-lcd 1 IN3_=>OUT20 10000', 10000), 'keys 2 0 3 select the route')
    panel.keys('RIGHT')
    check(panel.cmd('wait-lcd 1 VISW: 03 05 10000', 10000), 'RIGHT switches it: the page shows input 3')
    check(re.search(r'route 20 video=3 ', con.run('tav_matrix_ctl state')[1]), 'the core holds route 20 <- 3')
    # 3. A card pulled behind the panel's back.
    check(con.run('tav_matrix_ctl pull 3')[0] == 0 and panel.cmd('wait-lcd 0 Card 03 Pull out 10000', 10000),
          'pull 3 shows the card notice')
    check(con.run('tav_matrix_ctl insert 3')[0] == 0 and panel.cmd('wait-lcd 0 VOSW: 20000', 20000),
          'insert 3: back to the status page')
    # Memory and stacks on the idle page, for the README.
    pid = con.run('pidof tav_keyboard')[1].strip()
    dirty = con.run(f'grep Private_Dirty /proc/{pid}/smaps_rollup')[1].split()
    threads = con.run(f'ls /proc/{pid}/task | wc -l')[1].strip()
    print(f'board: program pid {pid}: {threads} threads, stacks kB {stacks(con.run(f"cat /proc/{pid}/maps")[1])},'
          f' Private_Dirty {" ".join(dirty[1:3])}')
    # 4. Stop: the program ends and lets go of the port within the script's 10 s.
    rc, out = con.run(f'a=$(cut -d" " -f1 /proc/uptime); {INIT} stop; r=$?; '
                      f'echo "stop $r $a $(cut -d" " -f1 /proc/uptime)"', 20)
    m = re.search(r'stop (\d+) ([\d.]+) ([\d.]+)', out)
    took = float(m.group(3)) - float(m.group(2)) if m else 99
    check(m and m.group(1) == '0' and took < 10, f'init script stop: status 0 in {took:.1f} s')
    check(con.run(f'{INIT} status')[0] == 3, 'status afterwards: 3 (not running)')
    check(con.run('fuser /dev/ttyS1')[0] != 0, 'nobody holds the panel port')
    # 5. Started again, then a reboot notice: the program ends, the notice stays.
    con.run(f'{INIT} start')
    check(panel.cmd('wait-leds 80000020 60000', 60000) and panel.cmd('wait-lcd 0 VOSW: 60000', 60000),
          'started again: self-check, then the home page')
    con.run('tav_matrix_ctl reboot 1')
    rc, _ = con.run(f'i=0; while {INIT} status >/dev/null; do i=$((i+1)); [ $i -gt 300 ] && exit 1; '
                    'sleep 0.1; done', 40)
    check(rc == 0, 'reboot notice: the program ends')
    s = panel.dump()
    check('The device is restarting' in s['lcd0'] and 'Please wait' in s['lcd1'],
          f'the panel keeps the notice: {s["lcd0"]} / {s["lcd1"]}')
    open(f'{B}/guest-messages.log', 'w').write(con.run('cat /var/log/messages')[1])


def main():
    for p in (CON, PANEL):
        if os.path.exists(p):
            os.unlink(p)
    t0 = time.monotonic()
    qemu = subprocess.Popen(QEMU + ['-chardev', f'socket,id=con,path={CON},server=on,wait=on', '-serial',
                                    'chardev:con', '-chardev', f'socket,id=panel,path={PANEL},server=on,wait=on',
                                    '-serial', 'chardev:panel'], stdout=open(f'{B}/qemu.log', 'w'),
                            stderr=subprocess.STDOUT)
    panel = None
    try:
        con = Console(connect(CON))
        connect_wait = time.monotonic() + 30
        while not os.path.exists(PANEL) and time.monotonic() < connect_wait:
            time.sleep(0.05)
        panel = Panel()
        scenarios(con, panel, t0)
    except (TimeoutError, EOFError, OSError) as e:
        check(False, f'{type(e).__name__}: {e} (console log: {LOG})')
    finally:
        for p in (panel.p if panel else None, qemu):
            if p:
                p.terminate()
                try:
                    p.wait(10)
                except subprocess.TimeoutExpired:
                    p.kill()
    failed = results.count(False)
    print(f'board: {len(results) - failed} passed, {failed} failed')
    return 1 if failed or not results else 0


if __name__ == '__main__':
    sys.exit(main())
