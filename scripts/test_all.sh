#!/usr/bin/env bash
# Installs what is missing, builds what each step needs and runs every test,
# printing each step's time:
#   asan  unit, simulator, end-to-end and install tests under AddressSanitizer
#         + UBSan
#   tsan  the tests that run threads together (ctest label "threads")
#   ppc   the target build: its unit tests and install rules, then the
#         end-to-end scenarios with the ppc program under qemu-ppc against the
#         (native) simulated core and panel emulator of the asan build
#   fuzz  each libFuzzer target for TAV_FUZZ_SECONDS (default 8) seconds
#   board the installed program on a PowerPC kernel under qemu-system-ppc,
#         started by its init script, the panel on the VM's UART
#         (scripts/board_vm.sh test; it installs what it needs itself)
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
    ctest --preset "$preset" -L "$label" -j "$jobs"
}

# The end-to-end scenarios (not the decoder's and emulator's own checks) with
# the ppc program, linked against the ppc build of the matrix library.
ppc() {
    tests ppc 'unit|install' tav_unit_tests tav_keyboard tav_keyboard_e2e tav_matrix || return 1
    cmake --preset asan >/dev/null
    cmake --build --preset asan --target tav_e2e_tests
    TAV_E2E_KEYBOARD=$PWD/build/ppc/bin/e2e/tav_keyboard TAV_E2E_LIBDIR=$PWD/build/ppc/lib \
        TAV_E2E_LAUNCHER="qemu-ppc -L /usr/powerpc-linux-gnu" \
        ctest --preset asan -R '^E2e' -j 3
}

fuzz() {
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz
    local ok=0 target corpus
    for target in build/fuzz/bin/fuzz_*; do
        corpus="build/fuzz/corpus/$(basename "$target")"
        mkdir -p "$corpus"
        if ! "$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 "$corpus" 2>"$corpus.log"; then
            tail -50 "$corpus.log"
            ok=1
        fi
        grep -E 'stat::number_of_executed_units' "$corpus.log" | sed "s|^|$(basename "$target"): |" || true
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
    tsan) cmd=(tests tsan threads tav_unit_tests tav_sim_tests tav_e2e_tests) ;;
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
