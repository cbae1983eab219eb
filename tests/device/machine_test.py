#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Tests how the virtual device is started, waited for and ended, with a stand-in for QEMU.

usage: machine_test.py PROJECT
"""
import io
import os
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile
import time
import unittest
import unittest.mock

sys.dont_write_bytecode = True
DEVICE = os.path.join(sys.argv.pop(1), "device")
sys.path.insert(0, DEVICE)

from machine import Machine, NoReport, NotStarted, accelerator  # noqa: E402

# Finds the files of the two serial ports, the console first, and then does what the test says.
QEMU = """#!/usr/bin/env bash
ports=()
for argument; do
  case $argument in file:*) ports+=("${argument#file:}") ;; esac
done
console=${ports[0]} report=${ports[1]:-}
echo $$ >"$FOLDER/pid"
"""


class WithQemu(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        path = os.environ["PATH"]
        self.addCleanup(os.environ.__setitem__, "PATH", path)
        os.environ.update(PATH=f"{self.folder}/bin:{path}", FOLDER=self.folder)
        os.mkdir(os.path.join(self.folder, "bin"))

    def qemu(self, commands):
        path = os.path.join(self.folder, "bin/qemu-system-x86_64")
        with open(path, "w", encoding="utf-8") as file:
            file.write(QEMU + commands)
        os.chmod(path, 0o755)

    def report(self, limit=30):
        machine = Machine(self.folder, self.folder, os.path.join(self.folder, "disk"), "tcg")
        machine.start()
        return machine.report(limit)

    def failure(self, limit=30):
        with self.assertRaises(NoReport) as caught:
            self.report(limit)
        return str(caught.exception)

    def await_pid(self):
        path = os.path.join(self.folder, "pid")
        end = time.monotonic() + 30
        while time.monotonic() < end:
            if os.path.exists(path) and os.path.getsize(path):
                with open(path, encoding="utf-8") as file:
                    return int(file.read())
            time.sleep(0.01)
        raise AssertionError("the stand-in for QEMU did not start")

    def assert_gone(self, pid):
        end = time.monotonic() + 30
        while is_running(pid):
            self.assertLess(time.monotonic(), end, "QEMU is still running")
            time.sleep(0.01)


def is_running(pid):
    """Whether it runs; a zombie that waits for its parent does not."""
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except FileNotFoundError:
        return False


class Report(WithQemu):
    def test_is_what_the_device_sent(self):
        archive = io.BytesIO()
        with tarfile.open(fileobj=archive, mode="w:gz") as tar:
            for name, text in (("./boot/log", b"a line\n"), ("./journal", b"\xff")):
                entry = tarfile.TarInfo(name)
                entry.size = len(text)
                tar.addfile(entry, io.BytesIO(text))
        with open(os.path.join(self.folder, "sent"), "wb") as file:
            file.write(archive.getvalue())
        self.qemu('cp "$FOLDER/sent" "$report"')
        self.assertEqual(self.report(), {"boot/log": "a line\n", "journal": "\ufffd"})

    def test_notices_early_that_the_kernel_does_not_start(self):
        self.qemu(': >"$console"; exec sleep 1000')
        with unittest.mock.patch("machine.START_LIMIT", 1), self.assertRaises(NotStarted) as caught:
            self.report()
        self.assertEqual(str(caught.exception), "nothing on the device's console within 1 seconds")
        self.assert_gone(self.await_pid())

    def test_is_missing_if_the_device_never_ends(self):
        self.qemu('echo "one line" >"$console"; echo "waiting for ever" >>"$console"; exec sleep 1000')
        self.assertEqual(self.failure(limit=1),
                         "no report from the device within 1 seconds; the console's last line is: waiting for ever")
        self.assert_gone(self.await_pid())

    def test_is_missing_if_the_device_ends_without_one(self):
        self.qemu('echo "Kernel panic" >"$console"; : >"$report"')
        self.assertRegex(self.failure(), r"^no whole report from the device \(.*\); the console's last line is: Kernel panic$")

    def test_is_missing_if_it_is_cut(self):
        self.qemu('echo x | gzip | head -c 15 >"$report"; : >"$console"')
        self.assertRegex(self.failure(), r"^no whole report from the device \(.*\); the console is empty$")

    def test_is_missing_if_qemu_fails(self):
        self.qemu('echo "qemu: no such machine" >&2; exit 1')
        self.assertEqual(self.failure(), "QEMU failed: qemu: no such machine")


class Kvm(WithQemu):
    def test_is_used_only_if_a_guest_runs(self):
        if not os.access("/dev/kvm", os.R_OK | os.W_OK):
            self.skipTest("there is no /dev/kvm")
        self.qemu('echo "Linux version 6" >"$console"; exec sleep 1000')
        self.assertEqual(accelerator("kernel", self.folder), "kvm")
        self.assert_gone(self.await_pid())
        self.qemu('echo "emulation failure" >&2; exit 1')
        self.assertEqual(accelerator("kernel", self.folder), "tcg")


class Machines(WithQemu):
    def test_end_with_the_process_that_started_them(self):
        self.qemu("exec sleep 1000")
        program = ("import sys; sys.path.insert(0, sys.argv[1]); from machine import Machine\n"
                   "machine = Machine(sys.argv[2], sys.argv[2], 'disk', 'tcg'); machine.start(); machine.report(1000)")
        with subprocess.Popen([sys.executable, "-B", "-c", program, DEVICE, self.folder]) as parent:
            pid = self.await_pid()
            parent.send_signal(signal.SIGKILL)
        self.assert_gone(pid)


if __name__ == "__main__":
    unittest.main()
