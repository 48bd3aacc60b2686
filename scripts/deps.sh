#!/usr/bin/env bash
# Installs the Debian packages named on the command line that are missing.
# Idempotent and without prompts; does nothing when all are there.
set -euo pipefail

missing=()
for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$pkg")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "==> Installing missing Debian packages: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        SUDO="sudo"
    else
        echo "error: packages ${missing[*]} are missing and this user cannot install them (not root, no sudo)" >&2
        exit 1
    fi
fi
export DEBIAN_FRONTEND=noninteractive
if ! $SUDO apt-get update -q >/dev/null; then
    echo "error: 'apt-get update' failed: is the Debian package archive reachable?" >&2
    exit 1
fi
if ! $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null; then
    echo "error: 'apt-get install ${missing[*]}' failed" >&2
    exit 1
fi
