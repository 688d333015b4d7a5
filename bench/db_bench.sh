#!/usr/bin/env bash
# Rates of qv_hivectl on a PostgreSQL registry, beside psql calling the same
# server functions, on a throwaway local server with default durability.
#
#   bench/db_bench.sh [BUILD_DIR]      (default: build)
#
# Figures: set and get with one process per call, set and get with many
# commands on one command line, show of a key, and remove, rename and copy
# of a subtree of 20,000 values in 2,000 keys.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
build=${1:-build}
tool=$(cd "$build" && pwd)/qv_hivectl
[ -x "$tool" ] || { echo "no $tool; build first (scripts/build.sh $build)" >&2; exit 1; }

pg_dir=$(mktemp -d /tmp/hivectl-bench-pg.XXXXXX)
work=$(mktemp -d /tmp/hivectl-bench.XXXXXX)
trap '"$top/scripts/pg_server.sh" stop "$pg_dir"; rm -rf "$work"' EXIT
scripts/pg_server.sh start "$pg_dir" >/dev/null
# shellcheck source=/dev/null
. "$pg_dir/env"
spec=$HIVECTL_PG_SPEC
psql() { $HIVECTL_PG_PSQL "$@"; }
cd "$work"

now() { date +%s.%N; }
# report LABEL COUNT START END: operations per second.
report() {
  awk -v l="$1" -v n="$2" -v s="$3" -v e="$4" \
    'BEGIN { t = e - s; printf "%-46s %8d ops %8.3f s %10.1f ops/s\n", l, n, t, n / t }'
}
tool() { "$tool" --Backend "$spec" --Root "" "$@"; }
# Each add_value commits on its own; this trades durability for speed.
fast_tool() { "$tool" --Backend "$spec;options='-c synchronous_commit=off'" --Root "" "$@"; }
# Fails the benchmark unless the registry holds N values below key PREFIX.
expect_values() {
  local got
  got=$(psql -Atc "SELECT count(*) FROM registry.vals v JOIN registry.keys k ON k.id = v.key_id
                   WHERE k.folded = '$1' OR left(k.folded, length('$1') + 1) = '$1\\'")
  [ "$got" = "$2" ] || { echo "expected $2 values below $1, found $got" >&2; exit 1; }
}

calls=200
line=5000

echo "== one process per call ($calls calls)"
start=$(now)
for i in $(seq $calls); do tool set 'bench\single' "v$i" i32 "$i"; done
report "qv_hivectl set, process per call" $calls "$start" "$(now)"
start=$(now)
for i in $(seq $calls); do
  psql -c "SELECT registry.add_value('bench\\psql_single', 'v$i', '3', '$i')" >/dev/null
done
report "psql -c add_value, process per call" $calls "$start" "$(now)"
start=$(now)
for i in $(seq $calls); do tool get 'bench\single' "v$i" >/dev/null; done
report "qv_hivectl get, process per call" $calls "$start" "$(now)"
start=$(now)
for i in $(seq $calls); do
  psql -Atc "SELECT * FROM registry.get_value('bench\\single', 'v$i')" >/dev/null
done
report "psql -c get_value, process per call" $calls "$start" "$(now)"

echo "== many commands in one process ($line)"
args=()
for i in $(seq $line); do args+=(set 'bench\line' "v$i" str "text $i"); done
start=$(now)
tool "${args[@]}"
report "qv_hivectl set, one command line" $line "$start" "$(now)"
expect_values 'bench\line' $line
args=()
for i in $(seq $line); do args+=(set 'bench\fast' "v$i" str "text $i"); done
start=$(now)
fast_tool "${args[@]}"
report "  the same, synchronous_commit=off" $line "$start" "$(now)"
for i in $(seq $line); do
  echo "SELECT registry.add_value('bench\\psql_line', 'v$i', '1', 'text $i');"
done >set.sql
start=$(now)
psql -f set.sql >/dev/null
report "psql -f add_value, one session" $line "$start" "$(now)"
args=()
for i in $(seq $line); do args+=(get 'bench\line' "v$i"); done
start=$(now)
tool "${args[@]}" >/dev/null
report "qv_hivectl get, one command line" $line "$start" "$(now)"
sed -e 's/registry.add_value(\(.*\), .1., .text [0-9]*.);/* FROM registry.get_value(\1);/' \
  set.sql >get.sql
start=$(now)
psql -At -f get.sql >/dev/null
report "psql -f get_value, one session" $line "$start" "$(now)"

echo "== show"
start=$(now)
for i in $(seq 20); do tool show 'bench\line' >/dev/null; done
report "qv_hivectl show of a key of $line values" 20 "$start" "$(now)"
start=$(now)
for i in $(seq 20); do psql -Atc "SELECT * FROM registry.get_values('bench\\line')" \
  -c "SELECT registry.get_subkeys('bench\\line')" >/dev/null; done
report "psql get_values + get_subkeys, same key" 20 "$start" "$(now)"

echo "== subtree of 20,000 values in 2,000 keys"
{
  echo "KNAME,VNAME,TYPE,VALUE"
  for k in $(seq 0 1999); do
    for v in $(seq 0 9); do echo "tree\\g$((k / 100))\\k$k,v$v,i32,$((k * 10 + v))"; done
  done
} >tree.csv
start=$(now)
tool import src tree.csv
report "qv_hivectl import (values)" 20000 "$start" "$(now)"
expect_values src 20000
start=$(now)
fast_tool import fast tree.csv
report "  the same, synchronous_commit=off" 20000 "$start" "$(now)"
expect_values fast 20000
subtree() {  # LABEL COMMAND...: time one command on the subtree, in values/s
  local label=$1; shift
  local s; s=$(now)
  "$@" >/dev/null
  report "$label" 20000 "$s" "$(now)"
}
subtree "qv_hivectl copy (values)" tool copy src dst
expect_values dst 20000
subtree "qv_hivectl rename (values)" tool rename dst moved
expect_values moved 20000
expect_values dst 0
subtree "qv_hivectl remove (values)" tool remove moved
expect_values moved 0
subtree "psql copy_values (values)" psql -c "SELECT registry.copy_values('src', 'dst')"
expect_values dst 20000
subtree "psql rename_key (values)" psql -c "SELECT registry.rename_key('dst', 'moved')"
expect_values moved 20000
subtree "psql delete_key (values)" psql -c "SELECT registry.delete_key('moved')"
expect_values moved 0
subtree "qv_hivectl export (values)" tool export src tree_out.csv
