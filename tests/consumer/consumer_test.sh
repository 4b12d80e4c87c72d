#!/usr/bin/env bash
# Installs the build tree, builds the example against what was installed, by CMake and by pkg-config, and runs it.
#
#   consumer_test.sh SOURCE_DIR BUILD_DIR LIBDIR CMAKE CXX
set -euo pipefail

source_dir=$1 build_dir=$2 libdir=$3 cmake=$4 cxx=$5

if ! command -v "$cxx" >/dev/null; then
  echo "skipped: $cxx is not installed"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "consumer test: $1" >&2
  exit 1
}

files_in() {
  (cd "$1" && find . ! -type d | sort)
}

install_to() {
  "$cmake" --install "$build_dir" --prefix "$work/$1" "${@:2}" >"$work/log" || fail "$1 cannot be installed: $(cat "$work/log")"
}

# install_component NAME REGEX: into the prefix; everything that it adds matches REGEX.
install_component() {
  local strays
  install_to "$1" --component "$1"
  strays=$(files_in "$work/$1" | grep -vE "^\./($2|share/doc/.*)\$" || true)
  [[ -z $strays ]] || fail "the component $1 also has $strays"
  cp -a "$work/$1/." "$prefix"
}

mkdir "$prefix" "$work/pkg-config"
install_component Runtime "$libdir/libclipworks\.so\.[0-9.]+"
install_component Development "include/.*|$libdir/(libclipworks\.so|pkgconfig/.*|cmake/.*)"
install_component Program "bin/clipworks|share/(man|bash-completion|zsh)/.*"
python_component=$(grep -q '^CLIPWORKS_BUILD_PYTHON:BOOL=ON' "$build_dir/CMakeCache.txt" && echo yes || echo no)
[[ $python_component == no ]] || install_component Python "lib/python3[0-9.]*/dist-packages/clipworks/.*"
install_to whole
diff <(files_in "$work/whole") <(files_in "$prefix") || fail "the components are not the whole"

"$cmake" -G Ninja -S "$source_dir/tests/consumer/package" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" -DEXAMPLES="$source_dir/examples" -DINCLUDE_DIR="$prefix/include"
"$cmake" --build "$work/build"

export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs clipworks)"
for example in "$source_dir"/examples/*.cpp; do
  "$cxx" -std=c++20 "$example" "${flags[@]}" -Wl,-rpath,"$prefix/$libdir" -o "$work/pkg-config/$(basename "$example" .cpp)"
done

ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x120:rate=30:duration=1 -f lavfi -i sine=duration=1 \
  -c:v libx264 -c:a aac "$work/clip.mp4"

# What the examples make is another test's matter.
for program in "$work/build/loop" "$work/pkg-config/loop"; do
  (cd "$work" && timeout 60 "$program" clip.mp4 >log 2>&1) || fail "$program failed: $(cat "$work/log")"
done
if [[ $python_component == yes ]]; then
  (cd "$work" && PYTHONPATH=$(echo "$prefix"/lib/python3*/dist-packages) /usr/bin/python3 -c \
    'import clipworks; clipworks.rotate("clip.mp4")') || fail "the installed Python package does not work"
fi
echo "the installed package builds and runs the examples with $cxx"
