#!/bin/bash
# qv-hivectl-backup on the test server: a file is accepted only when it holds
# whole records, as many as the server counts.
#   backup_test.sh BINARY SOURCE_DIR
set -uo pipefail
tool=$1 src=$2 db=registry_backup_test
. "$src/tests/db/test_database.sh"
test_database $db "$HIVECTL_PG_TEMPLATE"
work=$(mktemp -d)
trap 'cd /; rm -rf "$work"; admin -c "DROP DATABASE $db"' EXIT
cd "$work" || exit 1
backup() { "$src/packaging/qv-hivectl-backup" -t "$tool" -b "$spec" "$@" 2>&1; }
failures=0
why=' (a value changed meanwhile, the export ended early, or the key holds a zero-length bin value)'
# expect NAME STATUS OUTPUT COMMAND...
expect() {
  local name=$1 status=$2 want=$3 got
  shift 3
  got=$("$@")
  local got_status=$?
  [ "$got" = "$want" ] && [ "$got_status" = "$status" ] && return
  printf '%s: status %s, got\n%s\nexpected status %s\n%s\n' "$name" "$got_status" "$got" "$status" "$want"
  failures=$((failures + 1))
}

"$tool" --Backend "$spec" set 'Rooms\101' Name str 'Board, "A"
room' set 'Rooms\101\Seats' Count i32 12 set Rooms Level i64 7 set Other Name str x
expect "an export is checked against the server's count" 0 "exported 3 values of 'Rooms' to rooms.csv" \
  backup export Rooms rooms.csv

head -n 3 rooms.csv >short.csv
expect "a file ending in a quoted field is damaged" 1 \
  "qv-hivectl-backup: short.csv is damaged: the file ends inside a quoted field" backup check Rooms short.csv
head -c -1 rooms.csv >short.csv
expect "a file without a final line end is damaged" 1 \
  "qv-hivectl-backup: short.csv is damaged: the last record has no line end" backup check Rooms short.csv
head -n 4 rooms.csv >short.csv
expect "a file with fewer values than the server is short" 1 \
  "qv-hivectl-backup: short.csv holds 2 values, but the server counts 3 in 'Rooms'$why" \
  backup check Rooms short.csv

"$tool" --Backend "$spec" set 'Rooms\102' Empty bin ''
cp rooms.csv kept.csv
expect "a short export fails" 1 \
  "qv-hivectl-backup: the export of 'Rooms' holds 3 values, but the server counts 4 in 'Rooms'$why" \
  backup export Rooms rooms.csv
expect "a short export leaves the last backup" 0 "" cmp rooms.csv kept.csv

expect "a restore replaces the key and is counted" 0 "restored 3 values of 'Rooms' from rooms.csv" \
  backup restore Rooms rooms.csv

printf '# server configuration\nRegistryBackend = %s  # the registry\n[Other]\nRegistryBackend=memory:\n' "$spec" >server.cfg
expect "the backend comes from the configuration file" 0 "rooms.csv holds all 3 values of 'Rooms'" \
  "$src/packaging/qv-hivectl-backup" -t "$tool" -c server.cfg check Rooms rooms.csv
"$tool" --Backend "$spec" --Root Base set Deep v str x
expect "the key is counted below --Root" 1 \
  "qv-hivectl-backup: rooms.csv holds 3 values, but the server counts 1 in 'Deep'$why" \
  backup -r Base check Deep rooms.csv
[ "$failures" -eq 0 ]
