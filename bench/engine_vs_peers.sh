#!/usr/bin/env bash
# The engine at scale, as a user runs it: csdtool on generated schema documents of about 4, 15 and
# 59 MB (32,000, 128,000 and 512,000 maps), beside mdbtools on the same files in the same run.
# Prints a markdown report on stdout; progress on stderr.
#
#   bench/engine_vs_peers.sh
#
# Settings, from the environment: BUILD (default build), RUNS (hyperfine's least number of runs,
# default 10), SEQUENCE (inserts in the sequence figure, default 1000), JACKCESS_CLASSPATH (a
# build of Jackcess with its commons-lang3 and commons-logging jars, colon-separated: adds the
# Java library as a second peer through bench/JackcessPeer.java; Debian packages none).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
BUILD=${BUILD:-build}
RUNS=${RUNS:-10}
SEQUENCE=${SEQUENCE:-1000}
csdtool=$BUILD/bin/csdtool
template=$BUILD/Templates/Warehouses/MstnTemplate.csd
say() { echo "$*" >&2; }
for cmd in hyperfine mdb-export mdb-sql strace /usr/bin/time; do
  command -v "$cmd" >/dev/null || { say "engine_vs_peers: $cmd is missing; run scripts/setup"; exit 1; }
done
cmake --build "$BUILD" --target csdtool bench_make_document templates >&2
work=$(mktemp -d "${TMPDIR:-/tmp}/engine_vs_peers.XXXXXX")
trap 'rm -rf "$work"' EXIT
load_start=$(cut -d' ' -f1-3 /proc/loadavg)

declare -A doc
for maps in 32000 128000 512000; do
  doc[$maps]=$work/maps$maps.csd
  say "generating ${doc[$maps]}"
  "$BUILD/bin/bench_make_document" "$template" "${doc[$maps]}" "$maps"
done
# What generating them left to write goes to disk now, not in the first timed edit's sync.
sync
small=${doc[32000]}
big=${doc[512000]}
mib() { awk -v b="$(stat -c %s "$1")" 'BEGIN { printf "%.1f MiB", b / 1048576 }'; }

# "MEAN STDDEV" in milliseconds of a command line (no shell in between).
timed() {
  hyperfine -N --warmup 3 --min-runs "$RUNS" --style none --export-json "$work/hf.json" "$1" \
    >/dev/null 2>&1
  python3 -c 'import json,sys; r=json.load(open(sys.argv[1]))["results"][0]
print("%.1f %.1f" % (r["mean"] * 1e3, r["stddev"] * 1e3))' "$work/hf.json"
}
ms() { echo "$1 ± $2 ms"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
# Bytes a command writes to files (pwrite and write, standard output and error left out).
written() {
  strace -f -qq -e trace=write,pwrite64 -o "$work/strace" "$@" >/dev/null 2>&1
  awk '/^[0-9]+ +(write|pwrite64)\([0-9]+/ { fd = $0; sub(/^[0-9]+ +[a-z0-9]+\(/, "", fd); sub(/,.*/, "", fd)
       if (fd > 2) { n = $NF; if (n > 0) s += n } } END { print s + 0 }' "$work/strace"
}
peak_kib() { /usr/bin/time -f %M -o "$work/rss" "$@" >/dev/null 2>&1; tail -n 1 "$work/rss"; }

rows=()
add() { rows+=("| $1 | $2 | $3 | $4 | $5 |"); }

# The Java peer, compiled once; `jk` prints "" when there is none.
jk() { :; }
if [[ -n ${JACKCESS_CLASSPATH:-} ]]; then
  say "compiling the Jackcess peer"
  mkdir -p "$work/peer"
  javac -nowarn -d "$work/peer" -cp "$JACKCESS_CLASSPATH" bench/JackcessPeer.java >&2
  peer_cp=$JACKCESS_CLASSPATH:$work/peer
  # "; Jackcess MEAN ± SD ms" of a peer command, timed as csdtool's are.
  jk() { local m s; read -r m s < <(timed "java -cp $peer_cp JackcessPeer $*"); echo "; Jackcess $(ms "$m" "$s")"; }
fi

say "baselines"
read -r true_m true_s < <(timed "/bin/true")
read -r ver_m ver_s < <(timed "$csdtool --version")
read -r mdbver_m mdbver_s < <(timed "mdb-ver $big")

say "one insert"
insert="Maps Name=bench.dgn dirId=1 csfid=1"
read -r ins4_m ins4_s < <(timed "$csdtool insert $small $insert")
read -r ins59_m ins59_s < <(timed "$csdtool insert $big $insert")
bytes4=$(written "$csdtool" insert "$small" $insert)
bytes59=$(written "$csdtool" insert "$big" $insert)
alone() { local p; p=$(jk "$@"); if [[ -n $p ]]; then echo "${p:2}"; else echo "—"; fi; }
add "one insert, whole process, $(mib "$small")" "$(ms "$ins4_m" "$ins4_s"), writes $((bytes4 / 1024)) KiB" \
  "$(alone insert "$small" 1)" "—" "< 100 KiB written"
add "one insert, whole process, $(mib "$big")" "$(ms "$ins59_m" "$ins59_s"), writes $((bytes59 / 1024)) KiB" \
  "$(alone insert "$big" 1)" \
  "$(ratio "$ins59_m" "$ins4_m") × the $(mib "$small") figure" "within 1.2 ×, < 100 KiB written"

say "$SEQUENCE inserts in sequence"
start=$(date +%s.%N)
for ((i = 0; i < SEQUENCE; ++i)); do "$csdtool" insert "$big" Maps "Name=seq$i.dgn" dirId=2 csfid=2 >/dev/null; done
end=$(date +%s.%N)
seq_s=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }')
add "$SEQUENCE csdtool inserts in sequence, one process each, $(mib "$big")" "$seq_s s" "—" "—" "< 3 s"
for ((i = 0; i < SEQUENCE; ++i)); do echo "insert Maps Name=batch$i.dgn dirId=3 csfid=3"; done >"$work/batch"
start=$(date +%s.%N)
"$csdtool" batch "$big" <"$work/batch" >/dev/null
end=$(date +%s.%N)
batch_s=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }')
add "$SEQUENCE inserts in sequence in one csdtool batch, $(mib "$big")" "$batch_s s" "—" "—" "< 3 s"
start=$(date +%s.%N)
"$csdtool" batch "$big" --each <"$work/batch" >/dev/null
end=$(date +%s.%N)
each_s=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }')
peer="—"
if [[ -n ${JACKCESS_CLASSPATH:-} ]]; then
  cp "$big" "$work/peer.csd"
  start=$(date +%s.%N)
  alone=$(java -cp "$peer_cp" JackcessPeer insert "$work/peer.csd" "$SEQUENCE" | sed -n 's/.* in \([0-9.]*\) ms$/\1/p')
  end=$(date +%s.%N)
  peer="Jackcess, one JVM, each row forced to disk: $(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }') s (the inserts alone $(awk -v m="$alone" 'BEGIN { printf "%.2f", m / 1000 }') s)"
  "$csdtool" check "$work/peer.csd" >&2 || say "csdtool check finds faults in what Jackcess wrote"
fi
add "$SEQUENCE inserts in sequence, each its own commit, \`batch --each\`, $(mib "$big")" "$each_s s" "$peer" "—" "< 3 s"

say "find"
read -r find_m find_s < <(timed "$csdtool find $big Maps mapId=400000")
"$csdtool" find "$big" Maps "mapId=400000" | grep -q '^400000,' || { say "find found the wrong row"; exit 1; }
add "\`find Maps \"mapId = 400000\"\`, $(mib "$big")" "$(ms "$find_m" "$find_s")" \
  "/bin/true $(ms "$true_m" "$true_s"); csdtool --version $(ms "$ver_m" "$ver_s"); mdb-ver $(ms "$mdbver_m" "$mdbver_s")$(jk find "$big" 400000)" \
  "$(awk -v a="$find_m" -v b="$ver_m" 'BEGIN { printf "%.1f ms", a - b }') past csdtool's start" "< 5 ms"

say "indexed filter"
echo "select * from FeatureMaps where FeaId = 77" >"$work/fm.sql"
"$csdtool" query "$big" "select * from FeatureMaps where FeaId = 77" | tail -n +2 | sort >"$work/c.txt"
mdb-sql -H -F -P -d , -i "$work/fm.sql" "$big" | sed '/^$/d' | sort >"$work/m.txt"
cmp -s "$work/c.txt" "$work/m.txt" || { say "FeatureMaps rows differ from mdb-sql's"; exit 1; }
read -r fm_m fm_s < <(timed "$csdtool query $big \"select * from FeatureMaps where FeaId = 77\"")
read -r sql_m sql_s < <(timed "mdb-sql -H -F -P -i $work/fm.sql $big")
add "\`FeatureMaps where FeaId = 77\` ($(wc -l <"$work/c.txt") rows), $(mib "$big")" "$(ms "$fm_m" "$fm_s")" \
  "mdb-sql $(ms "$sql_m" "$sql_s")$(jk links "$big" 77)" "$(ratio "$fm_m" "$sql_m") × mdb-sql" "≤ 0.3 × mdb-sql"

say "whole table"
"$csdtool" query "$big" "select * from Maps" | tail -n +2 | sort >"$work/c.txt"
mdb-export "$big" Maps | tail -n +2 | sort >"$work/m.txt"
cmp -s "$work/c.txt" "$work/m.txt" || { say "Maps rows differ from mdb-export's"; exit 1; }
read -r q_m q_s < <(timed "$csdtool query $big \"select * from Maps\"")
read -r e_m e_s < <(timed "$csdtool export $big Maps")
read -r me_m me_s < <(timed "mdb-export $big Maps")
add "\`select * from Maps\` ($(wc -l <"$work/c.txt") rows), $(mib "$big")" "$(ms "$q_m" "$q_s")" \
  "mdb-export $(ms "$me_m" "$me_s"); csdtool export $(ms "$e_m" "$e_s")$(jk all "$big")" "$(ratio "$q_m" "$me_m") × mdb-export" "≤ 0.5 × mdb-export"

say "memory"
mem_e=$(peak_kib "$csdtool" export "$big" Maps)
mem_q=$(peak_kib "$csdtool" query "$big" "select * from Maps")
mem_c=$(peak_kib "$csdtool" check "$big")
mem_m=$(peak_kib mdb-export "$big" Maps)
for what in "export Maps:$mem_e" "query select * from Maps:$mem_q" "check:$mem_c"; do
  add "peak RSS, \`${what%%:*}\`, $(mib "$big")" "$(awk -v k="${what##*:}" 'BEGIN { printf "%.1f MiB", k / 1024 }')" \
    "mdb-export Maps $(awk -v k="$mem_m" 'BEGIN { printf "%.1f MiB", k / 1024 }')" "—" "< 30 MB"
done
for maps in 32000 128000 512000; do
  read -r c_m c_s < <(timed "$csdtool check ${doc[$maps]}")
  add "\`check\`, $(mib "${doc[$maps]}")" "$(ms "$c_m" "$c_s")" "—" "—" "—"
done

build_type=$(sed -n 's/^CMAKE_BUILD_TYPE:[^=]*=//p' "$BUILD/CMakeCache.txt" 2>/dev/null || true)
cat <<EOF
Measured $(date -u '+%Y-%m-%d %H:%M UTC') on $(nproc) CPUs, load average $load_start at the start and $(cut -d' ' -f1-3 /proc/loadavg) at the end; csdtool ${build_type:-?} build, mdbtools $(dpkg-query -W -f='${Version}' mdbtools 2>/dev/null || echo '?'); times by hyperfine (3 warm-ups, at least $RUNS runs, mean ± standard deviation), memory by GNU time. Documents: $(mib "$small"), $(mib "${doc[128000]}"), $(mib "$big").

| figure | csdtool | peer in the same run | ratio | goal |
|---|---:|---|---:|---|
EOF
printf '%s\n' "${rows[@]}"
