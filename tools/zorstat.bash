# shellcheck shell=bash
# Completion of zorstat in bash. Options are those that its --help lists.

_zorstat() {
  local cur prev words cword command='' candidates='' i
  _init_completion || return

  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in replay | live | record | suggest) command=${words[i]} ;; esac
  done

  case $prev in
    --statistics) candidates='summary distribution percentile summary,percentile baseline' ;;
    --cumulative) candidates=all ;;
    --config) _filedir toml ;;
    --proc) _filedir -d ;;
    -o | --output) _filedir ;;
    -*) [[ $("$1" ${command:+"$command"} --help 2>/dev/null) == *"$prev "[A-Z]* ]] && return ;; # a value of its own
  esac
  [[ -n $candidates || ${#COMPREPLY[@]} -gt 0 ]] || case $command,$cur in
    *,-*) candidates=$(_parse_help "$1" "$command --help") ;;
    ,*) candidates='replay live record suggest' ;;
    replay,* | suggest,*) _filedir csv ;;
    *) candidates='net disk cpu' ;;
  esac
  [[ -z $candidates ]] || mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$cur")
} &&
  complete -F _zorstat zorstat
