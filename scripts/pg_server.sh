#!/usr/bin/env bash
# A throwaway PostgreSQL 15 server holding a registry, for tests, benchmarks
# and trying the tool out.
#
#   scripts/pg_server.sh start DIR   creates DIR, initialises a cluster in it,
#                                    starts the server on a Unix socket in DIR
#                                    (no TCP), creates the database
#                                    registry_test and the template database
#                                    registry_template, both with
#                                    sql/registry.sql loaded, and writes DIR/env
#   scripts/pg_server.sh stop DIR    stops the server and removes DIR
#
# DIR/env holds shell assignments to source:
#   HIVECTL_PG_SPEC      backend specification of registry_test; it ends in
#                        the database name, so that appending to it names
#                        another database on the same server
#   HIVECTL_PG_PSQL      psql command line on registry_test
#   HIVECTL_PG_RESET     command that empties the registry of registry_test
#   HIVECTL_PG_ADMIN     psql command line on the maintenance database
#   HIVECTL_PG_TEMPLATE  name of the template database (tests clone it)
#
# The databases are UTF8, as a production registry would be: the server
# refuses text that is not UTF-8 (the memory registry keeps any bytes).
# With HIVECTL_PG_FAST=1 the server runs without fsync: for tests only.
# wal_level is logical, so that a test may publish the registry.
# initdb refuses root, so as root the server runs as the postgres user.
set -euo pipefail
cd "$(dirname "$0")/.."
bindir=/usr/lib/postgresql/15/bin
port=${HIVECTL_PG_PORT:-5432}

usage() { echo "usage: $0 start|stop DIR" >&2; exit 2; }
[ $# -eq 2 ] || usage
action=$1
dir=$2

as_server_user() {
  if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi
}

case $action in
start)
  mkdir -p "$dir"
  dir=$(cd "$dir" && pwd)
  [ "$(id -u)" = 0 ] && chown postgres: "$dir"
  as_server_user "$bindir/initdb" -D "$dir/data" -U postgres --auth=trust \
    --encoding=UTF8 --locale=C.UTF-8 >"$dir/initdb.log"
  settings=(-c listen_addresses= -c "unix_socket_directories=$dir" -p "$port"
            -c max_connections=300 -c wal_level=logical)
  if [ "${HIVECTL_PG_FAST:-0}" = 1 ]; then
    settings+=(-c fsync=off -c synchronous_commit=off -c full_page_writes=off)
  fi
  as_server_user "$bindir/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -s \
    -o "$(printf '%q ' "${settings[@]}")" start
  psql="$bindir/psql -X -q -v ON_ERROR_STOP=1 -h $dir -p $port -U postgres"
  for db in registry_test registry_template; do
    $psql -d postgres -c "CREATE DATABASE $db"
    $psql -d $db -f sql/registry.sql
  done
  cat >"$dir/env" <<EOF
HIVECTL_PG_SPEC='postgresql:host=$dir;port=$port;user=postgres;dbname=registry_test'
HIVECTL_PG_PSQL='$psql -d registry_test'
HIVECTL_PG_RESET='$psql -d registry_test -c "TRUNCATE registry.keys, registry.vals"'
HIVECTL_PG_ADMIN='$psql -d postgres'
HIVECTL_PG_TEMPLATE=registry_template
export HIVECTL_PG_SPEC HIVECTL_PG_PSQL HIVECTL_PG_RESET HIVECTL_PG_ADMIN HIVECTL_PG_TEMPLATE
EOF
  echo "registry server running; backend specification:"
  echo "  postgresql:host=$dir;port=$port;user=postgres;dbname=registry_test"
  ;;
stop)
  if [ -f "$dir/data/postmaster.pid" ]; then
    as_server_user "$bindir/pg_ctl" -D "$dir/data" -m immediate -w -s stop || true
  fi
  rm -rf "$dir"
  ;;
*)
  usage
  ;;
esac
