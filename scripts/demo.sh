#!/usr/bin/env bash
# Builds the kit and runs the demo host.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

bash "$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}" || die "installing build dependencies failed"
BUILD="${BUILD_DIR:-$ROOT/build}"
mkdir -p "$BUILD"
configure_and_build "$BUILD" -DQZEKIT_BUILD_TESTS=OFF
echo "==> Running the demo host"
"$BUILD/bin/qzekit_demo_host" || die "the demo host failed"
