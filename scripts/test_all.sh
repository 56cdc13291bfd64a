#!/usr/bin/env bash
# Installs what is missing, builds every preset and runs every test:
# host (unit + end-to-end), asan, tsan, the ppc target build under qemu-ppc,
# and the libFuzzer targets for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

PRESETS=${TAV_PRESETS:-"host asan tsan ppc"}
FUZZ_SECONDS=${TAV_FUZZ_SECONDS:-60}

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

status=0
for preset in $PRESETS; do
    echo "== preset $preset"
    start=$(date +%s)
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    if ! ctest --preset "$preset"; then
        status=1
    fi
    echo "== preset $preset took $(( $(date +%s) - start )) s"
done

if [ "$FUZZ_SECONDS" -gt 0 ]; then
    echo "== fuzz ($FUZZ_SECONDS s per target)"
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz
    for target in build/fuzz/bin/fuzz_*; do
        [ -x "$target" ] || continue
        corpus="build/fuzz/corpus/$(basename "$target")"
        mkdir -p "$corpus"
        if ! "$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 "$corpus" 2>"$corpus.log"; then
            tail -50 "$corpus.log"
            status=1
        fi
        grep -E 'stat::number_of_executed_units|Done' "$corpus.log" | sed "s|^|$(basename "$target"): |" || true
    done
fi

exit $status
