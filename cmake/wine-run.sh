#!/usr/bin/env bash
# Runs a Windows program of the cross build under Debian's wine64. The prefix
# (and with it the D: drive) comes from the caller, normally
# cmake/test-windows.sh; without one, Wine's default prefix is used.
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
exec /usr/lib/wine/wine64 "$@"
