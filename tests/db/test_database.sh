# Sourced by the scripts that test against the test server ($HIVECTL_PG_*, see
# scripts/pg_server.sh). test_database NAME [TEMPLATE] makes database NAME anew
# and sets spec (its backend specification) and conninfo (the same for libpq);
# sql runs psql on it.
export PGOPTIONS='-c client_min_messages=warning'
admin() { eval "$HIVECTL_PG_ADMIN" '"$@"' >/dev/null; }
sql() { psql -X -q -v ON_ERROR_STOP=1 -d "$conninfo" "$@"; }
fail() { echo "FAILED: $*" >&2; exit 1; }
test_database() {
  admin -c "DROP DATABASE IF EXISTS $1 WITH (FORCE)" -c "CREATE DATABASE $1 ${2:+TEMPLATE $2}"
  spec=${HIVECTL_PG_SPEC/dbname=registry_test/dbname=$1}
  conninfo=${spec#postgresql:} conninfo=${conninfo//;/ }
}
