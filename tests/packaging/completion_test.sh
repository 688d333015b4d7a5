#!/bin/bash
# Drives the bash completion as bash does and compares COMPREPLY.
#   completion_test.sh COMPLETION_FILE
set -u
. "$1"
dir=$(mktemp -d) && trap 'rm -rf "$dir"' EXIT && cd "$dir" && touch backup.csv notes.txt
failures=0
expect() {  # expect "WORDS..." "COMPLETIONS"
  COMP_WORDS=($1) COMP_CWORD=$(($(wc -w <<<"$1") - 1))
  [ "${1: -1}" = " " ] && { COMP_WORDS+=(""); COMP_CWORD=$((COMP_CWORD + 1)); }
  _qv_hivectl
  local got="${COMPREPLY[*]}"
  [ "$got" = "$2" ] || { echo "'$1': got '$got', expected '$2'"; failures=$((failures + 1)); }
}
expect "qv_hivectl re" "remove rename removev renamev"
expect "qv_hivectl --Ig" "--IgnoreErrors"
expect "qv_hivectl_fa --Root X set K V " "i32 i64 str bin b16 b64 fstr fbin"
expect "qv_hivectl set K V f" "fstr fbin"
expect "qv_hivectl set K V fbin b" "backup.csv"
expect "qv_hivectl set K V str b" ""
expect "qv_hivectl get K " ""
expect "qv_hivectl get K V show K copyv A B C D ex" "exists export"
expect "qv_hivectl remove K import K n" "notes.txt"
expect "qv_hivectl --Backend m" "memory:"
expect "qv_hivectl -- set K V str --V" ""
registered=$(complete -p qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc | grep -c -- '-F _qv_hivectl ')
[ "$registered" = 4 ] || { echo "not every program name is registered"; failures=$((failures + 1)); }
[ "$failures" -eq 0 ]
