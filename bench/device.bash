# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Sourced by the cases: the environment of a run of the tool, in a temporary folder that is deleted when the case ends.
#
#   $bin       the programs of the release preset
#   $apps      the pre-install directory below a root
#   $work      the folder; HOME is in it, with its own RPM database. The database path is a plain one, because Debian's
#              default runs a shell to find the home directory
#
# The folder is below the build folder, or below KRV_BENCH_DIRECTORY, on a disk with 7 GiB free.

source sandbox/bus.bash
bin=$PWD/build/release/bin
apps=usr/share/krv/pre-install-apps
work=$(mktemp -d -p "$(realpath "${KRV_BENCH_DIRECTORY:-build}")" bench-XXXXXX)
device_processes=()
device_clean_up() {
  [ ${#device_processes[@]} = 0 ] || kill "${device_processes[@]}" 2>/dev/null || true
  wait
  rm -rf "$work"
}
trap device_clean_up EXIT

export HOME=$work/home
mkdir "$HOME"
echo "%_dbpath $work/database" >"$HOME/.rpmmacros"

build_packages() { # spec file, folder
  rpmbuild -bb --quiet --define "_topdir $work/build" --define "_rpmdir $2" --define '_build_name_fmt %%{NAME}.rpm' \
    "$1" >"$work/rpmbuild.log" 2>&1 || { cat "$work/rpmbuild.log" >&2; return 1; }
}

# Builds the package $work/NAME.rpm; the lines are part of %install and create the files in its folder.
make_package() { # name, lines
  cat >"$work/$1.spec" <<END
Name: $1
Version: 1
Release: 1
Summary: A package
License: MIT
BuildArch: noarch
%description
A package.
%install
mkdir -p %{buildroot}/opt/$1
cd %{buildroot}/opt/$1
$2
%files
/opt/$1
END
  build_packages "$work/$1.spec" "$work"
}

sign_packages() { # package...
  [ -d "$work/pki" ] || sandbox/make-pki "$work/pki"
  "$bin/krv-package-signature" sign --key "$work/pki/alice.key.pem" --cert "$work/pki/alice.pem" "$@"
}

# Builds signed packages with five files each, application-1 to application-COUNT, in $work/packages.
make_packages() { # count
  local number
  {
    echo "%global count $1"
    cat <<'END'
Name: application
Version: 1.0
Release: 1
Summary: Applications
License: MIT
BuildArch: noarch
AutoReqProv: no
%description
Applications.
%install
mkdir -p %{buildroot}/opt
cd %{buildroot}/opt
for number in $(seq %{count}); do
  mkdir $number
  for file in a b c d e; do echo $file >$number/$file; done
done
END
    for ((number = 1; number <= $1; number++)); do
      cat <<END
%package -n application-$number
Summary: Application $number
%description -n application-$number
Application $number.
%files -n application-$number
/opt/$number
END
    done
  } >"$work/applications.spec"
  build_packages "$work/applications.spec" "$work/packages"
  sign_packages "$work"/packages/*.rpm
}

# Starts a program in the background and returns after its first line of output.
start_beside() { # name, command...
  local output=$work/$1.output
  shift
  "$@" >"$output" 2>&1 &
  device_processes+=($!)
  until [ -s "$output" ]; do
    kill -0 "${device_processes[-1]}" 2>/dev/null || { cat "$output" >&2; return 1; }
    sleep 0.01
  done
}

start_bus() {
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$work/bus
  bus_configuration "$DBUS_SYSTEM_BUS_ADDRESS" >"$work/bus.conf"
  start_beside bus dbus-daemon --config-file="$work/bus.conf" --nofork --print-address
}

start_service() { # nothing, or the version and the key of every package
  start_beside service "$bin/bench-service" "$@"
}

stop_service() {
  kill "${device_processes[-1]}"
  wait "${device_processes[-1]}" || true
  unset 'device_processes[-1]'
}

# Makes the root file system $work/NAME, for KRV_ROOT_FS, with the packages of a folder. The packages are hard links in a
# real directory, as on a device: through a symlink to the folder, each path lookup would take several times as long.
make_root() { # name [, folder]
  mkdir -p "$work/$1/$apps" "$work/$1/var/lib/krv"
  [ -z "${2:-}" ] || find "$2" -name '*.rpm' -exec ln -t "$work/$1/$apps" {} +
}

# Writes a registry with this number of records. Every hundredth is a removal of one of the packages above under another
# developer's key. Keys are as long as real ones.
make_registry() { # root, number of records
  mawk -v records="$2" 'BEGIN {
    for (key = 0; key < 50; ++key)
      keys[key] = substr(sprintf("%064d", key * 7919), 1, 64)
    for (record = 0; record < records; ++record) {
      removed = record % 100 == 0
      package = removed ? "application-" (record / 100 % 1000 + 1) : "other-" (record % 10000)
      line = "timestamp=" (1700000000 + record) " event=" (removed ? "R" : record % 2 ? "I" : "U")
      line = line " package=" package " keyid=" keys[record % 50]
      if (record % 4 == 0)
        line = line " prev-keyids=" keys[(record + 1) % 50] "->" keys[(record + 2) % 50]
      print line
    }
  }' >"$1/var/lib/krv/registry"
}
