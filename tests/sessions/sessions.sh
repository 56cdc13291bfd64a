#!/usr/bin/env bash
# The regression corpus of recorded panel sessions (tests/data/panel/session_*.rec),
# one per menu family. Each is replayed by ctest with --expect against a fresh
# program, so a change that alters any screen shows up as two screens side by side.
#
#   bash tests/sessions/sessions.sh record [NAME...]   re-record (all when no NAME), host build
#   bash tests/sessions/sessions.sh replay FILE [BIN]  replay one; BIN: the build's bin directory
set -euo pipefail
top=$(cd "$(dirname "$0")/../.." && pwd)
home='wait-lcd 0 VOSW 60000
sleep 1500'

# Emulator script commands of each session, after the home page is up.
declare -A sessions=(
[switching]="press 0
press 5
sleep 4000
press 1
press 7
press RIGHT
press 3
press RIGHT
sleep 2500
press LEFT
sleep 800"
[switch_all]="press MENU
press MENU
press MENU
press MENU
press 1
press 1
press 0
press 5
sleep 800
press TAKE
sleep 5000"
[edid]="press MENU
press MENU
press MENU
press MENU
press 7
press 0
press 3
press 0
press 5
sleep 1500
press BREAK
sleep 800"
[network_versions]="press MENU
press MENU
press MENU
press MENU
press MENU
press 1
sleep 800
press 1
sleep 1500
press LEFT
press 2
sleep 1500
press LEFT
press MENU
sleep 800
press MENU
sleep 800
press RIGHT
sleep 800
press RIGHT
sleep 800
press BREAK
sleep 800"
[lock]="lock-toggle
sleep 800
press 1
press MENU
sleep 800
lock-toggle
sleep 800
press MENU
sleep 800"
[reset]="press DEFAULT
sleep 500
press 1
sleep 800
press TAKE
sleep 4000"
)

# A sandbox with the simulated core and the program; "$@" is the emulator's
# command line after --root. Sets rc to the emulator's exit status.
run() {
    local bin=$1 root pids=() p
    shift
    root=$(mktemp -d /tmp/tav-session.XXXXXX)
    mkdir -p "$root"/{dev,var/run,nandflash/config,tmp,sim}
    export TAV_ROOT=$root TAV_SYSLOG_FILE=$root/syslog.txt PATH=$top/sim/tools:$PATH
    "$bin/tav_matrix_core" --root "$root" >"$root/core.log" 2>&1 &
    pids+=($!)
    (
        for _ in $(seq 200); do [ -e "$root/dev/ttyPSC3" ] && break; sleep 0.05; done
        exec "$bin/tav_keyboard"
    ) >"$root/program.log" 2>&1 &
    pids+=($!)
    rc=0
    "$bin/tav_panel_emu" --root "$root" "$@" || rc=$?
    for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    [ "$rc" -eq 0 ] || tail -5 "$root/syslog.txt" >&2 || true
    rm -rf "$root"
}

case ${1:-} in
record)
    shift
    cmake --preset host >/dev/null && cmake --build --preset host >/dev/null
    for name in "${@:-${!sessions[@]}}"; do
        [ -n "${sessions[$name]:-}" ] || { echo "no session '$name'" >&2; exit 2; }
        out=$top/tests/data/panel/session_$name.rec
        printf '%s\n%s\nquit\n' "$home" "${sessions[$name]}" |
            run "$top/build/host/bin" --record "$out" >/dev/null
        echo "recorded $out"
    done
    ;;
replay)
    run "${3:-$top/build/host/bin}" --replay "$2" --expect
    exit "$rc"
    ;;
*) sed -n '2,7p' "$0"; exit 2 ;;
esac
