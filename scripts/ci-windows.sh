#!/usr/bin/env bash
# The Windows stage: cross-build the kit and its tests with mingw-w64 and run
# the test suite under Wine. Safe to run again; later runs reuse the packages,
# the cached libcrypto and the build directory.
#
# Environment:
#   QZEKIT_WINDOWS_BUILD_DIR  build directory (default <repo>/build-windows)
#   QZEKIT_JOBS               parallel build jobs (default 2)
#   QZEKIT_OPENSSL_CACHE      libcrypto cache root (see build-openssl-mingw.sh)
set -uo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${QZEKIT_WINDOWS_BUILD_DIR:-$repo/build-windows}
jobs=${QZEKIT_JOBS:-2}
step=
step_start=0
stage_start=$(date +%s)

begin() {
    step=$1
    step_start=$(date +%s)
    echo "==> ci-windows: $step"
}
done_step() {
    echo "==> ci-windows: $step done ($(($(date +%s) - step_start)) s)"
}
fail() {
    echo "==> ci-windows: FAILED in step '$step'${1:+: $1}" >&2
    exit 1
}

begin "packages"
# openssl, osslsigncode and python3 (a local time-stamp server) make the
# signed libraries of the code-signing tests; CLI11 is the qzekit tool's parser.
packages=(g++-mingw-w64-x86-64 wine wine64 dpkg-dev cmake make perl openssl osslsigncode python3
    libcli11-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
    echo "installing: ${missing[*]}"
    sudo=
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || fail "not root and no sudo to install ${missing[*]}"
        sudo="sudo -n"
    fi
    install() {
        $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
            --no-install-recommends "${missing[@]}"
    }
    # The package lists may be stale on a fresh machine.
    install || { $sudo apt-get update -q && install; } || fail "apt-get install ${missing[*]}"
fi
done_step

begin "libcrypto for mingw64"
openssl_dir=$("$repo/scripts/build-openssl-mingw.sh" | tail -n1) || fail
[[ -f $openssl_dir/VERSION ]] || fail "no VERSION in '$openssl_dir'"
echo "OpenSSL $(cat "$openssl_dir/VERSION") from $openssl_dir"
done_step

begin "configure"
cmake -S "$repo" -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/toolchains/mingw-w64-x86_64.cmake" \
    -DOPENSSL_ROOT_DIR="$openssl_dir" \
    -DQZEKIT_WERROR=ON || fail
done_step

begin "build"
cmake --build "$build" -j"$jobs" || fail
done_step

begin "test under Wine"
ctest --test-dir "$build" --output-on-failure --timeout 900 || fail "see the test output above"
done_step

begin "demo host under Wine"
"$repo/scripts/wine-run.sh" "$build/bin/qzekit_demo_host.exe" >"$build/demo.log" 2>&1 ||
    { cat "$build/demo.log"; fail "the demo host failed (its output is above)"; }
tail -n 1 "$build/demo.log"
done_step

echo "==> ci-windows: all steps passed ($(($(date +%s) - stage_start)) s)"
