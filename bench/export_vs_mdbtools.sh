#!/usr/bin/env bash
# Times `csdtool export` against mdbtools' `mdb-export` on the larger files of the Jet corpus and
# on generated large files, after checking that both write the same bytes for every table.
# Prints a markdown report on stdout; progress and disagreements go to stderr.
#
#   bench/export_vs_mdbtools.sh [FILE.mdb ...]
#
# With no FILE it takes every corpus file over 200 KiB plus the generated ones. Settings, from the
# environment:
#   CORPUS    the corpus folder               (default tests/data/jet-corpus)
#   RUNS      repetitions per tool and file   (default 20; more when 20 take under a second)
#   LARGE_MB  size of each generated file     (default 32; 0 skips them)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

CORPUS=${CORPUS:-tests/data/jet-corpus}
RUNS=${RUNS:-20}
LARGE_MB=${LARGE_MB:-32}
MIN_KIB=200
HEADROOM_KIB=$((20 * 1024))  # the memory goal: peak RSS below file size + 20 MiB
CSDTOOL=build/bin/csdtool

say() { echo "$*" >&2; }

for cmd in mdb-export python3 awk; do
  command -v "$cmd" >/dev/null || { say "export_vs_mdbtools: $cmd is missing; run scripts/setup"; exit 1; }
done
[[ -x /usr/bin/time ]] || { say "export_vs_mdbtools: /usr/bin/time is missing; run scripts/setup"; exit 1; }

if [[ -f build/CMakeCache.txt ]]; then
  cmake --build build --target csdtool >&2
else
  scripts/build >&2
fi

load_start=$(cut -d' ' -f1-3 /proc/loadavg)
work=$(mktemp -d "${TMPDIR:-/tmp}/export_vs_mdbtools.XXXXXX")
trap 'rm -rf "$work"' EXIT

# --- the files --------------------------------------------------------------------------------

files=()
declare -A label=()
if (($# > 0)); then
  files=("$@")
else
  while read -r _ f; do
    files+=("$f")
  done < <(for f in "$CORPUS"/*.mdb; do
             s=$(stat -c %s "$f")
             ((s > MIN_KIB * 1024)) && echo "$s $f"
           done | sort -k1,1nr -k2)
  if ((LARGE_MB > 0)); then
    # Two shapes: many short rows, and few wide rows whose memo columns live on long value pages.
    for shape in "compIndexTestV2000.mdb Table1 large-narrow" "test2V2000.mdb MSP_PROJECTS large-wide"; do
      read -r src table name <<<"$shape"
      out="$work/$name.mdb"
      python3 bench/make_large_mdb.py "$CORPUS/$src" "$table" "$out" "$LARGE_MB" >&2
      files+=("$out")
      label[$out]="$name.mdb (generated: $src $table, copied)"
    done
  fi
fi

# --- helpers ----------------------------------------------------------------------------------

# Records in a CSV file as mdb-export writes it: a record ends at a newline outside quotes, and a
# quote inside a field is doubled, so counting quotes is enough.
count_rows() {
  LC_ALL=C awk '{ q += gsub(/"/, "\"") } q % 2 == 0 { n++; q = 0 } END { print (n > 0 ? n - 1 : 0) }' "$1"
}

# Peak resident set of one command in KiB; its stdout is discarded.
peak_kib() {
  /usr/bin/time -f %M -o "$work/rss" "$@" >/dev/null 2>&1 || true
  tail -n 1 "$work/rss"
}

# "MEAN STDDEV RUNS" in seconds for a command line, over at least $2 runs (STDDEV is nan
# without hyperfine).
have_hyperfine=0
command -v hyperfine >/dev/null && have_hyperfine=1
time_cmd() {
  local line=$1 runs=$2
  if ((have_hyperfine)); then
    hyperfine --shell bash --warmup 3 --min-runs "$runs" --style none \
      --export-json "$work/hf.json" "$line" >/dev/null 2>&1
    awk '/"times": \[/ { t = 1; next } t && /\]/ { t = 0 } t { n++ }
         /"mean":/ { gsub(/[",]/, "", $2); m = $2 } /"stddev":/ { gsub(/[",]/, "", $2); s = $2 }
         END { print m, (s == "null" ? 0 : s), n }' "$work/hf.json"
  else
    local i start end
    for ((i = 0; i < 3; ++i)); do eval "$line"; done
    start=$(date +%s.%N)
    for ((i = 0; i < runs; ++i)); do eval "$line"; done
    end=$(date +%s.%N)
    awk -v a="$start" -v b="$end" -v n="$runs" 'BEGIN { print (b - a) / n, "nan", n }'
  fi
}

fmt_ms() {
  awk -v m="$1" -v s="$2" 'BEGIN {
    if (s == "nan") printf "%.1f ms\n", m * 1e3; else printf "%.1f ± %.1f ms\n", m * 1e3, s * 1e3 }'
}
fmt_mib() { awk -v k="$1" 'BEGIN { printf "%.1f MiB\n", k / 1024 }'; }

# --- the runs ---------------------------------------------------------------------------------

rows_md=()
notes=()
for f in "${files[@]}"; do
  name=${label[$f]:-$(basename "$f")}
  size=$(stat -c %s "$f")
  mapfile -t tables < <("$CSDTOOL" tables "$f")
  say "== $name: ${#tables[@]} tables"
  if ((${#tables[@]} == 0)); then
    notes+=("$name: no user tables, skipped")
    continue
  fi

  # Same bytes from both tools, table by table; the rows are counted on the way.
  same=0 rows=0
  c_line="" m_line=""
  check_start=$(date +%s.%N)
  for t in "${tables[@]}"; do
    "$CSDTOOL" export "$f" "$t" >"$work/c.csv" 2>"$work/c.err" || true
    mdb-export "$f" "$t" >"$work/m.csv" 2>"$work/m.err" || true
    if cmp -s "$work/c.csv" "$work/m.csv"; then
      same=$((same + 1))
    else
      at=$(cmp "$work/c.csv" "$work/m.csv" 2>&1 | sed -n 's/.* differ: /first difference at /p' || true)
      notes+=("$name, table $t: outputs differ, ${at:-one is empty}")
      say "   $t: outputs differ: $at"
    fi
    rows=$((rows + $(count_rows "$work/c.csv")))
    c_line+="$CSDTOOL export $(printf %q "$f") $(printf %q "$t") >/dev/null; "
    m_line+="mdb-export $(printf %q "$f") $(printf %q "$t") >/dev/null; "
  done
  check_end=$(date +%s.%N)

  # Enough repetitions for a second of work per tool, and never fewer than $RUNS.
  runs=$(awk -v a="$check_start" -v b="$check_end" -v min="$RUNS" 'BEGIN {
    once = (b - a) / 2; n = once > 0 ? int(1 / once) + 1 : min; print (n > min ? n : min) }')

  read -r c_mean c_sd c_n < <(time_cmd "$c_line" "$runs")
  read -r m_mean m_sd m_n < <(time_cmd "$m_line" "$runs")
  say "   csdtool $c_mean s ($c_n runs), mdb-export $m_mean s ($m_n runs)"

  c_rss=0 m_rss=0
  for t in "${tables[@]}"; do
    k=$(peak_kib "$CSDTOOL" export "$f" "$t"); ((k > c_rss)) && c_rss=$k
    k=$(peak_kib mdb-export "$f" "$t"); ((k > m_rss)) && m_rss=$k
  done

  limit=$((size / 1024 + HEADROOM_KIB))
  ratio=$(awk -v c="$c_mean" -v m="$m_mean" 'BEGIN { printf "%.2f\n", m / c }')
  speed=$(awk -v r="$ratio" 'BEGIN { print (r >= 2 ? "PASS" : "FAIL") }')
  memory=$([[ $c_rss -lt $limit ]] && echo PASS || echo FAIL)
  rows_md+=("| $name | $(fmt_mib $((size / 1024))) | ${#tables[@]} | $rows | $same/${#tables[@]} | $(fmt_ms "$c_mean" "$c_sd") | $(fmt_ms "$m_mean" "$m_sd") | ${ratio}x | $(fmt_mib "$c_rss") | $(fmt_mib "$m_rss") | $(fmt_mib "$limit") | $speed | $memory |")
done

# --- the report -------------------------------------------------------------------------------

build_type=$(sed -n 's/^CMAKE_BUILD_TYPE:[^=]*=//p' build/CMakeCache.txt 2>/dev/null || true)
timer="hyperfine $(hyperfine --version 2>/dev/null | awk '{print $2}'), --warmup 3, at least $RUNS runs"
((have_hyperfine)) || timer="a shell loop timed with date, 3 warm-up runs, at least $RUNS runs"
cat <<EOF
Measured $(date -u '+%Y-%m-%d %H:%M UTC') on $(nproc) CPUs ($(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)), $(awk '/MemTotal/ {printf "%.0f GiB", $2 / 1048576}' /proc/meminfo) of memory; load average $load_start at the start, $(cut -d' ' -f1-3 /proc/loadavg) at the end.
csdtool $("$CSDTOOL" --version | awk '{print $2}') (${build_type:-unknown} build) against mdbtools $(dpkg-query -W -f='${Version}' mdbtools 2>/dev/null || echo '?'); wall time by $timer, each run exporting every table of the file to /dev/null; peak RSS by GNU time, the largest over the file's tables.

| file | size | tables | rows exported | identical output | csdtool time | mdb-export time | ratio (mdb-export / csdtool) | csdtool peak RSS | mdb-export peak RSS | limit (size + 20 MiB) | ≥ 2x faster | memory below limit |
|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|:-:|:-:|
EOF
printf '%s\n' "${rows_md[@]}"
if ((${#notes[@]} > 0)); then
  echo
  echo "Notes:"
  echo
  printf -- '- %s\n' "${notes[@]}"
fi
