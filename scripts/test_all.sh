#!/usr/bin/env bash
# Installs what is missing, builds what each step needs and runs every test,
# printing each step's time:
#   asan  unit, simulator, end-to-end and install tests under AddressSanitizer
#         + UBSan
#   tsan  the whole unit binary and the tests that run threads together
#         (ctest labels "unit" and "threads") under ThreadSanitizer
#   ppc   the target build: its unit tests and install rules, then every
#         end-to-end scenario with the ppc program under qemu-ppc against the
#         (native) simulated core and panel emulator of the asan build
#   fuzz  each libFuzzer target for TAV_FUZZ_SECONDS (default 8) seconds,
#         starting from its seeds in tests/fuzz/corpus/<target>; a target
#         that runs fewer inputs than its floor below fails
#   board the installed program on a PowerPC kernel under qemu-system-ppc,
#         started by its init script, the panel on the VM's UART
#         (scripts/board_vm.sh test; it installs what it needs itself)
# Every ctest call fails when it selects no test.
# TAV_STEPS="asan fuzz" runs some steps only. The plain host preset (the demo's
# build) has no step of its own: the asan step runs the same tests.
set -euo pipefail
cd "$(dirname "$0")/.."

STEPS=${TAV_STEPS:-"asan tsan ppc fuzz board"}
FUZZ_SECONDS=${TAV_FUZZ_SECONDS:-8}

need=()
for pkg in cmake ninja-build g++ googletest libgtest-dev libgmock-dev clang \
           g++-powerpc-linux-gnu qemu-user; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
    echo "== installing: ${need[*]}"
    SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi

# Configure a preset, build the given targets, run the tests of a label.
# $jobs tests at once: the end-to-end tests spend most of their time in the
# program's own start-up pauses, so more of them than cores keep the CPU busy.
tests() {
    local preset=$1 label=$2
    shift 2
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" --target "$@"
    ctest --preset "$preset" -L "$label" -j "$jobs" --no-tests=error
}

# The end-to-end scenarios (E2e*; not the decoder's and
# emulator's own checks) with the ppc program, linked against the ppc build of
# the matrix library.
ppc() {
    tests ppc 'unit|install' tav_unit_tests tav_keyboard tav_keyboard_e2e tav_matrix || return 1
    cmake --preset asan >/dev/null
    cmake --build --preset asan --target tav_e2e_tests
    TAV_E2E_KEYBOARD=$PWD/build/ppc/bin/e2e/tav_keyboard TAV_E2E_LIBDIR=$PWD/build/ppc/lib \
        TAV_E2E_LAUNCHER="qemu-ppc -L /usr/powerpc-linux-gnu" \
        ctest --preset asan -R '^E2e' -j 3 --no-tests=error
}

# Executions each fuzz target must reach in 8 s: about a tenth of what two
# 8-s runs on the 2-core CI machine did while it was busy with other builds
# (cfg_reader 8500-14800, eth_pad 340000-540000, frame_parser 23800-40100,
# panel_decode 150-170, panel_model 3200-6200), so that a loaded machine
# passes and a target that hangs, stops early or slows down tenfold fails.
# Scaled with TAV_FUZZ_SECONDS.
declare -A FUZZ_FLOOR=([fuzz_cfg_reader]=800 [fuzz_eth_pad]=30000 [fuzz_frame_parser]=2000
                       [fuzz_panel_decode]=15 [fuzz_panel_model]=300)

fuzz() {
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz --target fuzz_all
    local ok=0 target name corpus seeds runs floor
    for target in build/fuzz/bin/fuzz_*; do
        name=$(basename "$target")
        corpus="build/fuzz/corpus/$name" seeds="tests/fuzz/corpus/$name"
        floor=${FUZZ_FLOOR[$name]:-}
        [ -n "$floor" ] && floor=$((floor * FUZZ_SECONDS / 8))
        if [ ! -d "$seeds" ] || [ -z "$floor" ]; then
            echo "$name: no seeds in $seeds or no floor"
            ok=1
            continue
        fi
        mkdir -p "$corpus"
        if ! "$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 "$corpus" "$seeds" \
            2>"$corpus.log"; then
            tail -50 "$corpus.log"
            ok=1
        fi
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$corpus.log")
        echo "$name: ${runs:-no} executions (floor $floor)"
        if [ "${runs:-0}" -lt "$floor" ]; then
            ok=1
        fi
    done
    return $ok
}

passed=0 failed=0 total_start=$(date +%s)
for step in $STEPS; do
    echo "== step $step"
    start=$(date +%s)
    jobs=2
    case $step in
    asan) jobs=4 cmd=(tests asan 'unit|sim|e2e|threads|install' tav_unit_tests tav_sim_tests tav_e2e_tests
                    tav_keyboard tav_panel_emu) ;;
    tsan) cmd=(tests tsan 'unit|threads' tav_unit_tests tav_sim_tests tav_e2e_tests) ;;
    ppc) cmd=(ppc) ;;
    fuzz) cmd=(fuzz) ;;
    board) cmd=(bash scripts/board_vm.sh test) ;;
    *) echo "unknown step $step"; failed=$((failed + 1)); continue ;;
    esac
    if "${cmd[@]}"; then
        passed=$((passed + 1)) verdict=passed
    else
        failed=$((failed + 1)) verdict=FAILED
    fi
    echo "== step $step $verdict in $(($(date +%s) - start)) s"
done
echo "== all steps in $(($(date +%s) - total_start)) s"
echo "steps: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
