#!/usr/bin/env bash
# Cost of the registry's server side (sql/registry.sql) beside other schemas
# on one throwaway server, with the same tool, data and connection counts:
#   - the floor (bench/floor_schema.sql): import at 1, 8 and 32 connections,
#     and export, of BENCH_KEYS keys with 10 values each (bench/registry_csv.py);
#   - schema version 1 (git b4fff07): copy, ten renames and remove of a subtree
#     of 20,000 values;
#   - schema version 3 (git a05e3ad): one set and one get, a process each;
#   - with BENCH_PREVIOUS=REV, the file at git revision REV: all but import
#     at 1 and 8 connections, to measure a change of the schema.
# Each repetition times ours and the other side by side; printed are the
# ratios ours/other of every repetition and their median. Commits are not
# flushed (synchronous_commit=off) so that the server's work, not the disk,
# is measured.
#
#   bench/schema_bench.sh [BUILD_DIR] [REPETITIONS]   (default build, 3)
#
# Environment: BENCH_PG_PORT (default 5441), BENCH_KEYS (default 5000),
# BENCH_PREVIOUS (unset).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
reps=${2:-3}
keys=${BENCH_KEYS:-5000}
tool=$(cd "$build" && pwd)/qv_hivectl
[ -x "$tool" ] || { echo "no $tool; build first (scripts/build.sh $build)" >&2; exit 1; }
work=$(mktemp -d /tmp/schema-bench.XXXXXX)
chmod 755 "$work"
trap 'scripts/pg_server.sh stop "$work/pg" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
HIVECTL_PG_PORT=${BENCH_PG_PORT:-5441} scripts/pg_server.sh start "$work/pg" >/dev/null
# shellcheck disable=SC1091
source "$work/pg/env"
load() { $HIVECTL_PG_ADMIN -c "CREATE DATABASE $1" >/dev/null; ${HIVECTL_PG_PSQL% -d *} -d "$1" -f - >/dev/null; }
$HIVECTL_PG_ADMIN -c "CREATE DATABASE ours_tree TEMPLATE $HIVECTL_PG_TEMPLATE" >/dev/null
load floor <bench/floor_schema.sql
git show b4fff07:sql/registry.sql | load version1
git show a05e3ad:sql/registry.sql | load version3
previous=${BENCH_PREVIOUS:-}
if [ -n "$previous" ]; then
  git show "$previous:sql/registry.sql" | load previous
  git show "$previous:sql/registry.sql" | load previous_tree
fi
spec() { echo "${HIVECTL_PG_SPEC%registry_test}$1;options='-c synchronous_commit=off'"; }
tool() { local db=$1; shift; "$tool" --Backend "$(spec "$db")" --Root "" "$@" >/dev/null; }
sql() { ${HIVECTL_PG_PSQL% -d *} -d "$1" -Atc "$2"; }
python3 bench/registry_csv.py "$work/import.csv" "$keys"
python3 bench/registry_csv.py "$work/tree.csv" 2000

seconds=  # set by timed; EPOCHREALTIME costs no process of its own
timed() { local start=$EPOCHREALTIME; "$@"; seconds=$(echo "$EPOCHREALTIME - $start" | bc -l); }
declare -A ratios
labels=()  # in the order first compared
record() {  # LABEL OURS_SECONDS OTHER_SECONDS
  [ -n "${ratios[$1]:-}" ] || labels+=("$1")
  ratios[$1]+="$(echo "$2 / $3" | bc -l) "
  printf '  %-34s ours %7.3f s  other %7.3f s\n' "$1" "$2" "$3"
}
# compare LABEL OURS_DB OTHER_DB COMMAND...: one repetition, ours first.
compare() {
  local label=$1 ours=$2 other=$3; shift 3
  timed "$@" "$ours"; local ours_sec=$seconds
  timed "$@" "$other"; local other_sec=$seconds
  record "$label" "$ours_sec" "$other_sec"
}
# alternate LABEL OURS_DB OTHER_DB TIMES COMMAND...: one repetition of short
# commands, ours and the other taking turns, so that a drift of the machine's
# speed weighs on both alike; who goes first alternates too. COMMAND gets the
# database and the turn (1...).
alternate() {
  local label=$1 ours=$2 other=$3 times=$4 turn db order ours_sec=0 other_sec=0; shift 4
  for ((turn = 1; turn <= times; turn++)); do
    order=("$ours" "$other")
    ((turn % 2)) || order=("$other" "$ours")
    for db in "${order[@]}"; do
      timed "$@" "$db" "$turn"
      if [ "$db" = "$ours" ]; then ours_sec=$(echo "$ours_sec + $seconds" | bc -l)
      else other_sec=$(echo "$other_sec + $seconds" | bc -l); fi
    done
  done
  record "$label" "$ours_sec" "$other_sec"
}
import_into() {  # CONNECTIONS DB
  sql "$2" "TRUNCATE registry.keys, registry.vals CASCADE" >/dev/null
  tool "$2" --MaxDBConnections "$1" import K "$work/import.csv"
  [ "$(sql "$2" "SELECT count(*) FROM registry.vals")" = $((keys * 10)) ] || { echo "import into $2 lost values" >&2; exit 1; }
}
export_from() { tool "$1" export K "$work/export.csv"; }
# Exports and renames read a registry at rest: without this, the autovacuum
# that an import or copy sets off may run during the one side and not the other.
settle() { for db in "$@"; do sql "$db" "VACUUM ANALYZE" >/dev/null; done; }
copy_tree() { tool "$1" copy src dst; }
# One rename takes some 50 ms, too short to time alone: ten, there and back.
rename_tree() { if (($2 % 2)); then tool "$1" rename dst moved; else tool "$1" rename moved dst; fi; }
remove_tree() { tool "$1" remove dst; }
set_one() { tool "$1" set 'bench\single' "v$2" i32 "$2"; }
get_one() { tool "$1" get 'bench\single' "v$2"; }

tool ours_tree import src "$work/tree.csv"
tool version1 import src "$work/tree.csv"
[ -z "$previous" ] || tool previous_tree import src "$work/tree.csv"
for rep in $(seq "$reps"); do
  echo "== repetition $rep"
  for connections in 1 8 32; do
    compare "import, $connections connections / floor" registry_test floor import_into "$connections"
  done
  settle registry_test floor
  alternate "export / floor" registry_test floor 4 export_from
  compare "subtree copy / version 1" ours_tree version1 copy_tree
  settle ours_tree version1
  alternate "subtree rename / version 1" ours_tree version1 10 rename_tree
  compare "subtree remove / version 1" ours_tree version1 remove_tree
  alternate "100 set processes / version 3" registry_test version3 100 set_one
  alternate "100 get processes / version 3" registry_test version3 100 get_one
  [ -n "$previous" ] || continue
  compare "import, 32 connections / previous" registry_test previous import_into 32
  settle registry_test previous
  alternate "export / previous" registry_test previous 4 export_from
  compare "subtree copy / previous" ours_tree previous_tree copy_tree
  settle ours_tree previous_tree
  alternate "subtree rename / previous" ours_tree previous_tree 10 rename_tree
  compare "subtree remove / previous" ours_tree previous_tree remove_tree
  alternate "100 set processes / previous" registry_test previous 100 set_one
  alternate "100 get processes / previous" registry_test previous 100 get_one
done

echo "== medians of ours/other ($keys keys of 10 values; targets: import and export <= 1.15, the rest <= 1)"
for label in "${labels[@]}"; do
  # shellcheck disable=SC2086
  printf '%-34s %5.2f   (%s)\n' "$label" "$(printf '%s\n' ${ratios[$label]} | sort -g | awk '{ r[NR] = $1 } END { print r[int((NR + 1) / 2)] }')" \
    "$(printf '%.2f ' ${ratios[$label]})"
done
