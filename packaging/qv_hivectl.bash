# bash completion for qv_hivectl, its profile names, qv-hivectl-schema and
# qv-hivectl-backup                                           -*- shell-script -*-
#
# qv_hivectl: options (long names in any letter case, abbreviated, or with
# "=value"), command keywords, the TYPE keywords of set, the backend names,
# and file names where a command takes a file (export, import,
# set ... fstr|fbin). bash-completion's word helpers keep the colon of
# "memory:" and the "=" of "--Backend=..." inside their words.

_qv_hivectl_options='--help --ConfigFile --Backend --Root --Verbose --Progress --IgnoreErrors --MaxDBConnections'

# Prints the long option that WORD (--name or --name=value) names, matched
# as the tool matches it: in any letter case, exactly or by an unambiguous
# abbreviation. Prints nothing for an unknown name.
_qv_hivectl_long_option() {
  local name=${1%%=*} option matches=()
  name=${name,,}
  for option in $_qv_hivectl_options; do
    [ "${option,,}" = "$name" ] && { echo "$option"; return; }
    [[ ${option,,} == "$name"* ]] && matches+=("$option")
  done
  [ ${#matches[@]} -eq 1 ] && echo "${matches[0]}"
}

# Long options that start with $cur in any letter case, and "--".
_qv_hivectl_complete_options() {
  local option
  for option in $_qv_hivectl_options --; do
    [[ ${option,,} == "${cur,,}"* ]] && COMPREPLY+=("$option")
  done
}

_qv_hivectl() {
  local cur prev words cword split
  _init_completion -s -n : || return

  # Walk the words before the cursor as the tool parses them: "arg" counts
  # the arguments the current command still expects, "value_of" names an
  # option whose value comes next. An unknown option, such as -5, is a
  # command token for the tool, and so it is here.
  local i word option command='' arg=0 value_of='' options_done=''
  for ((i = 1; i < cword; i++)); do
    word=${words[i]}
    if [ -n "$value_of" ]; then
      value_of=''
      continue
    fi
    if [ -z "$options_done" ]; then
      case $word in
        --) options_done=1; continue ;;
        -[cbr]) value_of=$word; continue ;;
        -[hcbr]*) continue ;;
        --*=*) [ -n "$(_qv_hivectl_long_option "$word")" ] && continue ;;
        --?*)
          option=$(_qv_hivectl_long_option "$word")
          case $option in
            --ConfigFile|--Backend|--Root|--MaxDBConnections) value_of=$option; continue ;;
            ?*) continue ;;
          esac
          ;;
      esac
    fi
    if [ "$arg" -gt 0 ]; then
      arg=$((arg - 1)); [ "$arg" -gt 0 ] || command=''
      [ "$command:$arg" = set:1 ] && case $word in fstr|fbin) command=setfile ;; esac
      continue
    fi
    command=$word
    case $word in
      remove|show) arg=1 ;;
      set|renamev|copyv) arg=4 ;;
      *) arg=2 ;;
    esac
  done
  [ "$split" = true ] && value_of=$(_qv_hivectl_long_option "$prev")

  case $value_of in
    -c|--ConfigFile) _filedir; return ;;
    -b|--Backend)
      COMPREPLY=($(compgen -W 'memory: postgresql:' -- "$cur"))
      [ "${COMPREPLY[*]}" = postgresql: ] && compopt -o nospace
      __ltrim_colon_completions "$cur"
      return
      ;;
    ?*) return ;;
  esac
  if [ -z "$options_done" ] && [[ $cur == -* ]]; then
    _qv_hivectl_complete_options
  elif [ "$arg" -eq 0 ]; then
    COMPREPLY=($(compgen -W 'get set exists remove rename copy removev renamev copyv export import show' -- "$cur"))
  else
    case $command:$arg in
      set:2) COMPREPLY=($(compgen -W 'i32 i64 str bin b16 b64 fstr fbin' -- "$cur")) ;;
      setfile:1|export:1|import:1) _filedir ;;
    esac
  fi
}
complete -F _qv_hivectl qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc

# The first word after the options, and how many words follow it. While
# there is none, completes the options or COMMANDS itself; false when
# nothing is left for the caller to complete.
_qv_hivectl_script_command() {  # VALUE_OPTIONS (e.g. "-d -h -p -U") COMMANDS
  local i
  command='' arg=0
  for ((i = 1; i < cword; i++)); do
    if [ -z "$command" ]; then
      case " $1 " in *" ${words[i]} "*) ((i++)); continue ;; esac
      [[ ${words[i]} == -* ]] && continue
      command=${words[i]}
    else
      arg=$((arg + 1))
    fi
  done
  case " $1 " in *" $prev "*) return 1 ;; esac
  [ -n "$command" ] && return
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$1 --help" -- "$cur"))
  else
    COMPREPLY=($(compgen -W "$2" -- "$cur"))
  fi
  return 1
}

_qv_hivectl_schema() {
  local cur prev words cword command arg
  _init_completion || return
  _qv_hivectl_script_command '-d -h -p -U' 'install verify check version grant revoke' || return
  [ "$command:$arg" = grant:1 ] && COMPREPLY=($(compgen -W 'reader writer' -- "$cur"))
}
complete -F _qv_hivectl_schema qv-hivectl-schema

_qv_hivectl_backup() {
  local cur prev words cword command arg
  _init_completion || return
  case $prev in
    -c) _filedir; return ;;
    -b) COMPREPLY=($(compgen -W 'postgresql:' -- "$cur")); compopt -o nospace; return ;;
    -t) COMPREPLY=($(compgen -W 'qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc' -- "$cur")); return ;;
  esac
  _qv_hivectl_script_command '-b -c -r -t' 'export check restore' || return
  [ "$arg" = 1 ] && _filedir
}
complete -F _qv_hivectl_backup qv-hivectl-backup
