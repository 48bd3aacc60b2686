#!/usr/bin/env bash
# Builds the kit with its tests and runs every test.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

bash "$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}" || die "installing build dependencies failed"
BUILD="${BUILD_DIR:-$ROOT/build}"
mkdir -p "$BUILD"
configure_and_build "$BUILD" -DQZEKIT_BUILD_TESTS=ON
echo "==> Running the tests"
ctest --test-dir "$BUILD" --output-on-failure -j "$JOBS" || die "some tests failed (see above)"
