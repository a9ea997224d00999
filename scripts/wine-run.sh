#!/usr/bin/env bash
# Runs a Windows program under Wine, quietly, in a private Wine prefix.
#   scripts/wine-run.sh PROGRAM.exe [ARG...]   run one program
#   scripts/wine-run.sh --start                make $WINEPREFIX and keep its wineserver up
#   scripts/wine-run.sh --stop                 end $WINEPREFIX's wineserver (and only it)
# With WINEPREFIX set (and started), programs share that prefix and its
# server, which is how ctest runs them; without it each run makes a prefix
# of its own and removes it afterwards.
set -euo pipefail

# Wine's own messages off; a test that watches a call through Wine's trace
# names the channels it needs in XMLRPCS_WINEDEBUG.
export WINEDEBUG=${XMLRPCS_WINEDEBUG:--all}
# No Mono or Gecko installer dialogs: the programs use neither. No crash
# debugger either: winedbg ends a program that crashed with exit status 0,
# so a crashing test would pass; without it the program ends with its
# exception code (an access violation, 0xC0000005, is exit status 5). A
# test that loads a stand-in for one of Wine's own DLLs names it in
# XMLRPCS_WINEDLLOVERRIDES ("dnsapi=n,b").
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d${XMLRPCS_WINEDLLOVERRIDES:+;$XMLRPCS_WINEDLLOVERRIDES}"

start_prefix() {
  mkdir -p "$WINEPREFIX"
  # A persistent server, started with its output away from the caller's
  # pipes (or it would hold them open after the test ends).
  # (It fails when the prefix's server already runs, which is fine.)
  wineserver -p </dev/null >/dev/null 2>&1 || true
  if [[ ! -f $WINEPREFIX/.booted ]]; then
    wine wineboot -i </dev/null >/dev/null 2>&1
    touch "$WINEPREFIX/.booted"
  else
    # The first program of a prefix (a copy of a booted one, say) starts
    # Wine's own services, which keep the streams they inherit open: start
    # them here with none, so that a caller's pipes close when its program
    # ends.
    wine cmd /c exit </dev/null >/dev/null 2>&1 || true
  fi
}

case "${1:-}" in
  --start)
    : "${WINEPREFIX:?set WINEPREFIX to the private prefix to make}"
    start_prefix
    exit 0
    ;;
  --stop)
    : "${WINEPREFIX:?set WINEPREFIX to the prefix whose server to end}"
    wineserver -k </dev/null >/dev/null 2>&1 || true
    exit 0
    ;;
  "")
    echo "usage: $0 PROGRAM.exe [ARG...] | --start | --stop" >&2
    exit 2
    ;;
esac

if [[ -n ${WINEPREFIX:-} ]]; then
  [[ -f $WINEPREFIX/.booted ]] || start_prefix
  exec wine "$@"
fi

WINEPREFIX=$(mktemp -d)/wine
export WINEPREFIX
trap 'wineserver -k </dev/null >/dev/null 2>&1 || true; rm -rf "$(dirname "$WINEPREFIX")"' EXIT
start_prefix
wine "$@"
