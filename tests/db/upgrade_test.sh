#!/bin/bash
# Loading the schema over versions 1, 2 and 3 with rows in them (fixtures) keeps every key and
# value, gives every table a primary key, and keeps long value names case-insensitive.
#   upgrade_test.sh BINARY SOURCE_DIR
set -euo pipefail
tool=$1 src=$2 db=registry_upgrade_test
. "$src/tests/db/test_database.sh"
long=$(printf 'n%.0s' $(seq 300))
expected="KNAME,VNAME,TYPE,VALUE
,Level,i32,4294967295
Rooms,Cert,b64,AAEC/w==
Rooms,$(printf 'N%.0s' $(seq 300)),str,again
Rooms\\101,Name,str,\"Board, room\""
for version in 1 2 3; do
  test_database $db
  sql -f "$src/tests/db/fixtures/schema_v$version.sql" -f "$src/tests/db/fixtures/rows.sql" \
    -f "$src/sql/registry.sql"
  [ "$(sql -At -c "SELECT count(*) FROM pg_class c WHERE relnamespace = 'registry'::regnamespace
                    AND relkind = 'r' AND NOT EXISTS (SELECT FROM pg_index WHERE indrelid = c.oid
                                                      AND indisprimary)")" = 0 ] \
    || fail "a table without a primary key after the upgrade from version $version"
  "$tool" --Backend "$spec" --Root "" set 'Conf\Rooms' "$long" str again
  [ "$("$tool" --Backend "$spec" --Root "" export Conf -)" = "$expected" ] || fail "rows of version $version changed"
done
admin -c "DROP DATABASE $db"
