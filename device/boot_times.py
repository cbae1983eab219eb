#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Measures how long a boot of the virtual device waits for the tool; prints the rows for docs/performance.md.

usage: boot_times.py IMAGES PACKAGES FOLDER

Nothing else runs beside a boot. Each figure is the median of KRV_BENCH_PAIRS boots, by default three, with the smallest
and the largest. The last one is the ratio to the boot without the unit in the same round. scripts/device-test --boot-times
calls this.
"""
import os
import statistics
import sys

import disk
from expect import Scene
from machine import accelerator, die_with_parent
from stage import Device

ROUNDS = int(os.environ.get("KRV_BENCH_PAIRS", "3"))
YARDSTICK = "without the unit"
MASK = "systemd.mask=krv-pre-installer.service"


def apps(count):
    return [f"apps/1.0/app{number:03}" for number in range(1, count + 1)]


def boot(device, path, arguments):
    """Seconds in the unit, and from the start of the kernel until logins are allowed."""
    report = device.boot(device.make("boot times"), path, ["krv.steps=boot", *arguments])
    scene = Scene(report, "boot")
    times = scene.values("times")
    unit = int(times["ExecMainExitTimestampMonotonic"]) - int(times["ExecMainStartTimestampMonotonic"])
    return unit / 1e6, scene.order()["systemd-user-sessions.service"]["InactiveExitTimestampMonotonic"] / 1e6


def figure(values):
    return f"{statistics.median(values):6.2f} s ({min(values):.2f}-{max(values):.2f})"


def main(arguments):
    die_with_parent()
    images, packages, folder = arguments
    device = Device(images, packages, folder, accelerator(os.path.join(images, "vmlinuz"), folder), print)
    path = os.path.join(folder, "disk")
    rows = {}
    for _ in range(ROUNDS):
        for count in (None, 0, 20, 100):
            disk.copy(os.path.join(images, "dbus-daemon.ext4"), path)
            changes = disk.Disk(path)
            changes.ship([device.path_of(package) for package in apps(count or 0)])
            changes.apply()
            if count is None:
                rows.setdefault(YARDSTICK, []).append(boot(device, path, [MASK]))
                continue
            rows.setdefault(f"{count} packages, first boot", []).append(boot(device, path, []))
            if count:
                rows.setdefault(f"{count} packages, second boot", []).append(boot(device, path, []))
    without = [logins for _, logins in rows[YARDSTICK]]
    print(f"{'boot':26}  {'in the unit':23}  {'logins allowed after':23}   ratio (spread)")
    for name, values in rows.items():
        units, logins = zip(*values)
        ratios = [own / yardstick for own, yardstick in zip(logins, without)]
        ratio = f"{statistics.median(ratios):5.2f} ({min(ratios):.2f}-{max(ratios):.2f})"
        print(f"{name:26}  {figure(units):23}  {figure(logins):23}  {ratio}")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
