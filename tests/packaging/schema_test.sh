#!/bin/bash
# qv-hivectl-schema on the test server: install is repeatable, verify catches a missing
# function, grant makes readers and writers, revoke undoes it, and a reader can check.
#   schema_test.sh BINARY SOURCE_DIR
set -euo pipefail
tool=$1 src=$2 db=registry_schema_test
. "$src/tests/db/test_database.sh"
schema() { "$src/packaging/qv-hivectl-schema" -d "$conninfo" "$@"; }
test_database $db
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

schema install >/dev/null
printf '%s\n' KNAME,VNAME,TYPE,VALUE 'Rooms\101,Name,str,"Board, room"' ',Level,i32,4294967295' >"$work/in.csv"
"$tool" --Backend "$spec" import Conf "$work/in.csv"
schema install >/dev/null
[ "$(schema version)" = 4 ] || fail "version after a second install"
schema verify >/dev/null || fail "verify of an upgraded schema"
sql -c "CREATE OR REPLACE FUNCTION registry.schema_version() RETURNS integer
  LANGUAGE sql AS 'SELECT 99'"
schema install 2>/dev/null && fail "a newer schema was downgraded"

for role in reader writer; do
  admin -c "DROP ROLE IF EXISTS schema_test_$role" -c "CREATE ROLE schema_test_$role LOGIN"
  schema grant schema_test_$role $role >/dev/null
done
reader=${spec/user=postgres/user=schema_test_reader}
writer=${spec/user=postgres/user=schema_test_writer}
reader_conninfo=${conninfo/user=postgres/user=schema_test_reader}
[ "$("$tool" --Backend "$reader" get 'Conf\Rooms\101' Name exists Conf Level)" = "Board, room
true" ] || fail "reader can't read"
"$tool" --Backend "$reader" set Conf Level i32 1 2>/dev/null && fail "reader could write"
"$tool" --Backend "$writer" set 'New\Key' v str x copy New Old rename Old Older remove New \
  removev 'Older\Key' v || fail "writer can't write"
"$src/packaging/qv-hivectl-schema" --help | grep -q '^usage: ' || fail "--help prints no usage on standard output"
schema -d "$reader_conninfo" check >/dev/null || fail "a reader can't check"
schema revoke schema_test_reader >/dev/null
"$tool" --Backend "$reader" get 'Conf\Rooms\101' Name 2>/dev/null && fail "revoke left the reader reading"
refusal=$(schema -d "$reader_conninfo" grant schema_test_reader writer 2>&1 || true)
[[ $refusal == *"grant failed; grant and revoke need a superuser, or the owner of schema registry with CREATEROLE"* ]] \
  || fail "grant without rights does not say what it needs"
refusal=$(schema -d "host=$work port=1" verify 2>&1 || true)
[ "${refusal##*$'\n'}" = "qv-hivectl-schema: no connection to the server, nothing was done" ] || fail "verify without a server"

sql -c "DROP FUNCTION registry.copy_values(text, text)"
schema verify 2>"$work/verify.err" && fail "verify passed without copy_values"
grep -q 'copy_values(text,text) is missing' "$work/verify.err" || fail "verify did not name copy_values"
admin -c "DROP DATABASE $db" -c "DROP ROLE schema_test_reader" -c "DROP ROLE schema_test_writer"
