#!/usr/bin/env bash
# `csdtool new`: a document is a byte-for-byte copy of its template, found in
# ../Templates/Warehouses beside csdtool's folder (in a build and in an
# installed layout alike) or given as a path; an existing file is replaced
# only with --force; a template that is not a Jet database, or is missing,
# leaves nothing behind.
set -u
tool=$1 templates=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0 checks=0
fail() { echo "FAIL $*"; failures=$((failures + 1)); }
check() {  # check NAME EXPECTED_STATUS COMMAND...
  local name=$1 want=$2
  shift 2
  checks=$((checks + 1))
  LAST_OUT=$("$@" 2>"$work/err")
  local status=$?
  LAST_ERR=$(cat "$work/err")
  [[ $status == "$want" ]] || fail "$name: status $status, wanted $want; stderr: $LAST_ERR"
}
expect_err() {  # expect_err NAME SUBSTRING
  checks=$((checks + 1))
  if [[ $(printf '%s\n' "$LAST_ERR" | wc -l) -ne 1 || "$LAST_ERR" != *"$2"* ]]; then
    fail "$1: stderr should be one line holding '$2', was: $LAST_ERR"
  fi
}
same() {  # same NAME FILE1 FILE2
  checks=$((checks + 1))
  cmp -s "$2" "$3" || fail "$1: $2 differs from $3"
}
only() {  # only NAME FILE...: the work folder holds exactly these files
  checks=$((checks + 1))
  local want got
  want=$(printf '%s\n' "${@:2}" err | sort)
  got=$(ls -A "$work" | sort)
  [[ $got == "$want" ]] || fail "$1: files are [$(echo $got)], wanted [$(echo $want)]"
}
mstn=$templates/MstnTemplate.csd autocad=$templates/AutoCadTemplate.csd

check help 0 "$tool" --help
[[ $LAST_OUT == *"new --template mstn|autocad|PATH OUT [--force]"* ]] || fail "help text names new"

check new-mstn 0 "$tool" new --template mstn "$work/a.csd"
same new-mstn "$work/a.csd" "$mstn"
[[ $LAST_OUT == "" ]] || fail "new-mstn printed $LAST_OUT"
mode=$(stat -c %a "$work/a.csd")
[[ $mode == $(printf '%o' $((0666 & ~$(umask)))) ]] || fail "new-mstn: mode $mode ignores the umask"
check opens 0 "$tool" check "$work/a.csd"

check no-overwrite 1 "$tool" new --template autocad "$work/a.csd"
expect_err no-overwrite "a.csd: already exists"
same no-overwrite "$work/a.csd" "$mstn"

check force 0 "$tool" new --force --template autocad "$work/a.csd"
same force "$work/a.csd" "$autocad"

check from-path 0 "$tool" new --template "$work/a.csd" "$work/b.mdb"
same from-path "$work/b.mdb" "$autocad"
check from-path-onto-itself 1 "$tool" new --template "$work/a.csd" "$work/a.csd"
same from-path-onto-itself "$work/a.csd" "$autocad"

printf 'not a database at all' >"$work/text.csd"
check not-jet 1 "$tool" new --template "$work/text.csd" "$work/c.csd"
expect_err not-jet "text.csd"
check missing-template 1 "$tool" new --template "$work/none.csd" "$work/c.csd"
expect_err missing-template "none.csd not found"
check missing-folder 1 "$tool" new --template mstn "$work/no/such/dir/c.csd"
expect_err missing-folder "no/such/dir/c.csd"
only nothing-left a.csd b.mdb text.csd

check no-template 1 "$tool" new "$work/c.csd"
expect_err no-template "new takes --template"
check no-out 1 "$tool" new --template mstn
expect_err no-out "new takes --template"
check two-outs 1 "$tool" new --template mstn "$work/c.csd" "$work/d.csd"
check bad-option 1 "$tool" new --template mstn "$work/c.csd" --frobnicate
only no-usage-leftovers a.csd b.mdb text.csd

# An installed layout: <prefix>/bin/csdtool finds <prefix>/Templates/Warehouses,
# and says where it looked when the template is not there.
mkdir -p "$work/prefix/bin"
cp "$tool" "$work/prefix/bin/csdtool"
check installed-missing 1 "$work/prefix/bin/csdtool" new --template autocad "$work/c.csd"
expect_err installed-missing "$work/prefix/Templates/Warehouses/AutoCadTemplate.csd not found"
mkdir -p "$work/prefix/Templates/Warehouses"
cp "$autocad" "$work/prefix/Templates/Warehouses/AutoCadTemplate.csd"
check installed 0 "$work/prefix/bin/csdtool" new --template autocad "$work/c.csd"
same installed "$work/c.csd" "$autocad"

# A read-only template still gives a writable document.
chmod 0444 "$work/prefix/Templates/Warehouses/AutoCadTemplate.csd"
check read-only-template 0 "$work/prefix/bin/csdtool" new --template autocad "$work/d.csd"
check writable-copy 0 "$tool" insert "$work/d.csd" Directories Path=/data/maps
[[ $LAST_OUT == 1 ]] || fail "first folder of a new document got key $LAST_OUT"

echo "$((checks - failures)) passed, $failures failed"
[[ $failures == 0 ]]
