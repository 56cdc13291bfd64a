#!/usr/bin/env bash
# Time from SIGTERM to the program's exit in each start-up state and on the
# home page, with the host build, the panel emulator and the simulated core:
#   bash bench/stop_times.sh [BUILD_DIR]      (default build/host)
# Prints "BENCH stop_<state> <ms> ms" lines; each must be at most 1000 ms.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$(realpath "${1:-build/host}")/bin
root=$(mktemp -d /tmp/tav-stop.XXXXXX)
export TAV_ROOT=$root TAV_SYSLOG_FILE=$root/syslog.txt PATH=$PWD/sim/tools:$PATH
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill -KILL "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$root"
}
trap cleanup EXIT

# Waits up to $2 seconds for the log line matching $1.
wait_log() {
    for _ in $(seq $(($2 * 20))); do
        grep -q "$1" "$TAV_SYSLOG_FILE" 2>/dev/null && return 0
        sleep 0.05
    done
    echo "no '$1' in the log" >&2
    return 1
}

# One state: $1 name, $2 panel option, $3 core (yes/no), $4 the core holds
# its PID-file lock for a minute (yes/no), $5 log line that marks the state,
# $6 extra seconds.
measure() {
    local name=$1 panel=$2 core=$3 hold=$4 mark=$5 extra=$6
    rm -rf "${root:?}"/*
    mkdir -p "$root/dev" "$root/var/run" "$root/nandflash/config" "$root/tmp" "$root/sim"
    : >"$TAV_SYSLOG_FILE"
    pids=()
    "$bin/tav_panel_emu" --root "$root" --serve $panel </dev/null >/dev/null 2>&1 &
    pids+=($!)
    if [ "$core" = yes ]; then
        local delay=1000
        [ "$hold" = yes ] && delay=60000
        "$bin/tav_matrix_core" --root "$root" --startup-delay-ms $delay >/dev/null 2>&1 &
        pids+=($!)
        sleep 0.5
    fi
    sleep 0.3
    "$bin/tav_keyboard" &
    local prog=$!
    pids+=($prog)
    sleep 1.2
    [ -z "$mark" ] || wait_log "$mark" 40
    sleep "$extra"
    local t0 t1
    t0=$(date +%s%N)
    kill -TERM "$prog"
    wait "$prog" || true
    t1=$(date +%s%N)
    echo "BENCH stop_$name $(((t1 - t0) / 1000000)) ms"
    for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
}

measure handshake_wait --silent no no "" 1
measure after_20_handshakes --silent no no "Unable to communicate" 0.2
measure library_open "" no no "" 2
measure self_check "" yes no "" 4
measure core_lock "" yes yes "open pid file and wait" 0.5
measure home_page "" yes no "close pid" 4
