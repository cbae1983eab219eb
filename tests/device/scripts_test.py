#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Runs the scripts of the virtual device with stand-ins for all that they start: what they say when something is wrong,
and that they leave nothing behind.

usage: scripts_test.py PROJECT
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROJECT = sys.argv.pop(1)
# In place of scripts and programs: what each of them does unless a test says otherwise.
SCRIPTS = {
    "scripts/setup": "",
    "scripts/build-release": "echo 'Building build/release'",
    "device/packages": "echo packages",
    "device/image": "echo images",
    "device/test.py": 'echo "test.py $*"; touch "$5/report"',
    "device/boot_times.py": 'echo "boot_times.py $*"',
    "device/console.py": 'echo "console.py $*"',
    "build/release/bin/krv-package-signature": 'echo "  signature 1: developer"',
}
PROGRAMS = {
    "cmake": "",
    "id": "echo 0",
    "unshare": 'while [[ $1 == -* ]]; do shift; done; exec "$@"',
    "apt-get": "echo http://mirror",
    "apt-config": "",
    "dpkg": "echo amd64",
    "mmdebstrap": "",
}


class Scripts(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.temporary = os.path.join(self.folder, "temporary")
        os.mkdir(self.temporary)
        for script in ("scripts/device", "scripts/device-test", "scripts/mirror.bash", "scripts/options.bash",
                       "device/common.bash", "device/base"):
            target = os.path.join(self.folder, "project", script)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(os.path.join(PROJECT, script), target)
        for script, commands in SCRIPTS.items():
            self.stand_in("project/" + script, commands)
        for program, commands in PROGRAMS.items():
            self.stand_in("bin/" + program, commands)
        self.environment = {**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}", "TMPDIR": self.temporary,
                            "XDG_CACHE_HOME": os.path.join(self.folder, "cache"), "LC_ALL": "C"}
        self.environment.pop("KRV_DEVICE_IN_NAMESPACE", None)

    def stand_in(self, path, commands):
        path = os.path.join(self.folder, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"#!/usr/bin/env bash\n{commands}\n")
        os.chmod(path, 0o755)

    def run_script(self, script, *arguments):
        result = subprocess.run([os.path.join(self.folder, "project", script), *arguments], text=True, check=False,
                                env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                stdin=subprocess.DEVNULL, cwd=self.folder)
        self.assertEqual(os.listdir(self.temporary), [], "something is left in the temporary folder")
        return result

    def assert_refused(self, message, script, *arguments):
        """Status 2, and one line on standard error."""
        result = self.run_script(script, *arguments)
        self.assertEqual((result.stderr, result.returncode), (message + "\n", 2))


class DeviceTest(Scripts):
    def test_passes_on_the_status_of_the_test(self):
        for status in (0, 1, 2):
            self.stand_in("project/device/test.py", f"exit {status}")
            self.assertEqual(self.run_script("scripts/device-test").returncode, status)

    def test_keeps_the_files_of_the_test_if_asked(self):
        kept = os.path.join(self.folder, "kept")
        result = self.run_script("scripts/device-test", "--keep", kept, "--seed", "5")
        project = os.path.join(self.folder, "project")
        self.assertEqual(result.stdout, "Building build/release\n"
                         f"test.py {project} images packages {project}/build/release/bin {kept} 5\n")
        self.assertEqual(os.listdir(kept), ["report"])
        self.assert_refused(f"scripts/device-test: {kept} is there already and no empty folder", "scripts/device-test", "--keep", kept)

    def test_measures_boot_times(self):
        result = self.run_script("scripts/device-test", "--boot-times")
        self.assertRegex(result.stdout, r"(?m)^boot_times\.py images packages ")

    def test_refuses_wrong_arguments(self):
        self.assert_refused("scripts/device-test: unknown option: --speed; --help explains", "scripts/device-test", "--speed")
        self.assert_refused("scripts/device-test: --keep needs a value", "scripts/device-test", "--keep")
        self.assert_refused("scripts/device-test: the seed is no number: x", "scripts/device-test", "--seed", "x")

    def test_says_which_tool_is_missing(self):
        self.stand_in("project/scripts/setup", "echo 'Installing: qemu-system-x86'; echo noise >&2; "
                      "echo 'scripts/setup: still missing after installation: qemu-system-x86' >&2; exit 1")
        self.assert_refused("scripts/device-test: the tools for the virtual device are not there: "
                            "scripts/setup: still missing after installation: qemu-system-x86", "scripts/device-test")

    def test_needs_root_or_user_namespaces(self):
        self.stand_in("bin/id", "echo 1000")
        self.stand_in("bin/unshare", "exit 1")
        self.assert_refused("scripts/device-test: needs root, or user namespaces with newuidmap and a range in /etc/subuid",
                            "scripts/device-test")

    def test_runs_in_a_user_namespace(self):
        self.stand_in("bin/id", "echo 1000")
        result = self.run_script("scripts/device-test", "--seed", "5")
        self.assertEqual(result.stdout.count("Building"), 1)
        self.assertRegex(result.stdout, r"(?m)^test\.py .* 5$")

    def test_needs_space(self):
        self.stand_in("bin/df", "echo Avail; echo 3999")
        self.assert_refused(f"scripts/device-test: no space: 4000 MiB are needed below {self.temporary} (TMPDIR moves it), and 3999 "
                            "are free", "scripts/device-test")

    def test_ends_if_the_image_cannot_be_made(self):
        self.stand_in("project/device/image", "echo 'image: no luck' >&2; exit 2")
        self.assert_refused("image: no luck", "scripts/device-test")

    def test_ends_all_that_it_has_started_at_a_signal(self):
        for script in ("device/image", "device/test.py"):
            with self.subTest(script):
                self.stand_in("project/" + script, f"echo $$ >{self.folder}/pid; sleep 1000")
                self.end_by_signal(os.path.join(self.folder, "pid"))

    def end_by_signal(self, pid):
        with subprocess.Popen([os.path.join(self.folder, "project/scripts/device-test")], env=self.environment,
                              stdout=subprocess.DEVNULL) as script:
            end = time.monotonic() + 30
            while not (os.path.exists(pid) and os.path.getsize(pid)):
                self.assertLess(time.monotonic(), end, "the stand-in did not start")
                time.sleep(0.01)
            script.send_signal(signal.SIGTERM)
            self.assertEqual(script.wait(30), 143)
        with open(pid, encoding="utf-8") as file:
            self.assertFalse(os.path.exists(f"/proc/{file.read().strip()}"), "the stand-in is still running")
        os.unlink(pid)
        self.assertEqual(os.listdir(self.temporary), [])


class Base(Scripts):
    def test_says_that_there_is_no_kernel_package(self):
        self.stand_in("bin/mmdebstrap", "echo 'I: running'; echo 'E: no kernel package linux-image-cloud-amd64'; "
                      "echo 'E: run_hooks failed'; exit 1")
        result = self.run_script("device/base")
        self.assertEqual(result.stderr.splitlines()[-1],
                         "device/base: mmdebstrap failed: E: no kernel package linux-image-cloud-amd64")
        self.assertEqual(result.returncode, 2)
        self.assertEqual(os.listdir(os.path.join(self.folder, "cache/krv-pre-installer/device")), [])

    def test_needs_space(self):
        self.stand_in("bin/df", "echo Avail; echo 1499")
        cache = os.path.join(self.folder, "cache/krv-pre-installer/device")
        self.assert_refused(f"device/base: no space: 1500 MiB are needed in {cache}, and 1499 are free", "device/base")

    def test_needs_amd64(self):
        self.stand_in("bin/dpkg", "echo arm64")
        self.assert_refused("device/base: the virtual device needs a Debian of amd64", "device/base")


class Device(Scripts):
    def package(self, name="my.rpm"):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write("content")
        return path

    def test_boots_with_copies_of_the_packages(self):
        result = self.run_script("scripts/device", self.package(), self.package("two words.rpm"), "--", "echo", "a b")
        self.assertRegex(result.stdout, r"(?m)^console\.py images (\S+) \1/disk echo a\\ b  \1/packages/my\.rpm "
                                        r"\1/packages/two words\.rpm$")
        self.assertEqual(result.returncode, 0)

    def test_boots_without_packages(self):
        result = self.run_script("scripts/device", "--disk", "kept")
        self.assertRegex(result.stdout, r"(?m)^console\.py images \S+ kept $")

    def test_signs_a_copy_of_an_unsigned_package(self):
        self.stand_in("project/build/release/bin/krv-package-signature",
                      f'[ "$1" = show ] || echo "$*" >>{self.folder}/signed')
        package = self.package()
        result = self.run_script("scripts/device", package)
        self.assertIn(f"Signing a copy of {package}\n", result.stdout)
        with open(os.path.join(self.folder, "signed"), encoding="utf-8") as file:
            self.assertRegex(file.read(), r"^sign --key packages/alice.key.pem --cert packages/alice.pem "
                                          r"/\S+/packages/my.rpm\n$")

    def test_refuses_wrong_arguments(self):
        self.assert_refused("scripts/device: unknown option: -x; --help explains", "scripts/device", "-x")
        self.assert_refused("scripts/device: no such file: none.rpm", "scripts/device", "none.rpm")
        self.assert_refused("scripts/device: no command after --", "scripts/device", "--")
        self.assert_refused("scripts/device: --disk needs a value", "scripts/device", "--disk")


if __name__ == "__main__":
    unittest.main()
