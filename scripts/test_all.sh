#!/usr/bin/env bash
# Installs what is missing, builds what each step needs and runs every test,
# printing each step's time:
#   asan  unit, simulator and end-to-end tests under AddressSanitizer + UBSan
#   tsan  the tests that run threads together (ctest label "threads")
#   ppc   the unit tests of the target build under qemu-ppc
#   fuzz  each libFuzzer target for TAV_FUZZ_SECONDS (default 10) seconds
# TAV_STEPS="asan fuzz" runs some steps only. The plain host preset (the demo's
# build) has no step of its own: the asan step runs the same tests.
set -euo pipefail
cd "$(dirname "$0")/.."

STEPS=${TAV_STEPS:-"asan tsan ppc fuzz"}
FUZZ_SECONDS=${TAV_FUZZ_SECONDS:-10}

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
tests() {
    local preset=$1 label=$2
    shift 2
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" --target "$@"
    ctest --preset "$preset" -L "$label"
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
    case $step in
    asan) cmd=(tests asan 'unit|sim|e2e|threads' tav_unit_tests tav_sim_tests tav_e2e_tests) ;;
    tsan) cmd=(tests tsan threads tav_unit_tests tav_sim_tests tav_e2e_tests) ;;
    ppc) cmd=(tests ppc unit tav_unit_tests) ;;
    fuzz) cmd=(fuzz) ;;
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
