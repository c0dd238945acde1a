#!/usr/bin/env bash
# csdtool's edit commands end to end: what insert, update and delete print,
# how they fail (exit 1, one line on stderr naming the user's file and the
# column at fault), that a failed edit leaves the file byte for byte as it
# was, and that `csdtool check`, mdb-export and mdb-reader accept the result.
#
#   csdtool_edit_test.sh CSDTOOL CORPUS_DIR
set -u
tool=$1 corpus=$2
dump=$(dirname "$0")/../node/dump.mjs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
db=$work/edit.mdb
cp "$corpus/testV2000.mdb" "$db"
chmod u+w "$db"
failures=0 checks=0

fail() {
  echo "FAIL $*"
  failures=$((failures + 1))
}
run() {  # run NAME EXPECTED_STATUS COMMAND...
  local name=$1 want=$2
  shift 2
  checks=$((checks + 1))
  OUT=$("$@" 2>"$work/stderr")
  STATUS=$?
  ERR=$(cat "$work/stderr")
  [[ $STATUS == "$want" ]] || fail "$name: status $STATUS, wanted $want; stderr: $ERR"
}
expect_out() {  # expect_out NAME TEXT
  checks=$((checks + 1))
  [[ $OUT == "$2" ]] || fail "$1: printed '$OUT', wanted '$2'"
}
expect_err() {  # expect_err NAME SUBSTRING...: one line holding each, about the user's file
  local name=$1
  shift
  checks=$((checks + 1))
  if [[ $(printf '%s\n' "$ERR" | wc -l) -ne 1 || -z $ERR ]]; then
    fail "$name: stderr should be one line, was: $ERR"
    return
  fi
  for s in "$@"; do
    [[ $ERR == *"$s"* ]] || fail "$name: stderr lacks '$s': $ERR"
  done
  [[ $ERR != *".csdtool-"* ]] || fail "$name: stderr names the working copy: $ERR"
}
sorted() {  # the header, then the rows in byte order (storage order is the engine's business)
  printf '%s\n' "$1" | sed -n 1p
  printf '%s\n' "$1" | tail -n +2 | LC_ALL=C sort
}
remember() { SUM=$(sha256sum <"$1"); }
expect_unchanged() {  # expect_unchanged NAME FILE
  checks=$((checks + 1))
  [[ $(sha256sum <"$2") == "$SUM" ]] || fail "$1: $2 changed"
  if ls "$(dirname "$2")" | grep -qE 'csdtool-|compact-'; then fail "$1: a working copy was left behind"; fi
}

# AutoNumber keys: printed, one after the other.
run insert-numbered 0 "$tool" insert "$db" Table3 b=first
first=$OUT
[[ $first =~ ^[1-9][0-9]*$ ]] || fail "insert-numbered: printed '$first', not a key"
run insert-numbered-again 0 "$tool" insert "$db" Table3 b=second
expect_out insert-numbered-again "$((first + 1))"
run insert-explicit-number 0 "$tool" insert "$db" Table3 a=$((first + 10)) b=explicit
expect_out insert-explicit-number "$((first + 10))"
run insert-after-explicit 0 "$tool" insert "$db" Table3 b=after
expect_out insert-after-explicit "$((first + 11))"

# A table without AutoNumber: nothing printed.
run insert-plain 0 "$tool" insert "$db" Table1 'A=Zoë "quoted", too' 'B=Ünïcødé €' C=7 D=-12 \
  E=123456 F=2.5 'G=2024-05-01 13:45:00' H=12.34 I=true
expect_out insert-plain ""

# Counts; text matches without regard to case.
run update-one 0 "$tool" update "$db" Table1 --where A=ABCDEFG --set B=changed D=5
expect_out update-one 1
run insert-twin-1 0 "$tool" insert "$db" Table3 b=twin
run insert-twin-2 0 "$tool" insert "$db" Table3 b=twin
run update-two 0 "$tool" update "$db" Table3 --where b=TWIN --set b=pair
expect_out update-two 2
remember "$db"
run update-none 0 "$tool" update "$db" Table1 --where A=nobody --set B=x
expect_out update-none 0
expect_unchanged update-none "$db"
run delete-one 0 "$tool" delete "$db" Table1 A=a
expect_out delete-one 1
run delete-two 0 "$tool" delete "$db" Table3 b=Pair
expect_out delete-two 2
run delete-none 0 "$tool" delete "$db" Table1 A=a
expect_out delete-none 0

# Refusals: exit 1, one line naming the file (not the working copy) and
# the column, the file untouched.
remember "$db"
run duplicate-key 1 "$tool" insert "$db" Table1 A=ABCDEFG B=again
expect_err duplicate-key "$db" "duplicate values"
expect_unchanged duplicate-key "$db"
run duplicate-by-update 1 "$tool" update "$db" Table1 --where 'A=Zoë "quoted", too' --set A=abcdefg
expect_err duplicate-by-update "$db" "duplicate values"
expect_unchanged duplicate-by-update "$db"
run text-too-long 1 "$tool" insert "$db" Table1 A=new "B=$(printf 'b%.0s' {1..101})"
expect_err text-too-long "$db" "'B'"
expect_unchanged text-too-long "$db"
run byte-too-big 1 "$tool" insert "$db" Table1 A=new C=300
expect_err byte-too-big "$db" "'C'"
expect_unchanged byte-too-big "$db"
run not-a-number 1 "$tool" insert "$db" Table1 A=new D=abc
expect_err not-a-number "$db" "'D'"
expect_unchanged not-a-number "$db"
run not-a-date 1 "$tool" update "$db" Table1 --where A=abcdefg --set G=yesterday
expect_err not-a-date "$db" "'G'"
expect_unchanged not-a-date "$db"
run null-key 1 "$tool" insert "$db" Table1 B=orphan
expect_err null-key "$db" "'A'"
expect_unchanged null-key "$db"
run no-such-column 1 "$tool" insert "$db" Table1 A=new Z=1
expect_err no-such-column "$db" "'Z'"
expect_unchanged no-such-column "$db"
run system-table 1 "$tool" delete "$db" MSysObjects Name=Table1
expect_err system-table "$db" "system table"
expect_unchanged system-table "$db"

# Through a symbolic link the edit lands in the file the link names, and
# the link stays a link.
real=$work/real.mdb
cp "$corpus/testV2000.mdb" "$real"
chmod u+w "$real"
ln -s real.mdb "$work/link.mdb"
run edit-through-link 0 "$tool" insert "$work/link.mdb" Table3 b=via-link
checks=$((checks + 1))
[[ -L $work/link.mdb ]] || fail "edit-through-link: the link was replaced by a copy of the file"
run export-through-link 0 "$tool" export "$real" Table3
checks=$((checks + 1))
[[ $OUT == *'"via-link"'* ]] || fail "edit-through-link: $real lacks the new row: $OUT"

# Compaction: into another file, the counters kept, or in place; a file it
# cannot read, or a place it cannot write, leaves everything as it was.
remember "$db"
run compact-into 0 "$tool" compact "$db" "$work/compact.mdb"
expect_unchanged compact-into "$db"
run compact-check 0 "$tool" check "$work/compact.mdb"
for table in Table1 Table3; do
  run "compact-export-$table" 0 "$tool" export "$work/compact.mdb" "$table"
  compacted=$OUT
  run "export-$table" 0 "$tool" export "$db" "$table"
  checks=$((checks + 1))
  [[ $(sorted "$compacted") == $(sorted "$OUT") ]] || fail "compact changed $table: $compacted"
done
run compact-counter 0 "$tool" insert "$work/compact.mdb" Table3 b=later
expect_out compact-counter "$((first + 14))"  # twins took 12 and 13
run compact-nowhere 1 "$tool" compact "$db" "$work/no/such/folder.mdb"
expect_err compact-nowhere "$work/no/such/folder.mdb"
expect_unchanged compact-nowhere "$db"
head -c 40000 "$db" >"$work/cut.mdb"
remember "$work/cut.mdb"
run compact-damaged 1 "$tool" compact "$work/cut.mdb"
expect_err compact-damaged "$work/cut.mdb"
expect_unchanged compact-damaged "$work/cut.mdb"
run compact-in-place 0 "$tool" compact "$db"
checks=$((checks + 1))
[[ $(stat -c %s "$db") -lt $(stat -c %s "$corpus/testV2000.mdb") ]] || fail "compact-in-place: no smaller"

# The result: sound, and what mdbtools and mdb-reader read.
run check 0 "$tool" check "$db"
expect_out check ""
run export-table1 0 "$tool" export "$db" Table1
want_table1='A,B,C,D,E,F,G,H,I
"Zoë ""quoted"", too","Ünïcødé €",7,-12,123456,2.5,"05/01/24 13:45:00",12.3400,1
"abcdefg","changed",2,5,333333333,444.555,"09/21/74 00:00:00",3.5000,1'
[[ $(sorted "$OUT") == "$want_table1" ]] || fail "export-table1: $OUT"
if command -v mdb-export >/dev/null; then
  for table in Table1 Table3; do
    run "mdb-export-$table" 0 mdb-export "$db" "$table"
    theirs=$OUT
    run "export-$table" 0 "$tool" export "$db" "$table"
    checks=$((checks + 1))
    [[ $(sorted "$theirs") == $(sorted "$OUT") ]] ||
      fail "mdb-export $table differs: $theirs --- csdtool: $OUT"
  done
  run mdb-export-table3 0 mdb-export "$db" Table3
  want_table3="a,b
$first,\"first\"
$((first + 1)),\"second\"
$((first + 10)),\"explicit\"
$((first + 11)),\"after\""
  [[ $(sorted "$OUT") == $(sorted "$want_table3") ]] || fail "mdb-export Table3: $OUT"
else
  fail "mdb-export is not installed"
fi
if command -v node >/dev/null; then
  run mdb-reader 0 node "$dump" "$db" Table1
  checks=$((checks + 1))
  [[ $(printf '%s\n' "$OUT" | wc -l) == 2 && $OUT == *'"A":"Zoë \"quoted\", too","B":"Ünïcødé €","C":7,"D":-12'* ]] ||
    fail "mdb-reader: $OUT"
fi

echo "$((checks - failures)) passed, $failures failed"
[[ $failures == 0 ]]
