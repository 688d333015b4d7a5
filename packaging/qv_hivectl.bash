# bash completion for qv_hivectl and its profile names       -*- shell-script -*-
#
# Completes options, command keywords, the TYPE keywords of set, and file
# names where a command takes a file (export, import, set ... fstr|fbin).

_qv_hivectl() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  local options='--help --ConfigFile --Backend --Root --Verbose --Progress --IgnoreErrors --MaxDBConnections'
  local commands='get set exists remove rename copy removev renamev copyv export import show'
  local types='i32 i64 str bin b16 b64 fstr fbin'
  # Walk the words before the cursor: "arg" counts the arguments the current
  # command still expects, "value_of" names an option whose value comes next.
  local i word command='' arg=0 value_of='' options_done=''
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [ -n "$value_of" ]; then
      [ "$word" = = ] || value_of=''
      continue
    fi
    if [ -z "$options_done" ] && [ "${word:0:1}" = - ]; then
      case ${word,,} in
        --) options_done=1 ;;
        -c|-b|-r|--configfile|--backend|--root|--maxdbconnections) value_of=$word ;;
      esac
      continue
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

  COMPREPLY=()
  if [ -n "$value_of" ]; then
    [ "$cur" = = ] && cur=''
    case ${value_of,,} in
      -c|--configfile) COMPREPLY=($(compgen -f -- "$cur")) ;;
      -b|--backend) COMPREPLY=($(compgen -W 'memory: postgresql:' -- "$cur")) ;;
    esac
  elif [ -z "$options_done" ] && [ "${cur:0:1}" = - ]; then
    COMPREPLY=($(compgen -W "$options --" -- "$cur"))
  elif [ "$arg" -eq 0 ]; then
    COMPREPLY=($(compgen -W "$commands" -- "$cur"))
  else
    case $command:$arg in
      set:2) COMPREPLY=($(compgen -W "$types" -- "$cur")) ;;
      setfile:1|export:1|import:1) COMPREPLY=($(compgen -f -- "$cur")) ;;
    esac
  fi
}
complete -o filenames -F _qv_hivectl qv_hivectl qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc
