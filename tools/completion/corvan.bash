# Completion of corvan's commands and options for bash. It asks the program itself, so it always knows
# those of the release that is installed.

_corvan() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -*) ;;
      *)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done

  if [ -z "$command" ]; then
    mapfile -t COMPREPLY < <(compgen -W "--help --version $("${COMP_WORDS[0]}" --help 2>/dev/null |
      sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')" -- "$word")
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
  esac
  case $word in
    -*)
      mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" "$command" --help 2>/dev/null |
        grep -oE '(^ *|,)--[a-z-]+' | tr -d ' ,')" -- "$word")
      ;;
    *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
  esac
}

complete -o filenames -F _corvan corvan
