# shellcheck shell=bash
#
# Sourced by the scripts beside it: errors in one sentence, and packages from scripts/packages.txt.

set -Eeuo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script=scripts/$(basename "$0")

# What is being done, for the sentence that ends a script which fails.
step="starting"
trap '((BASH_SUBSHELL)) || echo "$script: $step failed; the lines above say why." >&2' ERR

say() {
  echo "== $1"
}

# die SENTENCE [EXIT_CODE]
die() {
  echo "$script: $1" >&2
  exit "${2:-1}"
}

as_root() {
  if [[ $(id -u) == 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "packages are missing and only root may install them; run this once as root, or install sudo."
  fi
}

apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 "$@"
}

is_installed() {
  [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

is_offered() {
  [[ $(LC_ALL=C apt-cache policy "$1" 2>/dev/null) == *"Candidate: "[0-9]* ]]
}

# install_packages GROUP…: installs what is missing of these groups.
install_packages() {
  step="installing packages"
  command -v apt-get >/dev/null || die "this script installs Debian packages, and there is no apt-get here."
  local group package missing=() needs_update=no
  while read -r group package; do
    if [[ " $* " == *" $group "* ]] && ! is_installed "$package"; then
      missing+=("$package")
      is_offered "$package" || needs_update=yes
    fi
  done < <(grep -v '^#' "$root/scripts/packages.txt")
  ((${#missing[@]})) || return 0

  say "installing ${missing[*]}"
  [[ $needs_update == no ]] || apt update
  # Lists that are too old name packages that are gone: once more with new ones.
  if ! apt install --no-install-recommends "${missing[@]}"; then
    apt update
    apt install --no-install-recommends "${missing[@]}"
  fi
}

# configure_and_build PRESET [CMAKE_OPTION…] [-- BUILD_OPTION…]
configure_and_build() {
  local preset=$1 options=()
  shift
  while (($#)) && [[ $1 != -- ]]; do
    options+=("$1")
    shift
  done
  (($# == 0)) || shift
  cd "$root"
  step="configuring the $preset build"
  say "$step"
  cmake --preset "$preset" "${options[@]}"
  step="building ($preset)"
  say "$step"
  cmake --build --preset "$preset" --parallel "$(nproc)" "$@"
}
