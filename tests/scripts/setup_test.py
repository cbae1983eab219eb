#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Runs scripts/setup on stand-ins for systems without apt, on which everything is missing.

usage: setup_test.py PROJECT
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = sys.argv.pop(1)
BASICS = ["bash", "env", "dirname", "cat", "sed", "sort", "mktemp", "id", "rm"]
# systemd's macros are for the packaging alone.
ONLY_IN_THE_SPEC = {"systemd-rpm-macros"}


def build_requires():
    """The build requirements of the spec file, without those of a build with the platform's signature library."""
    with open(os.path.join(PROJECT, "packaging/krv-pre-installer.spec"), encoding="utf-8") as file:
        spec = re.sub(r"(?ms)^%if.*?^%endif$", "", file.read())
    return {line.split()[0] for line in re.findall(r"(?m)^BuildRequires: *(.*)$", spec)}


class Setup(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        for name in BASICS:
            os.symlink(shutil.which(name), os.path.join(self.folder, name))
        self.scripts = os.path.join(self.folder, "project/scripts")
        os.makedirs(self.scripts)
        for name in ("setup", "options.bash"):
            shutil.copy(os.path.join(PROJECT, "scripts", name), self.scripts)

    def run_setup(self, purpose, manager=None):
        if manager:
            path = os.path.join(self.folder, manager)
            with open(path, "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\necho started\n")
            os.chmod(path, 0o755)
        done = subprocess.run([shutil.which("bash"), os.path.join(self.scripts, "setup"), purpose],
                              env={"PATH": self.folder, "HOME": self.folder}, capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        return done.stderr

    def test_names_the_build_requirements_of_the_spec_file(self):
        for manager in ("dnf", "zypper"):
            with self.subTest(manager):
                first, command = self.run_setup("build", manager).splitlines()
                os.remove(os.path.join(self.folder, manager))
                self.assertEqual(first, "scripts/setup: programs or libraries are missing. As root, run:")
                self.assertTrue(command.startswith(f"  {manager} install "))
                names = {name.split()[0] for name in re.findall(r"'([^']*)'", command)}
                self.assertEqual(names, build_requires() - ONLY_IN_THE_SPEC)

    def test_names_programs_by_their_paths(self):
        command = self.run_setup("test", "dnf").splitlines()[1]
        self.assertIn(" '/usr/bin/gpg' ", command)
        self.assertIn(" 'pkgconfig(gtest)' ", command)

    def test_names_debian_packages_on_other_systems(self):
        self.assertRegex(self.run_setup("build"),
                         "^scripts/setup: there is no apt-get, dnf or zypper here; please install what these Debian "
                         r"packages contain: g\+\+ cmake ninja-build pkg-config .* gzip\n$")


if __name__ == "__main__":
    unittest.main()
