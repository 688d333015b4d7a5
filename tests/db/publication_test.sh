#!/bin/bash
# With the schema's tables published, every command of the tool works on the test server and
# its changes arrive at a subscriber on a second server started here.
#   publication_test.sh BINARY SOURCE_DIR
set -euo pipefail
tool=$1 src=$2 db=registry_publication_test
. "$src/tests/db/test_database.sh"
work=$(mktemp -d /tmp/hivectl-subscriber.XXXXXX)
cleanup() {
  [ -f "$work/env" ] && psql -X -q -d "$sub_conninfo" -c "DROP SUBSCRIPTION IF EXISTS registry_sub" || true
  "$src/scripts/pg_server.sh" stop "$work"
  admin -c "SELECT pg_drop_replication_slot(slot_name) FROM pg_replication_slots WHERE slot_name = 'registry_sub'" \
    -c "DROP DATABASE IF EXISTS $db WITH (FORCE)"
}
trap cleanup EXIT
test_database $db "$HIVECTL_PG_TEMPLATE"
pub_spec=$spec pub_conninfo=$conninfo
sql -c "CREATE PUBLICATION registry_pub FOR TABLES IN SCHEMA registry"

port=$(echo "$pub_spec" | sed 's/.*port=\([0-9]*\).*/\1/')
HIVECTL_PG_PORT=$((port + 10)) "$src/scripts/pg_server.sh" start "$work" >/dev/null
sub_spec=$(. "$work/env"; echo "$HIVECTL_PG_SPEC")
sub_conninfo=${sub_spec#postgresql:} sub_conninfo=${sub_conninfo//;/ }
psql -X -q -d "$sub_conninfo" -c "CREATE SUBSCRIPTION registry_sub CONNECTION '$pub_conninfo' PUBLICATION registry_pub"

printf '%s\n' KNAME,VNAME,TYPE,VALUE 'Rooms\101,Name,str,Board' 'Rooms\102,Seats,i32,12' >"$work/in.csv"
"$tool" --Backend "$pub_spec" import Conf "$work/in.csv" set Conf Level i32 1 set Conf Level i32 2 \
  renamev 'Conf\Rooms\101' Name 'Conf\Rooms\101' Title copyv 'Conf\Rooms\101' Title 'Conf\Rooms\102' Title removev Conf Level \
  copy 'Conf\Rooms' 'Conf\Halls' rename 'Conf\Halls\101' 'Conf\Halls\201' remove 'Conf\Rooms\102' \
  || fail "a command failed on the published registry"
"$tool" --Backend "$pub_spec" export Conf "$work/published.csv"
[ "$(wc -l <"$work/published.csv")" = 5 ] || fail "unexpected export: $(cat "$work/published.csv")"
for _ in $(seq 300); do
  "$tool" --Backend "$sub_spec" export Conf "$work/subscribed.csv"
  cmp -s "$work/published.csv" "$work/subscribed.csv" && exit 0
  sleep 0.2
done
fail "the subscriber did not receive the changes: $(cat "$work/subscribed.csv")"
