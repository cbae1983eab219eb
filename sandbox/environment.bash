# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Sourced by sandbox/demo and sandbox/shell: a simulated device in a folder, with a bus and the package-manager service.
#
#   device/     the root of its file system: image packages, installed files, database, registry
#   home/       HOME: its .rpmmacros makes every rpm command use the device's database. A kept demo also has a
#               configuration of a bus there, which starts the service
#   packages/   packages that an image can carry
#   pki/        the keys and certificates of sandbox/make-pki
#   run/        the bus's socket, the service's log and similar files, while bus and service run
set -euo pipefail
unset CDPATH

scripts=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
source "$scripts/bus.bash"
folder=
is_temporary=no # if yes: remove at the end the folder with everything in it;
is_new=no       # the folder, which this run has made, if nothing else is in it;
is_doomed=no    # the device and the other folders in it;
is_open=no      # run/
declare -A process=()

fail() { # message
  echo "${0##*/}: $1" >&2
  exit 1
}

# Runs at every exit: stops all processes and removes everything that should not stay.
clean_up() {
  trap '' HUP INT TERM
  # Not ${process[@]}: a signal may arrive before the newest process is in it.
  local running
  mapfile -t running < <(jobs -p)
  [ ${#running[@]} = 0 ] || kill "${running[@]}" 2>/dev/null || true
  wait ${process[@]+"${process[@]}"} || true
  [ -n "$folder" ] || return 0
  [ "$is_temporary" = no ] || rm -rf -- "$folder"
  [ "$is_open" = no ] || rm -rf -- "$folder/run"
  [ "$is_doomed" = no ] || rm -rf -- "$folder"/{device,home,packages,pki,run}
  [ "$is_new" = no ] || [ ! -e "$folder" ] || rmdir -- "$folder"
}

# Escapes a path for a bus address, where many characters have a meaning. The result needs no escapes in XML either.
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

# Sets the folder of the sandbox, and the environment in which all programs find it.
enter_sandbox() { # folder of the built programs; folder of the sandbox, or nothing for a temporary one
  trap clean_up EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  bin=$(cd -- "$1" && pwd)
  if [ -z "$2" ]; then
    is_temporary=yes
    folder=$(mktemp -d "${TMPDIR:-/tmp}/krv-sandbox.XXXXXX")
  elif [ -e "$2" ]; then
    folder=$(cd -- "$2" && pwd)
  else
    folder=$(realpath -m -- "$2")
    is_new=yes # before the folder is made, because a signal may arrive between the two
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

# Fails if the sandbox is already in use, to leave the bus and the service of another shell alone.
open_run() {
  mkdir -- "$folder/run" 2>/dev/null ||
    fail "$folder is in use (if not, a process was killed there: remove $folder/run)"
  is_open=yes
}

# Makes a device with only an image folder and a trusted authority. It is removed at the end unless keep_device is
# called.
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

# The bus and the service

# Starts a program in the background and returns when it has printed a line with this beginning.
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
