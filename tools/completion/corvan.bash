# Completion of corvan's commands and options for bash. It asks the program itself, so it always knows
# those of the release that is installed.

_corvan() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" i
  local program=${COMP_WORDS[0]/#"~/"/"$HOME/"} list
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --key-file) ((i++)) ;; # its value is not the command
      -*) ;;
      *)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done

  case $previous in
    --key-file | --new-key-file)
      compopt -o filenames 2>/dev/null || true
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
  esac
  if [ -z "$command" ]; then
    mapfile -t COMPREPLY < <(compgen -W "--help --version --key-file --passphrase $("$program" --help 2>/dev/null |
      sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')" -- "$word")
    return
  fi
  case $previous in
    --type)
      mapfile -t COMPREPLY < <(compgen -W "private group chatroom reception system" -- "$word")
      return
      ;;
    --format)
      mapfile -t COMPREPLY < <(compgen -W "jsonl csv html" -- "$word")
      return
      ;;
    --repair)
      list=
      [[ $word != *,* ]] || list=${word%,*},
      mapfile -t COMPREPLY < <(compgen -P "$list" -W "counters latest times indexes sequence" -- \
        "${word##*,}")
      return
      ;;
  esac
  case $word in
    -*)
      mapfile -t COMPREPLY < <(compgen -W "$("$program" "$command" --help 2>/dev/null |
        grep -oE '(^ *|,)--[a-z-]+' | tr -d ' ,')" -- "$word")
      ;;
    *)
      compopt -o filenames 2>/dev/null || true # fails only outside of a completion
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      ;;
  esac
}

complete -F _corvan corvan
