#!/usr/bin/env bash
# The install rules and the init script.
#   test_install.sh BUILD_DIR STATIC(ON|OFF) RUN_INIT(ON|OFF)
# Installs BUILD_DIR into a temporary DESTDIR and checks the tree and the
# program's dynamic section. With RUN_INIT (a build that runs here), drives
# the installed init script against the installed program in a sandbox
# TAV_ROOT, with the simulated core and the panel emulator of BUILD_DIR.
set -u
build=$1 static=$2 run_init=$3
tmp=$(mktemp -d /tmp/tav_install_XXXXXX)
stage=$tmp/stage init=$tmp/stage/etc/init.d/tav_keyboard
pids=()
failures=0

cleanup() {
    for _ in 1 2 3; do # every instance, even those a faulty script started
        [ -x "$init" ] && "$init" status >/dev/null 2>&1 && "$init" stop >/dev/null 2>&1
    done
    for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$tmp"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
check() { # check WHAT COMMAND...
    local what=$1
    shift
    "$@" >/dev/null 2>&1 || fail "$what"
}
# Waits up to 60 s for COMMAND to succeed.
wait_for() {
    for _ in $(seq 600); do
        "$@" >/dev/null 2>&1 && return 0
        sleep 0.1
    done
    return 1
}

DESTDIR=$stage cmake --install "$build" --prefix /usr >/dev/null || { fail "cmake --install"; exit 1; }
check "program in usr/bin" test -x "$stage/usr/bin/tav_keyboard"
check "init script in etc/init.d" test -x "$init"
unit=$stage/lib/systemd/system/tav_keyboard.service
for line in ExecStart=/usr/bin/tav_keyboard KillSignal=SIGTERM SuccessExitStatus=1 Restart=on-failure; do
    check "unit has $line" grep -qx "$line" "$unit"
done
check "the init script names the installed program" grep -q 'TAV_DAEMON:-/usr/bin/tav_keyboard}' "$init"
[ "$(find "$stage" -type f | wc -l)" -eq 3 ] || fail "more than the three files installed: $(find "$stage" -type f)"

dyn=$(readelf -d "$stage/usr/bin/tav_keyboard")
echo "$dyn" | grep -Eq 'RUNPATH|RPATH' && fail "installed program keeps a run path: $(echo "$dyn" | grep PATH)"
echo "$dyn" | grep -q 'NEEDED.*\[libtav_matrix.so\]' || fail "libtav_matrix.so not needed"
if [ "$static" = ON ]; then
    echo "$dyn" | grep -Eq 'NEEDED.*(libstdc\+\+|libgcc_s)' && fail "C++ runtime linked dynamically"
fi

if [ "$run_init" = ON ]; then
    root=$tmp/root
    mkdir -p "$root/dev" "$root/var/run" "$root/nandflash/config" "$root/tmp"
    export TAV_ROOT=$root TAV_DAEMON=$stage/usr/bin/tav_keyboard LD_LIBRARY_PATH=$build/lib
    export TAV_SYSLOG_FILE=$root/syslog.txt PATH=$(dirname "$0")/../../sim/tools:$PATH
    "$build/bin/tav_matrix_core" --root "$root" --startup-delay-ms 0 >/dev/null 2>&1 &
    pids+=($!)
    "$build/bin/tav_panel_emu" --root "$root" --serve </dev/null >/dev/null 2>&1 &
    pids+=($!)
    wait_for test -e "$root/dev/ttyPSC3" || fail "panel emulator did not come up"

    out=$("$init" status)
    [ $? -eq 3 ] || fail "status before start: $out"
    check "start" "$init" start
    # The PID file comes once the program is past its start-up, or never if
    # the program has ended: say why then, from its log.
    wait_for sh -c "test -s '$root/var/run/tav_keyboard.pid' || ! '$init' status"
    [ -s "$root/var/run/tav_keyboard.pid" ] || fail "no PID file; log: $(cat "$root/syslog.txt")"
    pid=$(od -An -tu4 -N4 "$root/var/run/tav_keyboard.pid" | tr -d ' ')
    out=$("$init" status) || fail "status while running: $out"
    [ "$out" = "tav_keyboard is running (pid $pid)" ] || fail "status: '$out', PID file: $pid"
    out=$("$init" start)
    [ "$out" = "tav_keyboard already running (pid $pid)" ] || fail "second start: $out"
    n=$(for d in /proc/[0-9]*; do readlink "$d/exe"; done 2>/dev/null | grep -cx "$TAV_DAEMON")
    [ "$n" -eq 1 ] || fail "$n instances running"
    out=$(TAV_STOP_TIMEOUT=5 "$init" stop) || fail "stop did not end the program in 5 s: $out"
    [ -e "/proc/$pid/exe" ] && fail "process $pid still there after stop"
    out=$("$init" status)
    [ $? -eq 3 ] || fail "status after stop: $out"
fi

[ $failures -eq 0 ] && echo "install test passed"
[ $failures -eq 0 ]
