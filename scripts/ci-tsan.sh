#!/usr/bin/env bash
# The ThreadSanitizer stage: the kit and its end-to-end test programs built
# with -fsanitize=thread (gcc, as the other test builds), then run with every
# report fatal. Races
# the kit keeps on purpose are asserted by the tests as allowed outcomes;
# tests/tsan.supp, if present, lists what is suppressed, each with its reason.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$ROOT"

bash scripts/deps.sh libtsan2 "${BUILD_PACKAGES[@]}" ||
    die "installing the TSan stage's packages failed"
BUILD="${QZEKIT_TSAN_BUILD_DIR:-$ROOT/build-ci-tsan}"
# The base tests too, for the node pool's frees across threads.
PROGRAMS=("${E2E_PROGRAMS[@]}" qzekit_base_tests)
BUILD_TARGETS="${PROGRAMS[*]}" configure_and_build "$BUILD" -DQZEKIT_SANITIZE=thread \
    -DQZEKIT_BUILD_EXAMPLES=OFF -DQZEKIT_BUILD_TOOLS=OFF

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:exitcode=66"
if [ -f "$ROOT/tests/tsan.supp" ]; then
    TSAN_OPTIONS="$TSAN_OPTIONS:suppressions=$ROOT/tests/tsan.supp"
fi
for program in "${PROGRAMS[@]}"; do
    echo "--> $program under ThreadSanitizer"
    start=$(date +%s)
    (cd "$BUILD/bin" && "./$program" --gtest_brief=1) ||
        die "$program failed under ThreadSanitizer (report above)"
    echo "    $program passed in $(($(date +%s) - start))s"
done
