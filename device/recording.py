# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Records every write of a boot, with a mark for each answer of the package-manager service."""
import os
from dataclasses import dataclass

import disk
from judge import states
from write_log import WriteLog

UNIT_DROP_IN = "/etc/systemd/system/krv-pre-installer.service.d/mark.conf"
SERVICE_DROP_IN = "/etc/systemd/system/krv-sandbox.service.d/unsynced.conf"
ROOM_FOR_MARKS = 1 << 20
ROOTS = {"nvme": "/dev/nvme0n1", "virtio": "/dev/vda"}


class RecordingFailed(Exception):
    """The recorded boot did not do what it should have done."""


@dataclass
class Recording:
    """The facts to judge a boot: the disk before it, the log of writes, what the marks acknowledge, the packages of
    the image, and all packages that were or are installed."""
    name: str
    bus: str
    before: str
    after: str
    log: str
    states: list
    marks: list
    size: int
    ship: list
    packages: list


def nevr(package):
    """NAME-VERSION-RELEASE of "apps/VERSION/NAME"."""
    _, version, name = package.split("/")
    return f"{name}-{version}-1"


def prepare(device, image, path, ship, *, bus, unsynced=False):
    """A disk for a recording: with packages of the image, and the tool marks each answer."""
    disk.copy(image, path)
    size = os.path.getsize(path)
    if size % (4 * ROOM_FOR_MARKS):
        size -= ROOM_FOR_MARKS # the disk of an earlier recording
    changes = disk.Disk(path)
    changes.ship([device.path_of(package) for package in ship])
    # The mark needs the disk, which the unit hides from the tool. The tool itself is the one of the device.
    changes.write(UNIT_DROP_IN, "[Service]\nPrivateDevices=no\nDevicePolicy=auto\n"
                  f'Environment="KRV_MARK={ROOTS[bus]} {size}" LD_PRELOAD=/usr/lib/krv-device/device-mark-shim.so\n'
                  "ExecStartPre=/usr/lib/krv-device/device-mark start\n")
    if unsynced:
        changes.write(SERVICE_DROP_IN, "[Service]\nEnvironment=LD_PRELOAD=/usr/lib/krv-device/device-unsynced-shim.so\n")
    changes.apply()
    os.truncate(path, size + ROOM_FOR_MARKS)
    return size


def record(device, name, image, ship, *, installed=(), remove=(), bus="nvme", unsynced=False):
    """Boots a copy of `image` that carries the packages `ship`, on which the packages `installed` are installed already, and where
    the user removes some after the boot. Raises RecordingFailed if not all of it was done."""
    home = device.make(name)
    before, after, log = (os.path.join(home, part) for part in ("before", "after", "log"))
    size = prepare(device, image, before, ship, bus=bus, unsynced=unsynced)
    disk.copy(before, after)
    steps = ["krv.steps=boot" + (",removals" if remove else ""), f"krv.mark={ROOTS[bus]}:{size}"]
    report = device.boot(home, after, steps + (["krv.remove=" + ",".join(remove)] if remove else []), bus=bus, log=log)

    expected = len(ship) + len(remove)
    writes = WriteLog(log)
    marked = [(index, text) for index, text in
              ((index, writes.mark(entry, size)) for index, entry in enumerate(writes.entries)) if text is not None]
    if len(marked) != expected + 1:
        raise RecordingFailed(f"{name}: {len(marked)} marks instead of {expected + 1}; the tool's log: "
                              + report.get("boot/log", "").strip()[-500:])
    versions = {os.path.basename(package): nevr(package) for package in ship}
    acknowledged = states([text for _, text in marked], versions, [nevr(package) for package in installed])
    return Recording(name, bus, before, after, log, acknowledged, [index for index, _ in marked], size, ship,
                     [*installed, *ship])
