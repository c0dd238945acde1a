#!/usr/bin/env bash
# csdtool killed (SIGKILL) at random moments during 200 edits in place: after
# each kill the document reads, in csdtool, mdbtools and mdb-reader alike,
# as it was before the edit in progress or as that edit leaves it, never a
# mix. The state after is made by the same edit, uninterrupted, on a copy.
#
#   csdtool_crash_test.sh CSDTOOL TEMPLATE DUMP_MJS [EDITS]
set -euo pipefail
csdtool=$1
template=$2
dump=$3
edits=${4:-200}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
doc=$work/doc.csd
cp "$template" "$doc"
for i in $(seq 20); do "$csdtool" insert "$doc" Directories "Path=/seed/$i" >/dev/null; done

# The edit number $1 on file $2, as a command line in `cmd`: inserts mostly,
# some updates and deletes.
edit() {
  local n=$1 file=$2
  case $((n % 5)) in
    0) cmd=("$csdtool" update "$file" Directories --where "dirId=$((n % 17 + 1))" --set "Path=/u/$n") ;;
    1) cmd=("$csdtool" delete "$file" Directories "dirId=$((n % 23 + 1))") ;;
    *) cmd=("$csdtool" insert "$file" Directories "Path=/i/$n") ;;
  esac
}
state() { "$csdtool" export "$1" Directories; }

t0=$(date +%s%N)
for i in 1 2 3 4 5; do sleep 0.000001; done
sleep_cost=$((($(date +%s%N) - t0) / 5000))
killed_mid_commit=0 before_count=0 after_count=0 dumps=0
state "$doc" >"$work/before.csv"
mdb-export "$doc" Directories >"$work/before.mdb.csv"
for n in $(seq "$edits"); do
  cp "$doc" "$work/after.csd"
  edit "$n" "$work/after.csd"
  t0=$(date +%s%N)
  "${cmd[@]}" >/dev/null 2>&1 || true
  # The kill comes anywhere in the time the same edit took whole, however
  # slow the build (sanitizers) or the machine; what starting `sleep` costs
  # comes off the wait.
  took=$((($(date +%s%N) - t0) / 1000))
  wait_us=$((RANDOM * 32768 + RANDOM))
  wait_us=$((wait_us % (took + 1) - sleep_cost))
  state "$work/after.csd" >"$work/after.csv"
  mdb-export "$work/after.csd" Directories >"$work/after.mdb.csv"

  edit "$n" "$doc"
  "${cmd[@]}" >/dev/null 2>&1 &
  pid=$!
  case $((n % 4)) in
    # The moment the journal is being written, or the file behind it: a
    # shell loop of builtins watches for it.
    0) while kill -0 "$pid" 2>/dev/null && [[ ! -e $doc-journal-new ]]; do :; done ;;
    1) while kill -0 "$pid" 2>/dev/null && [[ ! -e $doc-journal ]]; do :; done ;;
    *) ((wait_us <= 0)) || sleep "$(printf '%d.%06d' $((wait_us / 1000000)) $((wait_us % 1000000)))" ;;
  esac
  kill -9 "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  left=0
  [[ -e $doc-journal || -e $doc-journal-new ]] && left=1 && killed_mid_commit=$((killed_mid_commit + 1))

  # The first program to open the document puts it back; check reads only.
  "$csdtool" check "$doc" >"$work/check" || fail "edit $n: check: $(cat "$work/check")"
  [[ ! -e $doc-journal ]] || fail "edit $n: the journal is still there after check"
  state "$doc" >"$work/now.csv"
  mdb-export "$doc" Directories >"$work/now.mdb.csv"
  if cmp -s "$work/now.csv" "$work/before.csv"; then
    cmp -s "$work/now.mdb.csv" "$work/before.mdb.csv" || fail "edit $n: mdbtools disagrees (before)"
    before_count=$((before_count + 1))
  elif cmp -s "$work/now.csv" "$work/after.csv"; then
    cmp -s "$work/now.mdb.csv" "$work/after.mdb.csv" || fail "edit $n: mdbtools disagrees (after)"
    after_count=$((after_count + 1))
  else
    diff "$work/before.csv" "$work/now.csv" >&2 || true
    fail "edit $n: neither the state before nor after"
  fi
  # mdb-reader (slow to start) where a kill left a commit half done, up to
  # 25 times, and after the last edit.
  if ((left && dumps < 25 || n == edits)); then
    dumps=$((dumps + 1))
    node "$dump" "$doc" Directories >"$work/now.json"
    [[ $(wc -l <"$work/now.json") -eq $(($(wc -l <"$work/now.csv") - 1)) ]] ||
      fail "edit $n: mdb-reader reads $(wc -l <"$work/now.json") rows"
    while IFS=, read -r id path; do
      grep -qF "{\"dirId\":$id,\"Path\":$path}" "$work/now.json" || fail "edit $n: mdb-reader lacks $id"
    done < <(tail -n +2 "$work/now.csv")
  fi
  mv "$work/now.csv" "$work/before.csv"
  mv "$work/now.mdb.csv" "$work/before.mdb.csv"
done
echo "csdtool crash: $edits edits killed; $before_count read as before, $after_count as after;" \
  "$killed_mid_commit killed with a commit under way"
((killed_mid_commit > 0)) || fail "no kill landed during a commit; the test proved nothing"
