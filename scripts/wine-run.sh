#!/usr/bin/env bash
# Runs a Windows program under Wine and passes its exit code through.
# Used as CMake's cross-compiling emulator: `wine-run.sh prog.exe args...`.
#
# One prefix per user in the temporary folder (QZEKIT_WINEPREFIX overrides),
# created on first use; one Wine server kept alive across the programs of a
# run, so that each test program does not pay for starting it.
set -u

export WINEPREFIX=${QZEKIT_WINEPREFIX:-${TMPDIR:-/tmp}/qzekit-wine-$(id -u)}
export WINEARCH=win64
# Quiet: no Wine diagnostics in test output.
export WINEDEBUG=-all
# No crash debugger (a crashing program would otherwise end with code 0), and
# no Mono or Gecko installers when the prefix is created.
export WINEDLLOVERRIDES="winedbg.exe=d;mscoree=d;mshtml=d"
# Console programs need no display.
unset DISPLAY WAYLAND_DISPLAY

if [[ $# -eq 0 ]]; then
    echo "usage: wine-run.sh program.exe [args...]" >&2
    exit 2
fi

if [[ ! -f $WINEPREFIX/system.reg ]]; then
    mkdir -p "$WINEPREFIX"
    wineboot --init >/dev/null 2>&1 || {
        echo "wine-run.sh: could not create the Wine prefix $WINEPREFIX" >&2
        exit 1
    }
fi
# One server for the whole run: it lingers after the last program ends so
# that the next one finds it (QZEKIT_WINESERVER_LINGER seconds; "" = forever).
wineserver -p"${QZEKIT_WINESERVER_LINGER-60}" </dev/null >/dev/null 2>&1 || true
# Wine's own background programs start with the first program of a session
# and inherit its output. Start them here on /dev/null, or a caller that
# reads this program's output (ctest) waits until the server goes away.
wine cmd.exe /c exit 0 </dev/null >/dev/null 2>&1

wine "$@"
exit $?
