#!/usr/bin/env bash
# csdtool as one writer among others: two insert loops on one document end
# with a row for every reported success and a clean refusal for every loser;
# a live lock holder refuses it and a killed one does not; what interrupted
# writes left beside the document goes; links lead to the real file and a
# read-only document stays as it was; compaction keeps rows and counters and
# fails cleanly; a batch lands whole or not at all, and readers beside it see it
# whole or not at all; find takes a table's name, not SQL, and
# a query nested beyond reason is refused, not a crash.
#
#   csdtool_writers_test.sh CSDTOOL TEMPLATE
set -euo pipefail
csdtool=$1
template=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
doc=$work/doc.csd
cp "$template" "$doc"
rows() { "$csdtool" export "$1" Directories | tail -n +2 | wc -l; }
# Another program holding the document's lock, its pid in `holder`.
hold_lock() {
  (
    exec 9>"$work/doc.ldb"
    flock 9
    exec sleep 60
  ) &
  holder=$!
  sleep 0.3
}

loop() {
  local ok=0 refused=0 i
  for i in $(seq 100); do
    if "$csdtool" insert "$doc" Directories "Path=/$1/$i" >>"$work/keys" 2>"$work/err.$1"; then
      ok=$((ok + 1))
    else
      grep -Eq "error 3045: Could not use '$doc'; file already in use\. It is open in csdtool \(process [0-9]+\) of " \
        "$work/err.$1" || fail "not a clean refusal: $(cat "$work/err.$1")"
      refused=$((refused + 1))
    fi
  done
  echo "$ok" >"$work/ok.$1"
}
loop a &
first=$!
loop b &
second=$!
wait "$first" || exit 1
wait "$second" || exit 1
succeeded=$(($(cat "$work/ok.a") + $(cat "$work/ok.b")))
[[ $(rows "$doc") -eq $succeeded ]] || fail "$(rows "$doc") rows for $succeeded reported inserts"
[[ -z $(sort "$work/keys" | uniq -d) ]] || fail "AutoNumber keys handed out twice"
"$csdtool" check "$doc" || fail "check"

# A live holder refuses; once it is killed its lock file blocks nobody.
hold_lock
if "$csdtool" delete "$doc" Directories "Path=/a/1" 2>"$work/err"; then fail "wrote past a lock"; fi
grep -q "error 3045: .*Another program holds its lock file $work/doc.ldb" "$work/err" ||
  fail "$(cat "$work/err")"
"$csdtool" new --template "$template" "$doc" --force 2>/dev/null && fail "new replaced a locked document"
kill -9 "$holder"
wait "$holder" 2>/dev/null || true
[[ -e $work/doc.ldb ]] || fail "the killed holder's lock file should still be there"

# Leftovers of an interrupted save and csdtool run go with the next write.
touch "$work/.doc.csd.Ab12Cd" "$work/doc.csd.csdtool-Zz99Yy" "$work/doc.csd.csdtool-notmine"
before=$(rows "$doc")
ln -s doc.csd "$work/middle.csd"
ln -s "$work/middle.csd" "$work/link.csd"
chmod 640 "$doc"
"$csdtool" insert "$work/link.csd" Directories "Path=/linked" >/dev/null
[[ -L $work/link.csd && -L $work/middle.csd ]] || fail "a link was replaced"
[[ $(rows "$doc") -eq $((before + 1)) && $(stat -c %a "$doc") == 640 ]] || fail "link chain"
[[ ! -e $work/.doc.csd.Ab12Cd && ! -e $work/doc.csd.csdtool-Zz99Yy && ! -e $work/doc.ldb &&
  -e $work/doc.csd.csdtool-notmine ]] || fail "leftovers: $(ls -A "$work")"

# Compaction: into another file with the rows and the counter kept, or in
# place; a damaged file, a place it cannot write or a held lock leave all as it was.
for t in Directories Maps; do "$csdtool" export "$doc" $t | sort >"$work/$t.want"; done
cp "$doc" "$work/before"
"$csdtool" compact "$doc" "$work/small.csd" || fail "compact into another file"
cmp -s "$doc" "$work/before" || fail "compact changed its source"
"$csdtool" check "$work/small.csd" || fail "check after compact"
for t in Directories Maps; do
  "$csdtool" export "$work/small.csd" $t | sort | cmp -s - "$work/$t.want" || fail "compact changed $t"
done
next=$("$csdtool" insert "$doc" Directories "Path=/next")
[[ $("$csdtool" insert "$work/small.csd" Directories "Path=/next") == "$next" ]] || fail "counter"
head -c 40000 "$doc" >"$work/cut.csd"
cp "$work/cut.csd" "$work/cut.before"
if "$csdtool" compact "$work/cut.csd" 2>/dev/null; then fail "compacted a damaged file"; fi
if "$csdtool" compact "$doc" "$work/no/such/x.csd" 2>/dev/null; then fail "compact into nowhere"; fi
hold_lock
if "$csdtool" compact "$doc" 2>/dev/null; then fail "compacted a locked document"; fi
kill -9 "$holder"
wait "$holder" 2>/dev/null || true
cmp -s "$work/cut.csd" "$work/cut.before" || fail "a failed compact changed the file"
"$csdtool" export "$doc" Directories | sort >"$work/Directories.want"
"$csdtool" compact "$doc" && "$csdtool" check "$doc" || fail "compact in place"
"$csdtool" export "$doc" Directories | sort | cmp -s - "$work/Directories.want" || fail "in place"
[[ -z $(ls -A "$work" | grep -E 'compact-|csdtool-.{6}$') ]] || fail "working copies left: $(ls -A "$work")"

# A batch is one commit: every line, or at a failing line none of them.
printf '%s\n' '# two maps in one folder' 'insert Maps "Name=a b.dgn" dirId=77 csfid=1' \
  'insert Maps Name=c.dgn dirId=77 csfid=1' 'update Maps --where dirId=77 --set csfid=5' \
  'delete Maps "Name=A B.DGN"' >"$work/batch"
out=$("$csdtool" batch "$doc" <"$work/batch" | tail -n 2 | tr '\n' ' ')
[[ $out == "2 1 " ]] || fail "batch printed '$out'"
[[ $("$csdtool" find "$doc" Maps "dirId = 77" | tail -n 1) == *',"c.dgn",77,5' ]] || fail "batch rows"
cp "$doc" "$work/before"
printf 'insert Maps Name=d.dgn\n\ninsert Maps nosuch=1\n' | "$csdtool" batch "$doc" 2>"$work/err" &&
  fail "a batch with a bad line"
grep -q "line 3: table 'Maps' has no column 'nosuch'" "$work/err" && cmp -s "$doc" "$work/before" ||
  fail "a failed batch: $(cat "$work/err")"
# With --each every line is its own commit: the lines before a failing one stay.
printf 'insert Maps Name=e.dgn dirId=78 csfid=1\ninsert Maps Name=f.dgn dirId=78\nupdate Maps --where dirId=78 --set nosuch=1\n' |
  "$csdtool" batch "$doc" --each >"$work/out" 2>"$work/err" && fail "a batch --each with a bad line"
grep -q "line 3: .*nosuch.* (the edits up to line 2 are saved)" "$work/err" && [[ $(wc -l <"$work/out") -eq 2 ]] &&
  [[ $("$csdtool" query "$doc" "SELECT Name FROM Maps WHERE dirId = 78" | wc -l) -eq 3 ]] &&
  "$csdtool" check "$doc" || fail "a failed batch --each: $(cat "$work/out" "$work/err")"

# Readers never see part of a commit: batches of 300 inserts land while
# check and export read the same document side by side.
shared=$work/shared.csd
cp "$template" "$shared"
(
  for b in $(seq 12); do
    for i in $(seq 300); do echo "insert Directories Path=/shared/$b/$i"; done |
      "$csdtool" batch "$shared" >/dev/null || exit 1
  done
) &
writer=$!
reads=0
while kill -0 "$writer" 2>/dev/null; do
  "$csdtool" check "$shared" >"$work/shared.check" || fail "a reader saw: $(cat "$work/shared.check")"
  n=$(rows "$shared")
  ((n % 300 == 0)) || fail "a reader saw $n rows, part of a batch"
  reads=$((reads + 1))
done
wait "$writer" || fail "a batch failed beside the readers"
[[ $(rows "$shared") -eq 3600 ]] || fail "$(rows "$shared") rows after 12 batches"

chmod 444 "$doc"
cp "$doc" "$work/before"
if "$csdtool" insert "$doc" Directories "Path=/ro" 2>"$work/err"; then fail "wrote a read-only file"; fi
grep -q "read-only" "$work/err" && cmp -s "$doc" "$work/before" || fail "read-only: $(cat "$work/err")"

# find's TABLE is a name; nesting and joins beyond Jet's limits are refused.
if "$csdtool" find "$doc" "Directories] where 1=1 or [Maps" "dirId > 0" 2>"$work/err"; then
  fail "find ran SQL"
fi
grep -q "error 3078" "$work/err" || fail "$(cat "$work/err")"
deep=$(printf '(%.0s' $(seq 10000))1=1$(printf ')%.0s' $(seq 10000))
if "$csdtool" find "$doc" Directories "$deep" 2>"$work/err"; then fail "10000 parentheses"; fi
grep -q "error 3360: Query is too complex." "$work/err" || fail "$(cat "$work/err")"
nots=$(printf 'NOT %.0s' $(seq 30000))
if "$csdtool" query "$doc" "select * from Maps where $nots dirId = 1" 2>"$work/err"; then fail "NOT"; fi
grep -q "error 3360" "$work/err" || fail "$(cat "$work/err")"
tables=$(printf ', Maps m%d' $(seq 32))
if "$csdtool" query "$doc" "select * from Maps$tables" 2>"$work/err"; then fail "33 tables"; fi
grep -q "error 3360" "$work/err" || fail "$(cat "$work/err")"
echo "csdtool writers: $succeeded of 200 inserts succeeded, the rest refused cleanly"
