#!/bin/bash
# Completes command lines as a shell would: completion_test.bash ZORSTAT_PROGRAM COMPLETION_FILE
set -u
program=$1
# shellcheck source=/dev/null
. /usr/share/bash-completion/bash_completion
# shellcheck source=tools/zorstat.bash
. "$2"
cd "$(mktemp -d)" && trap 'rm -rf "$PWD"' EXIT || exit 1
touch polls.csv polls.toml
status=0

# expect 'COMMAND LINE' CANDIDATE...: those that its last word can become.
expect() {
  COMP_LINE=${1/zorstat/"$program"} COMPREPLY=()
  COMP_POINT=${#COMP_LINE}
  read -ra COMP_WORDS <<<"$COMP_LINE"
  [[ $1 == *' ' ]] && COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  shift
  _zorstat "$program"
  [[ ${COMPREPLY[*]} == "$*" ]] && return
  echo "'$COMP_LINE' is completed to: ${COMPREPLY[*]}; expected: $*" >&2
  status=1
}

expect 'zorstat ' replay live record suggest
expect 'zorstat --v' --version
expect 'zorstat live ' net disk cpu
expect 'zorstat live --statistics b' baseline
expect 'zorstat live --statistics x'
expect 'zorstat live net --c' --count --clear --config
expect 'zorstat record net --c' --count
expect 'zorstat replay --clear '
expect 'zorstat replay --report p' polls.csv
expect 'zorstat replay --config p' polls.toml
exit $status
