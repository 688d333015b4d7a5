#!/usr/bin/env bash
# Checks the installation and the Debian package of build tree DIR:
#   scripts/check_package.sh DIR
# installs into a staging directory and runs the installed tool under a
# profile name, builds the .deb with cpack, lists it, checks its relations, and
# runs lintian on it, which must find no error.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
stage=$(mktemp -d /tmp/hivectl-stage.XXXXXX)
trap 'rm -rf "$stage"' EXIT
fail() { echo "check_package: $*" >&2; exit 1; }

DESTDIR=$stage cmake --install "$build" --prefix /usr --strip >/dev/null
"$stage/usr/bin/qv_hivectl_fa" --help 2>"$stage/help"
grep -q '^Usage: qv_hivectl_fa ' "$stage/help" && grep -qF '(=Quorvane\FrontNode)' "$stage/help" \
  || fail "the installed qv_hivectl_fa does not show its profile"

rm -f "$build"/qv-hivectl_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(echo "$build"/qv-hivectl_*.deb)
dpkg-deb -c "$deb" | awk '{ print $6, $7, $8 }' | sed 's/ *$//' | sort >"$stage/contents"
for entry in ./usr/bin/qv_hivectl ./usr/bin/qv-hivectl-schema \
    './usr/bin/qv_hivectl_fa -> qv_hivectl' './usr/bin/qv_hivectl_cn -> qv_hivectl' \
    './usr/bin/qv_hivectl_nc -> qv_hivectl' ./usr/share/qv-hivectl/sql/registry.sql \
    ./usr/share/man/man8/qv_hivectl.8.gz './usr/share/man/man8/qv_hivectl_fa.8.gz -> qv_hivectl.8.gz' \
    ./usr/share/bash-completion/completions/qv_hivectl \
    './usr/share/bash-completion/completions/qv_hivectl_nc -> qv_hivectl' \
    './usr/share/bash-completion/completions/qv-hivectl-schema -> qv_hivectl' \
    './usr/share/bash-completion/completions/qv-hivectl-backup -> qv_hivectl' \
    ./usr/share/zsh/vendor-completions/_qv_hivectl ./usr/bin/qv-hivectl-backup \
    ./usr/share/man/man8/qv-hivectl-backup.8.gz ./usr/share/doc/qv-hivectl/examples/qv_node.cfg \
    ./usr/share/doc/qv-hivectl/README.md ./usr/share/doc/qv-hivectl/copyright \
    ./usr/share/doc/qv-hivectl/changelog.gz; do
  grep -qxF "$entry" "$stage/contents" || fail "$deb lacks $entry"
done
dpkg-deb -f "$deb" Depends | grep -q 'libpq5' || fail "no generated dependencies"
# The schema and backup scripts run psql.
[ "$(dpkg-deb -f "$deb" Recommends)" = postgresql-client ] || fail "psql is not recommended"
dpkg-deb -x "$deb" "$stage/deb"
file "$stage/deb/usr/bin/qv_hivectl" | grep -q ', stripped' || fail "binary not stripped"
lintian --fail-on error "$deb"
echo "package $deb checked"
