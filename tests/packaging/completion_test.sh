#!/bin/bash
# The bash completion in a real interactive bash with bash-completion loaded,
# driven through tmux: each case types a line, presses Tab twice, then types
# "#" (which bash reads only once the completion is done), and compares the
# screen.
#   completion_test.sh COMPLETION_FILE
set -u
dir=$(mktemp -d)
server=(tmux -L "qv-completion-$$" -f /dev/null)
trap '"${server[@]}" kill-server 2>/dev/null; rm -rf "$dir"' EXIT
mkdir "$dir/files" && touch "$dir/files/backup.csv" "$dir/files/notes.txt"
cat >"$dir/rc" <<EOF
PS1='\$ '
. /usr/share/bash-completion/bash_completion
. '$1'
bind 'set bell-style none'
cd '$dir/files'
EOF
"${server[@]}" new-session -d -x 80 -y 12 "env -i HOME='$dir' TERM=xterm PATH='$PATH' bash --rcfile '$dir/rc' -i"
failures=0

# expect NAME LINE, the expected screen on standard input.
expect() {
  local want got tries
  want=$(cat)
  "${server[@]}" send-keys C-u C-l
  "${server[@]}" send-keys -l "$2"
  "${server[@]}" send-keys Tab Tab '#'
  for ((tries = 0; tries < 60; tries++)); do
    got=$("${server[@]}" capture-pane -p | sed -e :a -e '/^\n*$/{$d;N;ba' -e '}')
    [ "$got" = "$want" ] && return
    sleep 0.05
  done
  printf '%s: got\n%s\nexpected\n%s\n' "$1" "$got" "$want"
  failures=$((failures + 1))
}

expect "commands after a backend with a colon" 'qv_hivectl --Backend memory: ' <<'EOF'
$ qv_hivectl --Backend memory:
copy     exists   get      remove   rename   set
copyv    export   import   removev  renamev  show
$ qv_hivectl --Backend memory: #
EOF
expect "export's file after -b memory:" 'qv_hivectl -b memory: export K ' <<'EOF'
$ qv_hivectl -b memory: export K
backup.csv  notes.txt
$ qv_hivectl -b memory: export K #
EOF
expect "a command after --Backend=memory:" 'qv_hivectl --Backend=memory: sh' <<'EOF'
$ qv_hivectl --Backend=memory: show #
EOF
expect "a long option in another letter case" 'qv_hivectl --maxdb' <<'EOF'
$ qv_hivectl --MaxDBConnections #
EOF
expect "an abbreviated option takes its value" 'qv_hivectl --back memory: ex' <<'EOF'
$ qv_hivectl --back memory: ex
exists  export
$ qv_hivectl --back memory: ex#
EOF
expect "a negative number is an argument" 'qv_hivectl set K V i32 -5 ex' <<'EOF'
$ qv_hivectl set K V i32 -5 ex
exists  export
$ qv_hivectl set K V i32 -5 ex#
EOF
expect "set's types under a profile name" 'qv_hivectl_fa --Root X set K V ' <<'EOF'
$ qv_hivectl_fa --Root X set K V
b16   b64   bin   fbin  fstr  i32   i64   str
$ qv_hivectl_fa --Root X set K V #
EOF
expect "fbin's file" 'qv_hivectl set K V fbin b' <<'EOF'
$ qv_hivectl set K V fbin backup.csv #
EOF
expect "the next command after complete ones" 'qv_hivectl get K V show K copyv A B C D ex' <<'EOF'
$ qv_hivectl get K V show K copyv A B C D ex
exists  export
$ qv_hivectl get K V show K copyv A B C D ex#
EOF
expect "no file names for keys and values" 'qv_hivectl get K ' <<'EOF'
$ qv_hivectl get K #
EOF
expect "backend names" 'qv_hivectl --Backend m' <<'EOF'
$ qv_hivectl --Backend memory: #
EOF
expect "nothing but words after --" 'qv_hivectl -- set K V str --V' <<'EOF'
$ qv_hivectl -- set K V str --V#
EOF
expect "schema script commands" 'qv-hivectl-schema ' <<'EOF'
$ qv-hivectl-schema
check    grant    install  revoke   verify   version
$ qv-hivectl-schema #
EOF
expect "schema script grant's group" 'qv-hivectl-schema -d db grant someone w' <<'EOF'
$ qv-hivectl-schema -d db grant someone writer #
EOF
expect "backup script commands" 'qv-hivectl-backup -t qv_hivectl_fa ' <<'EOF'
$ qv-hivectl-backup -t qv_hivectl_fa
check    export   restore
$ qv-hivectl-backup -t qv_hivectl_fa #
EOF
[ "$failures" -eq 0 ]
