#!/usr/bin/env bash
# csdtool's command line: exit statuses, one-line errors naming the file.
set -u
tool=$1 corpus=$2
failures=0
check() {  # check NAME EXPECTED_STATUS COMMAND...
  local name=$1 want=$2
  shift 2
  local out err status
  out=$("$@" 2>/tmp/csdtool_cli_err.$$)
  status=$?
  err=$(cat /tmp/csdtool_cli_err.$$)
  if [[ $status != "$want" ]]; then
    echo "FAIL $name: status $status, wanted $want; stderr: $err"
    failures=$((failures + 1))
  fi
  LAST_OUT=$out LAST_ERR=$err
}
expect_err() {  # expect_err NAME SUBSTRING
  if [[ $(printf '%s\n' "$LAST_ERR" | wc -l) -ne 1 || "$LAST_ERR" != *"$2"* ]]; then
    echo "FAIL $1: stderr should be one line holding '$2', was: $LAST_ERR"
    failures=$((failures + 1))
  fi
}

check help 0 "$tool" --help
[[ $LAST_OUT == *"export FILE TABLE"* ]] || { echo "FAIL help text"; failures=$((failures + 1)); }
check version 0 "$tool" --version
[[ $LAST_OUT == "csdtool "* ]] || { echo "FAIL version text"; failures=$((failures + 1)); }
check no-args 1 "$tool"
check unknown-command 1 "$tool" frobnicate "$corpus/testV2000.mdb"
expect_err unknown-command "unknown command"
check missing-file 1 "$tool" tables /nonexistent/schema.csd
expect_err missing-file "/nonexistent/schema.csd"
check missing-table 1 "$tool" export "$corpus/testV2000.mdb" NoSuchTable
expect_err missing-table "testV2000.mdb"
printf 'not a database' > /tmp/csdtool_cli_bad.$$
check not-jet 1 "$tool" schema /tmp/csdtool_cli_bad.$$
expect_err not-jet "/tmp/csdtool_cli_bad.$$"
check schema 0 "$tool" schema "$corpus/testV2000.mdb" Table1
[[ $LAST_OUT == *"PrimaryKey (A) primary key unique required"* ]] ||
  { echo "FAIL schema lists the primary key"; failures=$((failures + 1)); }
check schema-all 0 "$tool" schema "$corpus/testV1997.mdb"
[[ $LAST_OUT == *"Jet 3"* && $LAST_OUT == *"Table: Table4"* ]] ||
  { echo "FAIL schema of the whole file"; failures=$((failures + 1)); }
check query 0 "$tool" query "$corpus/testV2000.mdb" "SELECT A, C FROM [table1] WHERE c = 2 OR d IS NULL"
[[ $LAST_OUT == $'A,C\n"abcdefg",2' ]] || { echo "FAIL query result: $LAST_OUT"; failures=$((failures + 1)); }
check find 0 "$tool" find "$corpus/testV2000.mdb" Table1 "B = 'B'"
[[ $LAST_OUT == *'"a","b",0,0,0,0,'* ]] || { echo "FAIL find result: $LAST_OUT"; failures=$((failures + 1)); }
check find-none 1 "$tool" find "$corpus/testV2000.mdb" Table1 "A = 'zzz'"
[[ $LAST_OUT == "no row of Table1 matches A = 'zzz'" ]] || { echo "FAIL find-none: $LAST_OUT"; failures=$((failures + 1)); }
check find-quote 1 "$tool" find "$corpus/testV2000.mdb" Table1 "A = 'O'Brien'"
expect_err find-quote "error 3077"
check query-table 1 "$tool" query "$corpus/testV2000.mdb" "select * from Nope"
expect_err query-table "error 3078"
rm -f /tmp/csdtool_cli_err.$$ /tmp/csdtool_cli_bad.$$
echo "$((20 - failures)) passed, $failures failed"
[[ $failures == 0 ]]
