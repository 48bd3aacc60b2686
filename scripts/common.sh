# Shared by the quick-start scripts: the packages the build needs and a
# configure-and-build step that says clearly what failed.

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
JOBS="${JOBS:-$(nproc 2>/dev/null || echo 2)}"

# openssl, the command-line tool, encrypts the demo's config.json at build time;
# CLI11 parses the qzekit tool's arguments; osslsigncode signs the small Windows
# library of the tool's tests.
BUILD_PACKAGES=(cmake make g++ pkg-config libssl-dev openssl libgtest-dev libgmock-dev libcli11-dev osslsigncode)

die() {
    echo "error: $*" >&2
    exit 1
}

# configure_and_build BUILD_DIR [cmake options...]
configure_and_build() {
    local dir="$1"
    shift
    local werror=OFF
    mkdir -p "$dir"
    # CI builds treat warnings as errors.
    [ "${CI:-}" = "true" ] && werror=ON
    cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" \
        -DQZEKIT_WERROR="$werror" "$@" >"$dir/configure.log" 2>&1 ||
        { cat "$dir/configure.log" >&2; die "configuring the build in $dir failed (log above)"; }
    cmake --build "$dir" -j "$JOBS" || die "building in $dir failed (compiler output above)"
}
