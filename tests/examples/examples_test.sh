#!/usr/bin/env bash
# Runs the examples on a short clip: each makes the file that it says it makes, where it says, and no other.
#
#   examples_test.sh DIRECTORY_OF_THE_PROGRAMS
set -euo pipefail

programs=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/home" "$work/here"
export HOME=$work/home XDG_CACHE_HOME= XDG_DATA_HOME= XDG_CONFIG_HOME=
cd "$work/here"

ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=1920x1080:rate=10:duration=3 -f lavfi -i sine=duration=3 \
  -c:v libx264 -preset ultrafast -c:a aac clip.mp4
ffmpeg -nostdin -v error -f lavfi -i sine=frequency=900:duration=1 -c:a aac voice.m4a

fail() {
  echo "$1" >&2
  exit 1
}

# expect WANTED NAME ARGUMENTS…: WANTED is width,height,pictures of the file whose path the example prints.
expect() {
  local wanted=$1 name=$2 file facts
  # Some operations print lines of their own before.
  file=$(timeout 300 "$programs/clipworks_example_$name" "${@:3}" 2>log | tail -1) || fail "$name failed: $(cat log)"
  [[ $(realpath "$(dirname "$file")") == "$(realpath .)" ]] || fail "$name made $file, which is not in the current directory"
  facts=$(ffprobe -v error -count_packets -select_streams v -show_entries stream=width,height,nb_read_packets -of csv=p=0 "$file")
  [[ $facts == "$wanted" ]] || fail "$name made $file with $facts instead of $wanted"
}

expect 720,720,30 chain clip.mp4
expect 1920,1080,90 loop clip.mp4
expect 1080,1920,30 rotate clip.mp4
expect 1080,1080,30 crop clip.mp4
expect 1920,1080,30 reverse clip.mp4
expect 1920,1080,30 speed clip.mp4
expect 854,480,30 compress clip.mp4
expect 1920,1080,30 narrate clip.mp4 voice.m4a
expect 1920,1080,1 frame clip.mp4
[[ -f backwards.mp4 ]] || fail "reverse made another file than backwards.mp4"
left=$(find "$HOME" -type f ! -path "*/pulse/*")
[[ -z $left ]] || fail "files are left in the user's directories: $left"
echo "all examples make what they say"
