#compdef qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc qv-hivectl-schema qv-hivectl-backup
# zsh completion for qv_hivectl, its profile names, qv-hivectl-schema and
# qv-hivectl-backup; completes the same words as the bash completion.

# The long option that $1 (--name or --name=value) names, in any letter case,
# exactly or by an unambiguous abbreviation; empty for an unknown name.
_qv_hivectl_long() {
  local name=${${1%%=*}:l} option
  local -a matches
  for option in --help --ConfigFile --Backend --Root --Verbose --Progress --IgnoreErrors --MaxDBConnections; do
    [[ ${option:l} == $name ]] && { REPLY=$option; return; }
    [[ ${option:l} == $name* ]] && matches+=($option)
  done
  REPLY=${matches[1]}
  (( $#matches == 1 )) || REPLY=''
}

_qv_hivectl_tool() {
  local i word command='' value_of='' options_done='' REPLY
  integer arg=0
  for ((i = 2; i < CURRENT; i++)); do
    word=$words[i]
    if [[ -n $value_of ]]; then value_of=''; continue; fi
    if [[ -z $options_done ]]; then
      case $word in
        --) options_done=1; continue ;;
        -[cbr]) value_of=$word; continue ;;
        -[hcbr]*) continue ;;
        --?*)
          _qv_hivectl_long $word
          if [[ -n $REPLY ]]; then
            [[ $word != *=* && $REPLY == --(ConfigFile|Backend|Root|MaxDBConnections) ]] && value_of=$REPLY
            continue
          fi
          ;;
      esac
    fi
    if (( arg > 0 )); then
      (( arg-- )); (( arg > 0 )) || command=''
      [[ $command:$arg == set:1 && $word == (fstr|fbin) ]] && command=setfile
      continue
    fi
    command=$word
    case $word in
      remove|show) arg=1 ;;
      set|renamev|copyv) arg=4 ;;
      *) arg=2 ;;
    esac
  done
  if [[ -z $value_of && -z $options_done && $PREFIX == --*=* ]]; then
    _qv_hivectl_long $PREFIX
    value_of=$REPLY
    compset -P '*='
  fi
  case $value_of in
    -c|--ConfigFile) _files; return ;;
    -b|--Backend) compadd -S '' memory: postgresql:; return ;;
    ?*) return 1 ;;
  esac
  if [[ -z $options_done && $PREFIX == -* ]]; then
    compadd -M 'm:{a-z}={A-Z} m:{A-Z}={a-z}' -- --help --ConfigFile --Backend --Root --Verbose \
      --Progress --IgnoreErrors --MaxDBConnections --
  elif (( arg == 0 )); then
    compadd get set exists remove rename copy removev renamev copyv export import show
  else
    case $command:$arg in
      set:2) compadd i32 i64 str bin b16 b64 fstr fbin ;;
      setfile:1|export:1|import:1) _files ;;
    esac
  fi
}

# The first word after the options ($1: those that take a value) and the
# number of words after it, for the two scripts.
_qv_hivectl_script_words() {
  local i
  command='' arg=0
  for ((i = 2; i < CURRENT; i++)); do
    if [[ -z $command ]]; then
      [[ " $1 " == *" $words[i] "* ]] && { (( i++ )); continue; }
      [[ $words[i] == -* ]] && continue
      command=$words[i]
    else
      (( arg++ ))
    fi
  done
  [[ " $1 " != *" $words[CURRENT-1] "* ]]
}

_qv_hivectl_schema() {
  local command; integer arg
  _qv_hivectl_script_words '-d -h -p -U' || return 1
  if [[ -z $command ]]; then
    if [[ $PREFIX == -* ]]; then compadd -- -d -h -p -U --help
    else compadd install verify check version grant revoke; fi
  elif [[ $command:$arg == grant:1 ]]; then
    compadd reader writer
  fi
}

_qv_hivectl_backup() {
  local command; integer arg
  case $words[CURRENT-1] in
    -c) _files; return ;;
    -b) compadd -S '' postgresql:; return ;;
    -t) compadd qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc; return ;;
  esac
  _qv_hivectl_script_words '-b -c -r -t' || return 1
  if [[ -z $command ]]; then
    if [[ $PREFIX == -* ]]; then compadd -- -b -c -r -t --help
    else compadd export check restore; fi
  elif (( arg == 1 )); then
    _files
  fi
}

case $service in
  qv-hivectl-schema) _qv_hivectl_schema "$@" ;;
  qv-hivectl-backup) _qv_hivectl_backup "$@" ;;
  *) _qv_hivectl_tool "$@" ;;
esac
