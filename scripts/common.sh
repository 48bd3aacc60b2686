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

# The test programs that drive the kit end to end; the TSan and valgrind
# stages run these.
E2E_PROGRAMS=(qzekit_manager_tests qzekit_services_tests qzekit_config_tests qzekit_kit_tests)

# configure_and_build BUILD_DIR [cmake options...]
# BUILD_TARGETS (space-separated) builds only those targets.
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
    local targets=()
    [ -n "${BUILD_TARGETS:-}" ] && read -r -a targets <<<"--target $BUILD_TARGETS"
    cmake --build "$dir" -j "$JOBS" "${targets[@]}" ||
        die "building in $dir failed (compiler output above)"
}
