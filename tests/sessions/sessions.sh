#!/usr/bin/env bash
# The regression corpus of recorded panel sessions (tests/data/panel/session_*.rec),
# one per menu family. Each is replayed by ctest with --expect against a fresh
# program, so a change that alters any screen shows up as two screens side by side.
#
#   bash tests/sessions/sessions.sh record [NAME...]   re-record (all when no NAME), host build
#   bash tests/sessions/sessions.sh replay FILE [BIN]  replay one; BIN: the build's bin directory
set -euo pipefail
top=$(cd "$(dirname "$0")/../.." && pwd)

# The keys of each session, after the home page is up: a key name presses it,
# ~MS pauses, "toggle" is LOCK twice without a release.
declare -A sessions=(
    [switching]="0 5 ~4000 1 7 RIGHT 3 RIGHT ~2500 LEFT ~800"
    [switch_all]="MENU MENU MENU MENU 1 1 0 5 ~800 TAKE ~5000"
    [edid]="MENU MENU MENU MENU 7 0 3 0 5 ~1500 BREAK ~800"
    [network_versions]="MENU MENU MENU MENU MENU 1 ~800 1 ~1500 LEFT 2 ~1500 LEFT MENU ~800 MENU ~800
                        RIGHT ~800 RIGHT ~800 BREAK ~800"
    [lock]="toggle ~800 1 MENU ~800 toggle ~800 MENU ~800"
    [reset]="DEFAULT ~500 1 ~800 TAKE ~4000"
)

# The emulator's script for a session's keys.
script() {
    local k
    printf 'wait-lcd 0 VOSW 60000\nsleep 1500\n'
    for k in $1; do
        case $k in
        ~*) echo "sleep ${k#\~}" ;;
        toggle) echo lock-toggle ;;
        *) echo "press $k" ;;
        esac
    done
    echo quit
}

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
        script "${sessions[$name]}" | run "$top/build/host/bin" --record "$out" >/dev/null
        echo "recorded $out"
    done
    ;;
replay)
    run "${3:-$top/build/host/bin}" --replay "$2" --expect
    exit "$rc"
    ;;
*) sed -n '2,7p' "$0"; exit 2 ;;
esac
