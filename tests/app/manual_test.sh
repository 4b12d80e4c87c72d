#!/usr/bin/env bash
# Judges the manual pages and the completion of bash beside what the program itself says.
#
#   manual_test.sh PROGRAM MANUAL_DIR
set -euo pipefail

program=$1 manual=$2
faults=0

fault() {
  echo "manual test: $1" >&2
  faults=$((faults + 1))
}

# The words that begin an indented line of a help text, below the heading $1.
listed() {
  awk -v heading="$1:" '$0 == heading { inside = 1; next } /^[^ ]/ { inside = 0 } inside && /^  [^ ]/ { print $1 }'
}

mapfile -t commands < <("$program" --help | listed Commands)
((${#commands[@]})) || fault "the program's help lists no commands"

# check_page NAME HELP_ARGUMENTS…: man has nothing to complain about, and what the help names is in the page.
check_page() {
  local page=$manual/man1/$1.1 text word
  shift
  if command -v man >/dev/null; then
    text=$(man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null) || fault "man cannot read $page"
    [[ -z $text ]] || fault "man warns of $page: $text"
  fi
  text=$(sed -n '/^.SH OPTIONS/,/^.SH [^O]/{s/\\-/-/g; s/\\f[BIR]//g; p}' "$page")
  for word in $("$program" "$@" --help | listed Options | tr , '\n'); do
    grep -qwe "$word" <<<"$text" || fault "$page does not name $word"
  done
}

check_page clipworks
for command in "${commands[@]}"; do
  check_page "clipworks-$command" "$command"
  grep -q "clipworks\\\\-$command" "$manual/man1/clipworks.1" || fault "clipworks(1) does not point to $command"
done
pages=("$manual"/man1/*.1)
((${#pages[@]} == ${#commands[@]} + 1)) || fault "there are ${#pages[@]} pages for ${#commands[@]} commands"

# Readline's part: what the completion leaves to it is noted in `left`.
compopt() { left="$*"; }
# shellcheck disable=SC1091
source "$manual/bash/clipworks"

# offers WANTED WORD…: what is offered for the last word; files and directories are readline's to find.
offers() {
  local wanted=$1 left=""
  shift
  COMP_WORDS=(clipworks "$@") COMP_CWORD=$#
  _clipworks clipworks "${!#}" "${COMP_WORDS[COMP_CWORD - 1]}"
  local offered="${COMPREPLY[*]}${left:+ $left}"
  [[ ${offered# } == "$wanted" ]] || fault "for \"clipworks $*\" completion offers \"$offered\" instead of \"$wanted\""
}

offers "${commands[*]}" ""
offers "loop" lo
offers "loop" --codec hevc lo
offers "loop" --codec = hevc lo
offers "auto h264 hevc" --codec ""
offers "h264 hevc" --codec = h
offers "-o dirnames" --outputs ""
offers "--output --outputs" --ou
offers "-o default" loop clip
offers "--count --confinement --codec" loop --co
offers "" loop --count ""
offers "-o default" loop --count 3 ""
offers "jpg png heic" frame --format ""
offers "low high" speed clip.mp4 --quality ""
offers "highCompressed highLossless" narrate --quality = high
offers "-o default" narrate clip.mp4 --piece voice
offers "720p" compress --preset 7
offers "" record ""
offers "--for --force" record --fo
offers "loop" speed clip.mp4 --from 1 then lo
offers "" unknown ""

((faults == 0)) || exit 1
echo "${#pages[@]} manual pages and the completion say what the program says"
