#!/usr/bin/env python3
"""Scenarios on the board VM (run by scripts/board_vm.sh test).

qemu's first UART is the guest's console, a BusyBox shell reached through a unix
socket; its second UART is the panel's line, played by tav_panel_emu in script
mode. The steps run in order, each with bounded waits; the first failure ends the
run and prints the console's tail, the guest's log and the panel. The run ends
with "board: N passed, N failed"."""
import os, re, select, shutil, signal, socket, subprocess, sys, tempfile, time

args = sys.argv[1:]
B, EMU, QEMU = args[args.index('--build') + 1], args[args.index('--emu') + 1], args[args.index('--') + 1:]
# The sockets in a short directory: a unix socket's path has at most 107 bytes.
SOCKS = tempfile.mkdtemp(prefix='tav_board_')
CON, PANEL, INIT = f'{SOCKS}/console', f'{SOCKS}/panel', '/etc/init.d/tav_keyboard'


class Stream:
    """Text arriving on a file descriptor, logged, matched against patterns."""

    def __init__(self, fd, log):
        self.fd, self.buf, self.log = fd, '', open(log, 'w')

    def expect(self, pattern, timeout, what):
        end = time.monotonic() + timeout
        while not (m := re.search(pattern, self.buf)):
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.fd], [], [], left)[0]:
                raise TimeoutError(f'{what}: no answer within {timeout:.0f} s')
            data = os.read(self.fd, 4096).decode(errors='replace')
            if not data:
                raise EOFError(f'{what}: the other end closed')
            self.log.write(data)
            self.log.flush()
            self.buf += data
        out, self.buf = self.buf[:m.start()], self.buf[m.end():]
        return out, m


class Guest(Stream):
    n = 0

    def sh(self, cmd, timeout=30):
        """Runs cmd in the guest's shell: (exit status, output)."""
        self.n += 1
        os.write(self.fd, f'{cmd}\necho "@@{self.n}:$?@@"\n'.encode())
        out, m = self.expect(rf'@@{self.n}:(\d+)@@\r?\n', timeout, f'guest: {cmd}')
        return int(m.group(1)), out.replace('\r', '')

    def ready(self, timeout):
        # The shell comes up after the start-up script; what is typed earlier may be lost.
        end = time.monotonic() + timeout
        while True:
            try:
                return self.sh("stty -echo; PS1=''; dmesg -n 1", 3)
            except TimeoutError:
                if time.monotonic() > end:
                    raise


class Panel(Stream):
    def __init__(self):
        self.p = subprocess.Popen([EMU, '--device', PANEL, '--log', f'{B}/panel.log'],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        super().__init__(self.p.stdout.fileno(), f'{B}/panel-answers.log')

    def send(self, line):
        self.p.stdin.write(f'{line}\n'.encode())
        self.p.stdin.flush()

    def wait(self, what, secs):
        """what: 'lcd LINE TEXT' or 'leds HEX'; true once the panel shows it."""
        self.send(f'wait-{what} {int(secs * 1000)}')
        return self.expect(r'(ok|fail) wait-\S+\n', secs + 10, f'panel: wait-{what}')[1].group(1) == 'ok'

    def keys(self, keys):
        return [self.send(f'press {k}') for k in keys.split()]

    def dump(self):
        self.send('dump')
        out, m = self.expect(r'port \w+\n', 10, 'panel: dump')
        return out[out.rfind('lcd0 '):] + m.group(0)


def stacks(maps):
    """Thread stacks in kB: read-write anonymous mappings right above a guard page, and [stack]."""
    rows = [(l.split(), [int(x, 16) for x in l.split()[0].split('-')]) for l in maps.splitlines()
            if re.match(r'[0-9a-f]+-', l)]
    size = lambda r: (r[1][1] - r[1][0]) // 1024
    return [size(b) for a, b in zip(rows, rows[1:]) if a[0][1] == '---p' and b[0][1] == 'rw-p'
            and len(b[0]) == 5 and a[1][1] == b[1][0]] + [size(r) for r in rows if r[0][-1] == '[stack]']


def figures(g):
    pid = g.sh('pidof tav_keyboard')[1].strip()
    # Files on the initramfs are memory of their own: their pages count as dirty too.
    mem = ', '.join(g.sh(f'grep -E "^(Private_Dirty|Anonymous)" /proc/{pid}/smaps_rollup')[1].split('\n')[:2])
    threads = g.sh(f'ls /proc/{pid}/task | wc -l')[1].strip()
    print(f'board: figure: {threads} threads, stacks kB {stacks(g.sh(f"cat /proc/{pid}/maps")[1])}, '
          f'{" ".join(mem.split())}; stty -F /dev/ttyPSC3: '
          + ' '.join(g.sh('stty -F /dev/ttyPSC3')[1].split()), flush=True)
    return bool(pid)


def stop(g):
    # The init script's stop, timed in the guest: status 0 within its 10 s.
    out = g.sh(f't=$(cut -d" " -f1 /proc/uptime); {INIT} stop; r=$?; '
               'echo "stop $r $(awk -v t=$t \'{print $1 - t}\' /proc/uptime)"')[1]
    m = re.search(r'stop (\d+) ([\d.]+)', out)
    print(f'board: figure: stop took {m and m.group(2)} s', flush=True)
    return m and m.group(1) == '0' and float(m.group(2)) < 10


def steps(g, p, t0):
    ok = lambda cmd, rc=0, want='', t=30: (lambda r: r[0] == rc and re.search(want, r[1]))(g.sh(cmd, t))
    gone = (f'i=0; while {INIT} status >/dev/null && [ $i -lt 300 ]; do i=$((i + 1)); sleep 0.1; done; '
            f'{INIT} status')

    def home():
        shown = p.wait('lcd 0 VOSW: 17 18 19', 60 - (time.monotonic() - t0)) and p.wait('lcd 1 VISW: 01 02 03', 5)
        print(f'board: figure: home page {time.monotonic() - t0:.1f} s after power-on', flush=True)
        return shown

    def line_settings():
        out = g.sh('stty -a -F /dev/ttyPSC3 2>/dev/null')[1]
        return 'speed 19200 baud' in out and {'cs8', '-parenb', '-cstopb', '-icanon', '-echo', '-opost'} <= set(
            re.split(r'[\s;]+', out))

    return [
        ('init script start', lambda: ok(f'{INIT} start')),
        ('home page within 60 s of power-on', home),
        ('panel port at 19200 8N1, raw', line_settings),
        ('keys 2 0 3 select input 3 for output 20', lambda: p.keys('2 0 3') and p.wait('lcd 1 IN3_=>OUT20', 10)),
        ('RIGHT switches it: the page shows input 3', lambda: p.keys('RIGHT') and p.wait('lcd 1 VISW: 03 05', 10)),
        ('the core holds route 20 <- 3', lambda: ok('tav_matrix_ctl state', want=r'route 20 video=3 ')),
        ('pull 3 shows the card notice', lambda: ok('tav_matrix_ctl pull 3') and p.wait('lcd 0 Card 03 Pull out', 10)),
        ('insert 3: back to the status page', lambda: ok('tav_matrix_ctl insert 3') and p.wait('lcd 0 VOSW: ', 20)),
        ('figures on the idle page', lambda: figures(g)),
        ('init script stop: status 0 within 10 s', lambda: stop(g)),
        ('then status 3 and nobody holds the port', lambda: ok(f'{INIT} status', 3) and ok('fuser /dev/ttyS1', 1)),
        ('started again: self-check, then the home page',
         lambda: ok(f'{INIT} start') and p.wait('leds 80000020', 40) and p.wait('lcd 0 VOSW: ', 40)),
        ('reboot notice: the program ends, the port is let go',
         lambda: ok('tav_matrix_ctl reboot 1') and ok(gone, 3, t=60) and ok('fuser /dev/ttyS1', 1)),
        ('the panel keeps the notice', lambda: re.search(r'lcd0 \|.*The device is restarting.*\|\nlcd1 \|.*Please wait',
                                                         p.dump())),
    ]


def diagnose(g, p):
    for what, f in (('console tail', lambda: open(f'{B}/console.log').read().splitlines()[-30:]),
                    ('guest log', lambda: g.sh('tail -n 20 /var/log/messages; dmesg | tail -n 10', 10)[1].splitlines()),
                    ('panel', lambda: p.dump().splitlines()),
                    ('panel frames', lambda: open(f'{B}/panel.log').read().splitlines()[-15:])):
        try:
            print(f'board: --- {what}\n' + '\n'.join(f'board:   {l}' for l in f()), flush=True)
        except Exception as e:
            print(f'board: --- {what}: {type(e).__name__}: {e}', flush=True)


def listening(path):
    return any(l.split()[3] == '00010000' and l.endswith(' ' + path) for l in open('/proc/net/unix').read().splitlines()[1:])


def main():
    def alarm(*_):
        raise TimeoutError('the whole run took more than 300 s')
    signal.signal(signal.SIGALRM, alarm)
    signal.alarm(300)
    t0 = time.monotonic()
    # qemu waits for a client on each socket in turn before it starts the guest.
    qemu = subprocess.Popen(QEMU + ['-chardev', f'socket,id=con,path={CON},server=on,wait=on', '-serial', 'chardev:con',
                                    '-chardev', f'socket,id=panel,path={PANEL},server=on,wait=on', '-serial',
                                    'chardev:panel'], stdin=subprocess.DEVNULL, stdout=open(f'{B}/qemu.log', 'w'),
                            stderr=subprocess.STDOUT)
    passed, failed, g, p, sock = 0, 0, None, None, socket.socket(socket.AF_UNIX)
    try:
        for path in (CON, PANEL):
            while not listening(path):
                if qemu.poll() is not None:
                    raise EOFError(f'qemu ended ({qemu.returncode}): {open(f"{B}/qemu.log").read()}')
                time.sleep(0.05)
            if path == CON:
                sock.connect(CON)
                g = Guest(sock.fileno(), f'{B}/console.log')
        p = Panel()
        print('board: ' + g.expect(r'board: up after [\d.]+ s', 60, 'guest start-up')[1].group(0)[7:], flush=True)
        g.ready(30)
        for what, step in steps(g, p, t0):
            ok = bool(step())
            passed, failed = passed + ok, failed + (not ok)
            print(f"board: {'ok  ' if ok else 'FAIL'} {what}", flush=True)
            if not ok:
                break
        open(f'{B}/guest-messages.log', 'w').write(g.sh('cat /var/log/messages')[1])
    except Exception as e:
        failed += 1
        print(f'board: FAIL {type(e).__name__}: {e}', flush=True)
    finally:
        signal.alarm(0)
        if failed:
            diagnose(g, p)
        for proc in (p and p.p, qemu):
            if proc:
                proc.terminate()
                try:
                    proc.wait(10)
                except subprocess.TimeoutExpired:
                    proc.kill()
        shutil.rmtree(SOCKS, ignore_errors=True)
    print(f'board: {passed} passed, {failed} failed (logs in {B})')
    return 1 if failed or not passed else 0


if __name__ == '__main__':
    sys.exit(main())
