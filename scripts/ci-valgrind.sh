#!/usr/bin/env bash
# The valgrind stage: the demo host and the end-to-end test programs run once
# under memcheck, with any error or leak failing the stage. Leaks the kit
# keeps on purpose are listed in tests/valgrind.supp, each with its reason.
# Reuses the README test build (scripts/test.sh) when it is there.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$ROOT"

bash scripts/deps.sh valgrind "${BUILD_PACKAGES[@]}" ||
    die "installing the valgrind stage's packages failed"
BUILD="${BUILD_DIR:-$ROOT/build}"
mkdir -p "$BUILD"
configure_and_build "$BUILD" -DQZEKIT_BUILD_TESTS=ON -DQZEKIT_BUILD_EXAMPLES=ON

memcheck=(valgrind --tool=memcheck --error-exitcode=1 --leak-check=full
    --errors-for-leak-kinds=definite,possible --show-leak-kinds=definite,possible
    --track-origins=yes --num-callers=30 --suppressions="$ROOT/tests/valgrind.supp" -q)

run() {
    local name="$1"
    shift
    local start log
    start=$(date +%s)
    log="$BUILD/valgrind-$name.log"
    echo "--> $name under memcheck"
    (cd "$BUILD/bin" && "${memcheck[@]}" --log-file="$log" "$@" >"$log.out" 2>&1) ||
        { tail -n 40 "$log.out"; cat "$log"; die "$name failed under memcheck (report above)"; }
    if [ -s "$log" ]; then
        cat "$log"
        die "memcheck reported on $name (above)"
    fi
    echo "    $name clean in $(($(date +%s) - start))s"
}

run qzekit_demo_host ./qzekit_demo_host
for program in "${E2E_PROGRAMS[@]}"; do
    run "$program" "./$program" --gtest_brief=1
done
