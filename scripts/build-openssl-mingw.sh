#!/usr/bin/env bash
# Builds OpenSSL's libcrypto for x86_64-w64-mingw32 from Debian's own source
# package and caches it outside the repository, keyed by version, so that only
# the first run on a machine pays for the build.
#
# The last line on standard output is the install directory (pass it to CMake
# as OPENSSL_ROOT_DIR); progress goes to standard error.
#
# Environment:
#   QZEKIT_OPENSSL_CACHE  cache root (default /var/cache/qzekit)
#   QZEKIT_OPENSSL_REBUILD=1  ignore a cached build
set -euo pipefail

cache_root=${QZEKIT_OPENSSL_CACHE:-/var/cache/qzekit}
prefix=x86_64-w64-mingw32-
jobs=${QZEKIT_JOBS:-2}

say() { echo "build-openssl-mingw: $*" >&2; }

# A finished build has a VERSION file, written last.
if [[ "${QZEKIT_OPENSSL_REBUILD:-0}" != 1 ]]; then
    for dir in $(ls -d "$cache_root"/openssl-mingw64-* 2>/dev/null | sort -rV); do
        if [[ -f $dir/VERSION && -f $dir/lib/libcrypto.a ]]; then
            say "cached OpenSSL $(cat "$dir/VERSION") in $dir"
            echo "$dir"
            exit 0
        fi
    done
fi

command -v "${prefix}gcc" >/dev/null || { say "missing ${prefix}gcc"; exit 1; }
command -v dpkg-source >/dev/null || { say "missing dpkg-source (package dpkg-dev)"; exit 1; }

mkdir -p "$cache_root"
work=$(mktemp -d "${TMPDIR:-/tmp}/qzekit-openssl.XXXXXX")
trap 'rm -rf "$work"' EXIT

# A private apt configuration with deb-src twins of the machine's own
# entries; /etc/apt stays untouched.
apt_dir=$work/apt
mkdir -p "$apt_dir/sources.list.d" "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial"
: >"$apt_dir/sources.list"
for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ -f $f ]] || continue
    sed -n 's/^[[:space:]]*deb\([[:space:]]\)/deb-src\1/p' "$f" >>"$apt_dir/sources.list"
done
n=0
for f in /etc/apt/sources.list.d/*.sources; do
    [[ -f $f ]] || continue
    n=$((n + 1))
    # deb822: a stanza's Types line names "deb"; the copy names "deb-src".
    awk '/^Types:/ { print "Types: deb-src"; next } { print }' "$f" >"$apt_dir/sources.list.d/$n-$(basename "$f")"
done
if ! grep -qs deb-src "$apt_dir/sources.list" "$apt_dir"/sources.list.d/*; then
    say "no apt entries to derive a deb-src entry from"
    exit 1
fi

apt_opts=(
    -o "Dir::Etc::SourceList=$apt_dir/sources.list"
    -o "Dir::Etc::SourceParts=$apt_dir/sources.list.d"
    -o "Dir::State::Lists=$apt_dir/lists"
    -o "Dir::Cache=$apt_dir/cache"
    -o "Dir::Cache::pkgcache="
    -o "Dir::Cache::srcpkgcache="
    -o "APT::Sandbox::User=root"
)
say "updating private source lists"
# A third-party entry that cannot be reached must not stop the build; the
# check that matters is whether openssl's source is listed afterwards.
apt-get "${apt_opts[@]}" -qq update >&2 || say "apt-get update reported errors (continuing)"

mapfile -t versions < <(apt-cache "${apt_opts[@]}" showsrc openssl 2>/dev/null |
    sed -n 's/^Version: //p' | sort -urV)
if [[ ${#versions[@]} -eq 0 ]]; then
    say "openssl is not in the source lists"
    exit 1
fi
say "source versions listed: ${versions[*]}"

# The newest listed version may be missing from the archive: fall back to an
# older 3.0 release whose source downloads.
src=$work/src
mkdir -p "$src"
built=
for v in "${versions[@]}"; do
    upstream=${v#*:}
    upstream=${upstream%-*}
    case $upstream in 3.0.*) ;; *) continue ;; esac
    say "fetching openssl $v"
    if (cd "$src" && apt-get "${apt_opts[@]}" -qq source --download-only "openssl=$v" >&2); then
        dsc=$(ls "$src"/openssl_*.dsc | head -n1)
        (cd "$src" && dpkg-source --no-check -x "$dsc" "openssl-$upstream" >&2)
        built=$upstream
        break
    fi
    say "openssl $v did not download; trying an older one"
    rm -f "$src"/openssl_*
done
if [[ -z $built ]]; then
    say "no OpenSSL 3.0 source could be downloaded"
    exit 1
fi

tree=$src/openssl-$built
say "configuring OpenSSL $built for mingw64"
(cd "$tree" && ./Configure mingw64 no-shared no-tests no-module \
    --cross-compile-prefix="$prefix" --prefix=/ >&2)
say "building libcrypto ($jobs jobs)"
# Generated headers first: the library rule alone does not depend on them.
(cd "$tree" && make -j"$jobs" build_generated >&2 && make -j"$jobs" libcrypto.a >&2)

dest=$cache_root/openssl-mingw64-$built
rm -rf "$dest.tmp"
mkdir -p "$dest.tmp/lib" "$dest.tmp/include"
cp "$tree/libcrypto.a" "$dest.tmp/lib/"
cp -r "$tree/include/openssl" "$dest.tmp/include/"
echo "$built" >"$dest.tmp/VERSION"
rm -rf "$dest"
mv "$dest.tmp" "$dest"
say "built OpenSSL $built into $dest"
echo "$dest"
