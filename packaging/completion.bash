# Bash completion for tarvolin, tarv-fetch, tarv-pkg, tarv-restore, tarv-store and tarv-watch. What the tools take is read from their --help.
# shellcheck shell=bash

# _tarv_help TOOL [SUBCOMMAND]: what its help lists, one a line: "OPTION TYPE", "operand TYPE", "command NAME" and
# "partition NAME". An option that takes no value has no TYPE.
_tarv_help() {
  "$@" --help 2>/dev/null </dev/null | awk '
    { sub(/, +-/, ",-") }
    /^([^ ].*:)?$/ { section = tolower($0); next }
    section == "partitions:" {
      sub(/^.*: /, "")
      for (i = 1; i <= NF; i++) print "partition", $i
    }
    !/^  [^ ]/ { next }
    { head = substr($0, 3); sub(/  .*/, "", head); split(head, part, " ") }
    section == "subcommands:" { print "command", part[1] }
    section == "positionals:" { print "operand", part[2] }
    section == "options:" {
      n = split(part[1], names, ",")
      for (i = 1; i <= n; i++) print names[i], part[2] ~ /^[A-Z=]+$/ ? part[2] : ""
    }'
}

# The updater says little of itself, and is not run to be asked.
_tarvolin_help() {
  printf '%s\n' '-h' '--help' '-u URL' '--url URL' '--version TEXT' '-d' '--debug' '--rmrfnvbak' '-t N' '--type N'
}

# The second word of every line of $help whose first is $1.
_tarv_listed() { awk -v key="$1" '$1 == key { print $2 }' <<<"$help"; }

_tarv_complete() {
  local tool=${1/#\~\//$HOME/} word=$2 at=$COMP_CWORD side=left help command='' type='' i
  local name=${tool##*/}
  COMPREPLY=()
  if [[ $name == tarvolin ]]; then help=$(_tarvolin_help); else help=$(_tarv_help "$tool"); fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    [[ -n $command ]] || command=$(_tarv_listed command | grep -Fx -e "${COMP_WORDS[i]}")
  done
  if [[ -n $command ]]; then
    [[ $name == tarv-store ]] || help='' # its own options may stand behind the subcommand, too
    help=$(grep -v '^command ' <<<"$help"; _tarv_help "$tool" "$command")
  fi

  # The shell makes three words of LEFT=RIGHT.
  if [[ $word == = ]]; then word='' at=$((at + 1)); fi
  if [[ ${COMP_WORDS[at - 1]} == = ]]; then at=$((at - 2)) side=right; fi
  if [[ $side == right && ${COMP_WORDS[at]} == -* ]]; then
    type=$(_tarv_listed "${COMP_WORDS[at]}")
  else
    type=$(_tarv_listed "${COMP_WORDS[at - 1]}")
    if [[ -z $type && $word != -* ]]; then type=$(_tarv_listed operand | head -n1); fi
    if [[ $side == right ]]; then type=${type#*=}; else type=${type%%=*}; fi
  fi

  local choices=(-W "$(_tarv_listed command)")
  case $type in
    FILE) choices=(-f) && compopt -o filenames ;;
    DIR | FOLDER) choices=(-d) && compopt -o filenames ;;
    PARTITION) choices=(-S '=' -W "$(_tarv_listed partition)") && compopt -o nospace ;;
    IMAGE) choices=(-W 'system modem systemdata') ;;
    ?*) choices=(-W '') ;;
    *) if [[ $word == -* || -z ${choices[1]} ]]; then choices=(-W "$(awk '/^-/ { print $1 }' <<<"$help")"); fi ;;
  esac 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "${choices[@]}" -- "$word")
}

complete -F _tarv_complete tarvolin tarv-fetch tarv-pkg tarv-restore tarv-store tarv-watch
