#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Tests the replay of recordings without a virtual machine: a real file system, on which the real service has installed a
package, and recordings that are made here from the difference of two disks.

usage: replay_test.py PROJECT PROGRAMS LIBRARIES
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
PROJECT, PROGRAMS, LIBRARIES = sys.argv[1:4]
del sys.argv[1:4]
sys.path.insert(0, os.path.join(PROJECT, "device"))
os.environ["PATH"] += ":/usr/sbin:/sbin"

import disk  # noqa: E402
from judge import State, judge, manifests  # noqa: E402
from replay import Inspector, Replica  # noqa: E402
from write_log import MAGIC, WriteLog  # noqa: E402

SECTOR, BLOCK = 512, 4096

# A device in the folder DEVICE without packages, in BEFORE a copy of it, and then with the package installed.
MAKE = """
set -eu
source "$1/sandbox/environment.bash"
enter_sandbox "$2" "$3/sandbox"
make_device
mkdir -p "$KRV_ROOT_FS/opt"
build notes 1.0 1
sign notes-1.0-1 alice
start_bus_and_service
stop service
cp -a "$KRV_ROOT_FS" "$3/before"
start service ready krv-sandbox-service
cp "$folder/packages/notes-1.0-1.rpm" "$image/"
krv-pre-installer >/dev/null
stop service
cp -a "$KRV_ROOT_FS" "$3/device"
cp "$folder/packages/notes-1.0-1.rpm" "$3/"
"""


def setUpModule():
    global FOLDER
    FOLDER = tempfile.mkdtemp()
    unittest.addModuleCleanup(shutil.rmtree, FOLDER, ignore_errors=True)
    subprocess.run(["bash", "-c", MAKE, "bash", PROJECT, PROGRAMS, FOLDER], check=True)
    make_disk(os.path.join(FOLDER, "before"), os.path.join(FOLDER, "before.ext4"))
    # The other disk is changed in place, so that only blocks differ that an installation changes.
    after = os.path.join(FOLDER, "after.ext4")
    shutil.copy(os.path.join(FOLDER, "before.ext4"), after)
    device = os.path.join(FOLDER, "device")
    commands = ["mkdir /opt/notes"]
    for path in ("opt/notes/about.txt", "var/lib/krv/registry", "var/lib/rpm/rpmdb.sqlite"):
        commands += [f"rm /{path}", f"write {os.path.join(device, path)} /{path}"]
    disk.debugfs(after, commands, writable=True)


def make_disk(tree, path):
    subprocess.run(["mke2fs", "-q", "-t", "ext4", "-d", tree, path, "16M"], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def blocks_of(path):
    with open(path, "rb") as file:
        yield from iter(lambda: file.read(BLOCK), b"")


class Replay(unittest.TestCase):
    def setUp(self):
        # A path with a space, and too long for a socket.
        self.folder = os.path.join(tempfile.mkdtemp(dir=FOLDER), "long " * 30 + "path")
        os.mkdir(self.folder)
        self.before = os.path.join(FOLDER, "before.ext4")
        self.after = os.path.join(self.folder, "after.ext4")
        shutil.copy(os.path.join(FOLDER, "after.ext4"), self.after)
        self.contents = manifests([os.path.join(FOLDER, "notes-1.0-1.rpm")])
        with open(os.path.join(FOLDER, "device/var/lib/krv/registry"), encoding="utf-8") as file:
            self.registry = file.read()
        self.old = State("", frozenset())
        self.new = State(self.registry, frozenset(["notes-1.0-1"]))

    def log(self):
        """The log of a disk that goes from `before` to `after`."""
        requests = [(number, new) for number, (old, new) in
                    enumerate(zip(blocks_of(self.before), blocks_of(self.after))) if old != new]
        path = os.path.join(self.folder, "log")
        with open(path, "wb") as file:
            file.write(struct.pack("<QQQI", MAGIC, 1, len(requests), SECTOR).ljust(SECTOR, b"\0"))
            for number, data in requests:
                file.write(struct.pack("<QQQQ", number * BLOCK // SECTOR, BLOCK // SECTOR, 0, 0).ljust(SECTOR, b"\0"))
                file.write(data)
        return WriteLog(path)

    def complaints(self, allowed, count=None):
        """The mistakes after the first requests of the log, or after all of them."""
        log = self.log()
        replica = Replica(self.before, os.path.join(self.folder, "replica"), log)
        for entry in log.entries[:count]:
            replica.apply(entry)
        with open(replica.path, "rb") as file:
            content = file.read()
        inspector = Inspector(self.folder, PROJECT, PROGRAMS, LIBRARIES)
        self.addCleanup(inspector.close)
        found = inspector.look(replica.path)
        with open(replica.path, "rb") as file:
            self.assertEqual(file.read(), content, "the look has changed the disk")
        replica.close()
        return judge(found, allowed, self.contents)

    def change(self, *commands):
        disk.debugfs(self.after, commands, writable=True)

    def test_finds_nothing_wrong_with_a_whole_device(self):
        self.assertEqual(self.complaints([self.new]), [])
        self.assertEqual(self.complaints([self.old], count=0), [])

    def test_finds_that_an_acknowledged_installation_is_lost(self):
        self.assertIn("not in the database: notes-1.0-1", self.complaints([self.new], count=0))

    def test_finds_a_lost_file(self):
        self.change("rm /opt/notes/about.txt")
        self.assertEqual(self.complaints([self.new]), ["missing: /opt/notes/about.txt"])

    def test_finds_an_empty_file(self):
        self.change("rm /opt/notes/about.txt", "write /dev/null /opt/notes/about.txt",
                    "sif /opt/notes/about.txt mode 0100644")
        self.assertRegex(";".join(self.complaints([self.new])), "^empty: /opt/notes/about.txt [^;]*$")

    def test_finds_a_torn_registry(self):
        torn = os.path.join(self.folder, "torn")
        with open(torn, "w", encoding="utf-8") as file:
            file.write(self.registry[:-10])
        self.change("rm /var/lib/krv/registry", f"write {disk.quoted(torn)} /var/lib/krv/registry")
        self.assertIn("before the service starts, the registry is torn", self.complaints([self.new]))

    def test_finds_a_damaged_database(self):
        self.change("rm /var/lib/rpm/rpmdb.sqlite", f"write {disk.quoted(__file__)} /var/lib/rpm/rpmdb.sqlite")
        self.assertRegex(";".join(self.complaints([self.new])), "^the service does not start: ")

    def test_finds_a_damaged_file_system(self):
        self.change("clri /opt/notes")
        self.assertRegex(";".join(self.complaints([self.new])), "^the file system is damaged: ")

    def test_restores_what_a_single_write_has_replaced(self):
        log = self.log()
        replica = Replica(self.before, os.path.join(self.folder, "replica"), log)
        saved = replica.save(log.entries)
        for entry in log.entries:
            replica.apply(entry)
        replica.restore(saved)
        replica.close()
        with open(self.before, "rb") as old, open(replica.path, "rb") as new:
            self.assertEqual(old.read(), new.read())


if __name__ == "__main__":
    unittest.main()
