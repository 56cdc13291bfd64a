#!/usr/bin/env bash
# The demo: builds the host preset, then runs the simulated matrix core and
# tav_keyboard in the background and the emulated panel in this terminal.
# q or Ctrl-C in the panel ends all three; nothing is left running.
#
#   bash scripts/demo.sh            sandbox in ./demo-root (TAV_DEMO_ROOT=DIR to choose)
#   bash scripts/demo.sh ARGS...    ARGS go to the panel emulator (--record FILE, --replay FILE ...)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD

need=()
for pkg in cmake ninja-build g++ googletest; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
    echo "== installing: ${need[*]}"
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO=sudo
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi

echo "== building (preset host)"
cmake --preset host >/dev/null
cmake --build --preset host

bin=$repo/build/host/bin
root=${TAV_DEMO_ROOT:-$repo/demo-root}
rm -rf "$root"
mkdir -p "$root/dev" "$root/var/run" "$root/nandflash/config" "$root/tmp" "$root/sim"
export TAV_ROOT=$root
export TAV_SYSLOG_FILE=$root/syslog.txt
export PATH=$repo/sim/tools:$PATH

pids=()
cleanup() {
    trap - EXIT INT TERM
    for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
    for _ in $(seq 30); do
        alive=0
        for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null && alive=1; done
        [ $alive -eq 0 ] && break
        sleep 0.1
    done
    for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    [ -f "$root/HOWTO.txt" ] && cat "$root/HOWTO.txt"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

cat >"$root/HOWTO.txt" <<EOF

== demo sandbox: $root  (program log: $root/syslog.txt)
Drive the simulated matrix core from a second terminal:
    export TAV_ROOT=$root
    $bin/tav_matrix_ctl pull 3              # pull the card in slot 3 out
    $bin/tav_matrix_ctl insert 3            # put it back (online, normal 1.5 s later)
    $bin/tav_matrix_ctl update run 5        # a firmware update of slot 5 from 0 to 100 %
    $bin/tav_matrix_ctl update start 5      # ... or step it: update set 40, update finish
    $bin/tav_matrix_ctl route video 17 9    # change a route behind the panel's back
    $bin/tav_matrix_ctl lock 1              # lock the panel as another application would
    $bin/tav_matrix_ctl state               # the whole chassis
    $bin/tav_matrix_ctl --help
EOF

echo "== starting the simulated matrix core"
"$bin/tav_matrix_core" --root "$root" --startup-delay-ms 2000 >"$root/core.log" 2>&1 &
pids+=($!)

# The program opens the panel port once the emulator has linked it.
(
    for _ in $(seq 100); do
        [ -e "$root/dev/ttyPSC3" ] && break
        sleep 0.05
    done
    exec "$bin/tav_keyboard"
) >"$root/program.log" 2>&1 &
pids+=($!)

cat "$root/HOWTO.txt"
echo
echo "The panel starts in 3 s (q or Ctrl-C quits)."
sleep 3

"$bin/tav_panel_emu" --root "$root" "$@"
