#!/usr/bin/env bash
# Bulk transfer benchmark: import and export of a realistic registry CSV
# (200,000 values in 20,000 keys of 3 to 5 levels; mostly strings of 5 to
# 200 bytes, numbers, some binary values up to 2 KiB) on the memory backend
# beside sqlite3's .import of the file into an in-memory database, and on a
# throwaway PostgreSQL server, beside baselines on that server: psql's \copy
# of the same rows into a plain table, a plain libpq loader making the same
# add_value calls with the same number of connections, and a plain
# sequential walk making the same get_values/get_subkeys calls.
#
#   bench/transfer_bench.sh [BUILD_DIR]      (default build)
#   BENCH_MEMORY_ONLY=1 bench/transfer_bench.sh   (memory backend and sqlite3 only)
#
# Environment: BENCH_PG_PORT (default 5441), BENCH_CONNECTIONS (default 32),
# BENCH_PG_FAST=1 to run the server without fsync. Needs the sqlite3 shell.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
connections=${BENCH_CONNECTIONS:-32}
scripts/build.sh "$build" -DHIVECTL_BENCH=ON >/dev/null
tool=$build/qv_hivectl
baseline=$build/transfer_baseline
work=$(mktemp -d /tmp/transfer-bench.XXXXXX)
chmod 755 "$work"
pgdir=$work/pg
trap 'scripts/pg_server.sh stop "$pgdir" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

csv=$work/registry.csv
python3 bench/registry_csv.py "$csv"
csv_bytes=$(stat -c %s "$csv")
rows=$(( $(python3 -c "import csv,sys; csv.field_size_limit(10**7); print(sum(1 for _ in csv.reader(open(sys.argv[1], newline=''))))" "$csv") - 1 ))
printf 'CSV: %d rows, %d bytes (%.1f MB)\n' "$rows" "$csv_bytes" "$(echo "$csv_bytes / 1048576" | bc -l)"

# timed LABEL COMMAND...: wall seconds and peak RSS (KiB) into $t_sec, $t_kb.
timed() {
  local label=$1; shift
  /usr/bin/time -f '%e %M' -o "$work/time" "$@" >"$work/out" 2>"$work/err" ||
    { echo "$label failed:"; cat "$work/err"; exit 1; }
  read -r t_sec t_kb <"$work/time"
}
rate() { echo "$rows / $1" | bc; }
report() {  # LABEL SECONDS [KB]
  if [ -n "${3:-}" ]; then
    printf '%-44s %7.2f s %9d rows/s  peak RSS %6.1f MB (%.2fx CSV)\n' "$1" "$2" "$(rate "$2")" \
      "$(echo "$3 / 1024" | bc -l)" "$(echo "$3 * 1024 / $csv_bytes" | bc -l)"
  else
    printf '%-44s %7.2f s %9d rows/s\n' "$1" "$2" "$(rate "$2")"
  fi
}
best=
keep_best() { if [ -z "$best" ] || (( $(echo "$1 < $best" | bc) )); then best=$1; fi; }

echo "== memory backend (best of 5; sqlite3 runs alternate with the imports)"
import_sec=; import_kb=0; sqlite_sec=
for _ in 1 2 3 4 5; do
  timed import "$tool" --Backend memory: --Root Bench import K "$csv"
  best=$import_sec; keep_best "$t_sec"; import_sec=$best
  (( t_kb > import_kb )) && import_kb=$t_kb
  timed sqlite sqlite3 :memory: -cmd '.mode csv' ".import $csv t" 'SELECT count(*) FROM t;'
  [ "$(cat "$work/out")" = "$rows" ] || { echo "sqlite3 imported $(cat "$work/out") rows"; exit 1; }
  best=$sqlite_sec; keep_best "$t_sec"; sqlite_sec=$best; sqlite_kb=$t_kb
done
report "import (peak RSS: the highest of the runs)" "$import_sec" "$import_kb"
report "baseline: sqlite3 .import into :memory:" "$sqlite_sec" "$sqlite_kb"
memory_goals() {
  printf 'memory import time / sqlite3 .import:  %5.2fx  (goal <= 1.00x)\n' \
    "$(echo "$import_sec / $sqlite_sec" | bc -l)"
  printf 'memory import peak RSS / CSV size:     %5.2fx  (goal <= 2.50x)\n' \
    "$(echo "$import_kb * 1024 / $csv_bytes" | bc -l)"
}
best=; for _ in 1 2 3; do timed both "$tool" --Backend memory: --Root Bench import K "$csv" export K "$work/mem.csv"; keep_best "$t_sec"; done
report "export (import+export run minus import run)" "$(echo "$best - $import_sec" | bc -l)"
report "  import+export run" "$best"
cmp <(sort "$csv") <(sort "$work/mem.csv") >/dev/null && echo "  export matches the input (as sorted lines)"
if [ -n "${BENCH_MEMORY_ONLY:-}" ]; then
  echo "== goals"
  memory_goals
  exit 0
fi

echo "== PostgreSQL 15 (${connections} connections; fsync ${BENCH_PG_FAST:+off}${BENCH_PG_FAST:-on})"
HIVECTL_PG_PORT=${BENCH_PG_PORT:-5441} HIVECTL_PG_FAST=${BENCH_PG_FAST:-0} \
  scripts/pg_server.sh start "$pgdir" >/dev/null
# shellcheck disable=SC1091
source "$pgdir/env"
conninfo=$(echo "$HIVECTL_PG_SPEC" | sed 's/^postgresql://; s/;/ /g')
reset() { eval "$HIVECTL_PG_RESET" >/dev/null; }
count() { eval "$HIVECTL_PG_PSQL -Atc \"SELECT count(*) FROM registry.vals\""; }

# Import and loader alternate, export and walks too, so that a busy machine
# disturbs both sides alike; the best run of each counts.
import_sec=; loader_sec=
for _ in 1 2; do
  reset
  timed import "$tool" --Backend "$HIVECTL_PG_SPEC" --MaxDBConnections "$connections" \
    --Root Bench import K "$csv"
  [ "$(count)" = "$rows" ] || { echo "import stored $(count) values"; exit 1; }
  best=$import_sec; keep_best "$t_sec"; import_sec=$best; import_kb=$t_kb
  reset
  timed loader "$baseline" load "$conninfo" 'Bench\K' "$csv" "$connections"
  [ "$(count)" = "$rows" ] || { echo "loader stored $(count) values"; exit 1; }
  best=$loader_sec; keep_best "$t_sec"; loader_sec=$best; loader_kb=$t_kb
done
report "import, $connections workers" "$import_sec" "$import_kb"
report "baseline: per-row loader, $connections connections" "$loader_sec" "$loader_kb"

export_sec=; walk_sec=; level_sec=
for _ in 1 2 3; do
  timed export "$tool" --Backend "$HIVECTL_PG_SPEC" --Root Bench export K "$work/pg.csv"
  best=$export_sec; keep_best "$t_sec"; export_sec=$best; export_kb=$t_kb
  timed walk "$baseline" walk "$conninfo" 'Bench\K'
  best=$walk_sec; keep_best "$t_sec"; walk_sec=$best
  timed walk "$baseline" walk "$conninfo" 'Bench\K' per-level
  best=$level_sec; keep_best "$t_sec"; level_sec=$best
done
report "export" "$export_sec" "$export_kb"
cmp <(sort "$csv") <(sort "$work/pg.csv") >/dev/null && echo "  export matches the input (as sorted lines)"
report "baseline: sequential walk, 1 connection" "$walk_sec"
report "  the same walk, 1 connection per tree level" "$level_sec"

eval "$HIVECTL_PG_PSQL -c 'CREATE TABLE bench_copy (kname text, vname text, type text, value text)'"
copy_cmd="\\copy bench_copy FROM '$csv' WITH (FORMAT csv, HEADER true)"
timed copy bash -c "$HIVECTL_PG_PSQL -c \"$copy_cmd\""
report "baseline: psql \\copy into a plain table" "$t_sec"

reset
timed sync_off "$tool" --Backend "${HIVECTL_PG_SPEC%;};options='-c synchronous_commit=off'" \
  --MaxDBConnections "$connections" --Root Bench import K "$csv"
[ "$(count)" = "$rows" ] || { echo "import stored $(count) values"; exit 1; }
report "import, $connections workers, synchronous_commit=off" "$t_sec" "$t_kb"

echo "== goals"
memory_goals
printf 'import rate / loader rate:  %5.1f%%  (goal >= 90%%)\n' "$(echo "100 * $loader_sec / $import_sec" | bc -l)"
printf 'export rate / walk rate:    %5.1f%%  (goal >= 90%%)\n' "$(echo "100 * $walk_sec / $export_sec" | bc -l)"
