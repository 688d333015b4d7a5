#!/bin/bash
# --help and the manual page name the same options, commands and TYPE keywords,
# and the page's examples survive rendering.
#   man_page_test.sh BINARY MAN_PAGE
set -u
help=$("$1" --help 2>&1)
# The page's text with font changes dropped and roff's escaped minus and
# backslash turned back into plain characters.
page=$(sed -e 's/\\f[BIRP]//g' -e 's/\\-/-/g' -e 's/\\e/\\/g' "$2")
items=$(
  sed '/^Multiple commands/q' <<<"$help" | grep -oE -- '(^| )-[a-zA-Z]( |$)|--[A-Za-z]+' | tr -d ' '
  sed -n '/^Supported commands:/,/^Examples:/p' <<<"$help" | grep -E '^    [a-z]+( |$)' | sed 's/^ *//'
  grep -oE '^        \* [a-z0-9]+$' <<<"$help" | sed 's/.* //')
failures=0
while read -r item; do
  grep -qE -- "(^|[^-[:alnum:]])$item([^[:alnum:]_]|\$)" <<<"$page" || { echo "not in the manual page: $item"; failures=$((failures + 1)); }
done <<<"$items"
while read -r item; do
  grep -qxF -- "$item" <<<"$items" || { echo "not in --help: $item"; failures=$((failures + 1)); }
done < <(sed -n '/^\.SH COMMANDS/,/^\.SH PROFILES/{/^\.TP/{n;s/^\.B //p}}' <<<"$page")

# Rendered as a reader sees it, every example line is there as typed (not
# filled, no hyphen of the typesetter), and no example names a placeholder
# root.
rendered=$(MANWIDTH=80 man -l "$2" 2>/dev/null)
while read -r example; do
  grep -qxF -- "       $example" <<<"$rendered" || { echo "example not rendered as typed: $example"; failures=$((failures + 1)); }
done < <(sed -n '/^\.SH EXAMPLES/,/^\.SH SEE/{/^qv/p}' <<<"$page")
grep -n 'ROOT\\' <<<"$rendered" && { echo "an example uses the placeholder root ROOT"; failures=$((failures + 1)); }
[ "$failures" -eq 0 ] && [ -n "$help" ] && [ -n "$rendered" ]
