# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Sourced by the sandbox and by the benchmarks.

# Prints a dbus-daemon configuration for a system bus that allows everything. The address must not need escapes in XML.
bus_configuration() { # address, [further elements]
  cat <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>$1</listen>
  <auth>EXTERNAL</auth>
  ${2:-}
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
}
