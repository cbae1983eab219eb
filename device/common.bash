# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# To be sourced by the scripts of the virtual device. Those in device/ print the folder of their result on standard
# output and progress on standard error. Exit status 2: something could not be made.
set -euo pipefail
unset CDPATH

device=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
project=${device%/*}
source "$project/scripts/options.bash"
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/krv-pre-installer/device

step() { echo "== $1" >&2; }

# For the scripts that users call: installs what is missing, builds the programs, and becomes root, at least in a user
# namespace.
prepare() { # script, its arguments...
  [ -z "${KRV_DEVICE_IN_NAMESPACE:-}" ] || return 0
  local said
  exec 3>&1
  said=$("$project/scripts/setup" device 2>&1 >&3) ||
    fail "the tools for the virtual device are not there: ${said##*$'\n'}"
  exec 3>&-
  "$project/scripts/build-release" || fail "the build failed"
  cmake --build "$project/build/release" --target device-guest >/dev/null ||
    fail "the programs for the virtual device could not be built"
  [ "$(id -u)" != 0 ] || return 0
  unshare --map-root-user --map-auto true 2>/dev/null ||
    fail "needs root, or user namespaces with newuidmap and a range in /etc/subuid"
  exec env KRV_DEVICE_IN_NAMESPACE=yes unshare --map-root-user --map-auto -- "$@"
}

# Runs a command in a process group of its own, which end_group ends with all that the command has started.
group=
run() { # command...
  local status=0
  set -m
  "$@" &
  group=$!
  set +m
  wait "$group" || status=$?
  group=
  return "$status"
}
end_group() {
  [ -n "$group" ] || return 0
  kill -TERM -- "-$group" 2>/dev/null || true
  wait "$group" || true
}

# Everything is made in $work, which is in the cache, so that a finished folder is moved into place by one rename.
begin() {
  mkdir -p -- "$cache" || fail "no folder for the cache: $cache"
  work=$(mktemp -d "$cache/new.XXXXXX") || fail "no folder for the cache: $cache"
  trap 'rm -rf -- "$work"' EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# A digest of files and folders: names, contents and modes.
digest() { # path...
  local path
  for path; do
    tar -c --sort=name --mtime=@0 --owner=0 --group=0 -C "$(dirname -- "$path")" -- "$(basename -- "$path")"
  done | sha256sum | head -c 16
}

# Whether the cache has the result. The time of the folder is that of its last use.
is_cached() { # folder
  [ -d "$1" ] && touch -- "$1"
}

# Moves a finished folder into the cache, and removes those of its kind that have not been used for an hour.
keep() { # finished folder, folder in the cache
  mv -T -- "$1" "$2" 2>/dev/null || [ -d "$2" ] || fail "the cache cannot be written: $2"
  find "$cache" -mindepth 1 -maxdepth 1 -name "$(basename "${2%-*}")-*" -mmin +60 -exec rm -rf -- {} +
}

require_space() { # MiB
  local free
  free=$(df --output=avail --block-size=1M "$cache" | tail -n 1)
  [ "$free" -ge "$1" ] || fail "no space: $1 MiB are needed in $cache, and $((free)) are free"
}
