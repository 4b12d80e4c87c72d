# shellcheck shell=bash
#
# Sourced by the scripts that check what happens on a clean Debian 12, behind lib.sh: a system in a folder below /tmp,
# gone when the script ends. Needs root and network.

# parse_mirror SCRIPT_ARGUMENT…: sets `mirror`, where Debian's own packages come from: from where this machine has them,
# if nothing is said.
parse_mirror() {
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' 'Component: main' 'Origin: Debian' | head -n 1)
  if [[ $# == 2 && $1 == --mirror ]]; then
    mirror=$2
  elif (($#)); then
    die "usage: $script [--mirror URL]" 2
  fi
  [[ -n $mirror ]] || die "this machine's apt has no source of Debian 12; name one by --mirror."
  [[ $(id -u) == 0 ]] || die "only root can set up a system in a folder; run this as root."
}

# set_up_debian LOG: sets `debian`, the folder.
set_up_debian() {
  step="setting up a clean Debian 12"
  debian=$(mktemp -d)
  trap 'rm -rf --one-file-system "$debian"' EXIT
  say "$step from $mirror"
  debootstrap --variant=minbase bookworm "$debian" "$mirror" >"$1" || die "Debian 12 cannot be set up; $1 says why."
}

# In namespaces of its own, so that its /proc goes away with the command.
in_debian() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    unshare --pid --fork --mount-proc="$debian/proc" chroot "$debian" "$@"
}
