# shellcheck shell=bash
# Completion of zorstat in bash, from what its --help lists.

_zorstat() {
  local cur prev words cword command='' candidates='' help before i
  _init_completion || return

  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in replay | live | record | suggest | query | page | top) command=${words[i]} ;; esac
  done
  help=$("$1" ${command:+"$command"} --help 2>/dev/null)

  case $prev,$help in
    --statistics,*) # a list: what stands before the last comma stays
      before=${cur%"${cur##*,}"}
      candidates=$(sed -n "s/^ *$prev LIST *//; T; s/,//g; p" <<<"$help")
      candidates=$before${candidates// / $before}
      ;;
    --cumulative,*) candidates=all ;;
    --by,*) candidates='hour day instance host' ;;
    --resets,*) candidates='detect ignore' ;;
    --format,*) candidates='records table csv jsonl' ;;
    --config,*) _filedir toml ;;
    -o,* | -*,*"$prev FILE"* | -*,*"$prev PROGRAM"*) _filedir ;;
    -*,*"$prev DIR"*) _filedir -d ;;
    -*,*"$prev "[A-Z]*) return ;; # a value of its own
  esac
  [[ -n $candidates || ${#COMPREPLY[@]} -gt 0 ]] || case $command,$cur in
    *,-*) candidates=$(_parse_help - <<<"$help") ;;
    ,*) candidates='replay live record suggest query page top' ;;
    replay,* | suggest,*) _filedir csv ;;
    query,* | page,*) _filedir ;;
    *) candidates='net disk cpu' ;;
  esac
  [[ -z $candidates ]] || mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$cur")
} &&
  complete -F _zorstat zorstat
