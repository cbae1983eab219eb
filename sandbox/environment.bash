# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# To be sourced: what sandbox/demo and sandbox/shell have in common, a make-believe device in a folder of its own with a
# bus and the package-manager service.
#
#   device/     the root of its file system: the image's packages, what is installed, the database, the registry
#   home/       HOME: its .rpmmacros make the device's database that of every rpm command
#   packages/   packages that an image can carry
#   pki/        the keys and certificates of sandbox/make-pki
#   run/        the bus, the service's log and the like: there while bus and service run
set -euo pipefail
unset CDPATH

scripts=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
source "$scripts/bus.bash"
folder=
is_new=no    # whether this run has made the folder, which goes at the end then,
is_doomed=no # the device and all that belongs to it,
is_open=no   # and run/
declare -A process=()

fail() { # message
  echo "${0##*/}: $1" >&2
  exit 1
}

# However it ends, nothing runs on, and only what is wanted stays.
clean_up() {
  trap '' HUP INT TERM
  # Not the list of processes: a signal may have come before the newest one was put down there.
  local running
  mapfile -t running < <(jobs -p)
  [ ${#running[@]} = 0 ] || kill "${running[@]}" 2>/dev/null || true
  wait ${process[@]+"${process[@]}"} || true
  [ -n "$folder" ] || return 0
  [ "$is_open" = no ] || rm -rf -- "$folder/run"
  [ "$is_doomed" = no ] || rm -rf -- "$folder"/{device,home,packages,pki,run}
  [ "$is_new" = no ] || [ ! -e "$folder" ] || rmdir -- "$folder"
}

# A path as a bus address holds it, where many characters have a meaning. Nothing remains that XML would mind either.
escaped() { # path
  local LC_ALL=C i character
  for ((i = 0; i < ${#1}; ++i)); do
    character=${1:i:1}
    case $character in
      [-_/.0-9A-Za-z]) printf %s "$character" ;;
      *) printf '%%%02x' $(($(printf %d "'$character") & 255)) ;;
    esac
  done
}

# Decides where the sandbox is, and gives all programs the environment in which they find it.
enter_sandbox() { # folder of the built programs; folder of the sandbox, or nothing for a temporary one
  trap clean_up EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  bin=$(cd -- "$1" && pwd)
  # What is to go is put down before it is made: a signal may come in between.
  if [ -z "$2" ]; then
    is_new=yes
    folder=$(mktemp -d "${TMPDIR:-/tmp}/krv-sandbox.XXXXXX")
  elif [ -e "$2" ]; then
    folder=$(cd -- "$2" && pwd)
  else
    folder=$(realpath -m -- "$2")
    is_new=yes
    mkdir -- "$folder" || { is_new=no; exit 1; }
  fi
  image=$folder/device/usr/share/krv/pre-install-apps
  export PATH=$bin:$PATH
  export HOME=$folder/home
  export KRV_ROOT_FS=$folder/device
  DBUS_SYSTEM_BUS_ADDRESS=unix:path=$(escaped "$folder/run/bus")
  export DBUS_SYSTEM_BUS_ADDRESS
}

is_empty() { # folder
  [ -z "$(ls -A -- "$1")" ]
}

# Fails when the sandbox is open already: the bus and the service of another shell are not to be disturbed.
open_run() {
  mkdir -- "$folder/run" 2>/dev/null ||
    fail "$folder is in use (if it is not, because something was killed there: remove $folder/run)"
  is_open=yes
}

# A device with nothing but an image folder and an authority that it trusts. It goes at the end unless it is kept.
make_device() {
  is_doomed=yes
  open_run
  mkdir -p -- "$image" "$KRV_ROOT_FS/etc/krv" "$HOME" "$folder/packages"
  echo "%_dbpath ${KRV_ROOT_FS//%/%%}/var/lib/rpm" >"$HOME/.rpmmacros"
  "$scripts/make-pki" "$folder/pki"
  cp -r -- "$folder/pki/trusted-ca" "$KRV_ROOT_FS/etc/krv/trusted-ca"
}

keep_device() {
  is_doomed=no
  is_new=no
}

# Packages and signatures

build() { # name, version, release
  local work=$folder/run/build
  mkdir -p -- "$work"
  cat >"$work/package.spec" <<END
Name: $1
Version: $2
Release: $3
Summary: A demo application
License: MIT
BuildArch: noarch
%description
A demo application.
%install
mkdir -p "%{buildroot}/opt/$1"
echo "$1 $2-$3" >"%{buildroot}/opt/$1/about.txt"
%files
/opt/$1
END
  rpmbuild -bb --quiet --define "_topdir ${work//%/%%}" --define "_rpmdir ${folder//%/%%}/packages" \
    --define '_build_name_fmt %{NAME}-%{VERSION}-%{RELEASE}.rpm' "$work/package.spec" >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; exit 1; }
}

sign() { # package, signer, [earlier key]...
  local package=$folder/packages/$1.rpm signer=$2 previous=() earlier
  shift 2
  for earlier; do previous+=(--previous "$folder/pki/$earlier.key.pem,$folder/pki/$earlier.pem"); done
  krv-package-signature sign --key "$folder/pki/$signer.key.pem" --cert "$folder/pki/$signer.pem" \
    ${previous[@]+"${previous[@]}"} "$package"
}

# The bus and the service on it

# Starts a program in the background and returns when it has written a certain line.
start() { # name, how that line begins, command...
  local name=$1 greeting=$2 output=$folder/run/$1.log
  shift 2
  : >"$output"
  "$@" >"$output" 2>&1 &
  process[$name]=$!
  until grep -q "^$greeting" "$output"; do
    kill -0 "${process[$name]}" 2>/dev/null || { cat "$output" >&2; exit 1; }
    sleep 0.01
  done
}

stop() { # name
  kill "${process[$1]}"
  wait "${process[$1]}"
  unset "process[$1]"
}

start_bus_and_service() {
  bus_configuration "$DBUS_SYSTEM_BUS_ADDRESS" >"$folder/run/bus.conf"
  start bus unix: dbus-daemon --config-file="$folder/run/bus.conf" --nofork --print-address
  start service ready krv-sandbox-service
}
