#!/usr/bin/env bash
# Installs the build tree, builds the example against what was installed, by CMake and by pkg-config, and runs it.
#
#   consumer_test.sh SOURCE_DIR BUILD_DIR LIBDIR CMAKE CXX
set -euo pipefail

source_dir=$1 build_dir=$2 libdir=$3 cmake=$4 cxx=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "consumer test: $1" >&2
  exit 1
}

"$cmake" --install "$build_dir" --prefix "$prefix" >"$work/install.log" || fail "the build tree cannot be installed"

"$cmake" -G Ninja -S "$source_dir/tests/consumer/package" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" -DEXAMPLE="$source_dir/examples/loop.cpp" -DINCLUDE_DIR="$prefix/include"
"$cmake" --build "$work/build"

read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig pkg-config --cflags --libs clipworks)"
"$cxx" -std=c++20 "$source_dir/examples/loop.cpp" "${flags[@]}" -Wl,-rpath,"$prefix/$libdir" -o "$work/loop"

ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x120:rate=30:duration=1 -f lavfi -i sine=duration=1 \
  -c:v libx264 -c:a aac "$work/clip.mp4"

for program in "$work/build/loop" "$work/loop"; do
  mkdir "$work/out"
  (cd "$work/out" && timeout 60 "$program" "$work/clip.mp4") >"$work/log" 2>&1 ||
    fail "$program failed and printed: $(cat "$work/log")"
  file=$(tail -n 1 "$work/log")
  count=$(cd "$work/out" && ffprobe -v error -select_streams v -count_frames \
    -show_entries stream=nb_read_frames -of csv=p=0 "$file")
  [[ ${count%%,*} == 90 ]] || fail "$program made '$file' with '$count' pictures instead of 90"
  rm -r "$work/out"
done

if [[ -x $prefix/bin/clipworks ]]; then
  "$prefix/bin/clipworks" --version || fail "the installed program does not start"
fi
echo "the installed package builds and runs the example"
