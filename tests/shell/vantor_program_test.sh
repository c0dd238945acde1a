#!/usr/bin/env bash
# The program as a shell starts it: `vantor FILE` opens FILE on a working
# copy in the temporary folder, and SIGTERM (or Ctrl+C) ends it without a
# question, deleting the working copy and its lock file and leaving FILE
# exactly as it was. A file the engine cannot read does not crash it.
set -euo pipefail
vantor=$1
template=$2

work=$(mktemp -d)
# Whatever happens, no editor outlives the test.
trap 'pkill -KILL -P $$ 2>/dev/null || true; rm -rf "$work"' EXIT
export TMPDIR="$work/tmp" XDG_CONFIG_HOME="$work/config" QT_QPA_PLATFORM=offscreen
mkdir -p "$TMPDIR"

fail() { echo "FAIL: $*" >&2; exit 1; }

# Waits until the working copy and its lock file exist.
wait_for_working_copy() {
  for _ in $(seq 100); do
    if compgen -G "$TMPDIR/CSD*.tmp" >/dev/null && compgen -G "$TMPDIR/CSD*.ldb" >/dev/null; then
      return 0
    fi
    sleep 0.1
  done
  return 1
}

run_and_stop() {
  local signal=$1; shift
  "$vantor" "$@" 2>"$work/stderr" &
  local pid=$!
  wait_for_working_copy || { kill -KILL "$pid"; fail "no working copy for $*"; }
  kill "-$signal" "$pid"
  local rc=0
  wait "$pid" || rc=$?
  [[ $rc -eq 0 ]] || fail "exit status $rc after SIG$signal"
  if compgen -G "$TMPDIR/CSD*" >/dev/null; then fail "left behind: $(ls "$TMPDIR")"; fi
}

# A path with a blank arrives as two arguments and is joined again.
doc="$work/city plan.csd"
cp "$template" "$doc"
before=$(sha256sum <"$doc")
run_and_stop TERM "$work/city" "plan.csd"
run_and_stop INT "$doc"
[[ "$(sha256sum <"$doc")" == "$before" ]] || fail "the document changed"

# Not a Jet file: the error is reported (a message box nobody answers
# here) and the program is still running, with no working copy kept.
head -c 8192 /dev/urandom >"$work/noise.csd"
"$vantor" "$work/noise.csd" 2>"$work/stderr" &
pid=$!
sleep 2
kill -0 "$pid" 2>/dev/null || fail "the program ended on a bad file: $(cat "$work/stderr")"
if compgen -G "$TMPDIR/CSD*" >/dev/null; then fail "working copy kept for a bad file"; fi
kill -TERM "$pid"
wait "$pid" || fail "exit status $? after SIGTERM on a bad file"

echo ok
