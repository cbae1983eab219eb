#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Boots the virtual device with packages of its user, and gives a console.

usage: console.py IMAGES FOLDER DISK COMMAND PACKAGE...

IMAGES is from device/image. DISK is booted if it is there, and made if it is not. COMMAND is run instead of a shell
unless it is empty. FOLDER takes what is temporary. scripts/device calls this.
"""
import os
import signal
import sys

import disk
from machine import Machine, accelerator

TOOL_DROP_IN = "/etc/systemd/system/krv-pre-installer.service.d/console.conf"
GETTY_DROP_IN = "/etc/systemd/system/console-getty.service.d/autologin.conf"
GREETING = """
You are root on the virtual device. For example:
  journalctl -b -u krv-pre-installer
  rpm -qa
  cat /var/lib/krv/registry
  dbus-send --system --print-reply --dest=velta.KRV /velta/KRV velta.KRV.Remove string:NAME
Switch it off with poweroff, or at once with Ctrl-A X.
"""


def main(arguments):
    images, folder, path, command, *packages = arguments
    for number in (signal.SIGHUP, signal.SIGTERM):
        signal.signal(number, lambda received, _: sys.exit(128 + received))
    if not os.path.exists(path):
        disk.copy(os.path.join(images, "dbus-daemon.ext4"), path)
    changes = disk.Disk(path)
    changes.ship(packages)
    changes.write(TOOL_DROP_IN, "[Service]\nStandardOutput=journal+console\n")
    changes.write(GETTY_DROP_IN, "[Service]\nExecStart=\n"
                  "ExecStart=-/sbin/agetty --autologin root --noissue --noclear --keep-baud - 115200 vt220\n")
    changes.write("/etc/profile.d/krv-device.sh", f"{command}\npoweroff --force --force\n" if command
                  else f"cat <<'END'\n{GREETING}END\n")
    changes.apply()
    machine = Machine(folder, images, path, accelerator(os.path.join(images, "vmlinuz"), folder), console="mon:stdio",
                      arguments=["systemd.show_status=" + ("0" if command else "1")])
    return machine.run()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
