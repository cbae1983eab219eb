#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Checks that the scripts answer --help and refuse wrong arguments before they install, build or write anything.

usage: options_test.py PROJECT
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = sys.argv.pop(1)
FOLDERS = [".ci", "scripts", "sandbox", "device", "bench", "fuzz"]
SCRIPTS = [".ci/run", "bench/instructions", "fuzz/make-corpus"] + sorted(
    "scripts/" + name for name in os.listdir(os.path.join(PROJECT, "scripts"))
    if os.access(os.path.join(PROJECT, "scripts", name), os.X_OK))
# Unknown options are for ctest.
PASSING_ON = ["scripts/coverage", "scripts/test"]
# Commands that install, build or start something.
FORBIDDEN = ["apt-get", "cmake", "ctest", "ninja", "sudo", "mmdebstrap", "unshare", "rpmbuild", "clang-tidy"]

# A script that uses every form of options.
SAMPLE = """#!/usr/bin/env bash
# Tries.
#
# usage: scripts/sample [--keep DIR] [--check] X [Y] [-- COMMAND...]
#
#   --keep DIR   keeps
set -euo pipefail
source "$(dirname -- "${BASH_SOURCE[0]}")/options.bash"
read_options "--keep= --check --" 1 2 "$@"
echo "keep=$keep check=$check operands=${operands[*]} command=${command[*]}"
"""


class Options(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.project = os.path.join(self.folder, "a project")
        for name in FOLDERS:
            shutil.copytree(os.path.join(PROJECT, name), os.path.join(self.project, name),
                            ignore=shutil.ignore_patterns("corpus", "__pycache__"))
        self.started = os.path.join(self.folder, "started")
        self.programs = os.path.join(self.folder, "bin")
        os.mkdir(self.programs)
        for name in FORBIDDEN:
            self.write(os.path.join(self.programs, name), f"#!/bin/sh\necho {name} >>{self.started}\nexit 1\n")

    def write(self, path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, 0o755)

    def tree(self):
        return {os.path.join(folder, name) for folder, folders, files in os.walk(self.project) for name in folders + files
                if name != "__pycache__" and not name.endswith(".pyc")}

    def run_script(self, name, *arguments):
        """Status, output and errors; nothing may have been started or written."""
        before = self.tree()
        environment = {**os.environ, "PATH": f"{self.programs}:{os.environ['PATH']}", "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run([os.path.join(self.project, name), *arguments], cwd=self.project, env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60, check=False)
        self.assertFalse(os.path.exists(self.started))
        self.assertEqual(self.tree(), before)
        return done.returncode, done.stdout, done.stderr

    def test_prints_the_usage_of_each_script(self):
        self.assertGreater(len(SCRIPTS), 20)
        for name in SCRIPTS:
            with self.subTest(name):
                status, output, errors = self.run_script(name, "--help")
                self.assertEqual((status, errors), (0, ""))
                self.assertTrue(output.startswith(f"usage: {name}"), output)

    def test_refuses_unknown_options(self):
        for name in SCRIPTS:
            if name in PASSING_ON:
                continue
            with self.subTest(name):
                status, output, errors = self.run_script(name, "--wrong")
                self.assertEqual((status, output), (2, ""))
                self.assertRegex(errors.splitlines()[-1], f"^{name}: .*--wrong")

    def test_refuses_an_option_without_its_value(self):
        for name, option in (("scripts/test", "--preset"), ("scripts/demo", "--keep"), ("scripts/bench", "--json")):
            self.assertEqual(self.run_script(name, option), (2, "", f"{name}: {option} needs a value\n"))

    def test_reads_each_form(self):
        self.write(os.path.join(self.project, "scripts/sample"), SAMPLE)
        for arguments, expected in (
                (["a"], "keep= check= operands=a command=\n"),
                (["--keep", "d e", "a", "--check"], "keep=d e check=yes operands=a command=\n"),
                (["--keep=--check", "a", "b"], "keep=--check check= operands=a b command=\n"),
                (["a", "--", "--help", "c"], "keep= check= operands=a command=--help c\n")):
            self.assertEqual(self.run_script("scripts/sample", *arguments), (0, expected, ""))
        for arguments, reason in (
                ([], "an argument is missing; --help explains"),
                (["a", "b", "c"], "unknown argument: c; --help explains"),
                (["-x"], "unknown option: -x; --help explains"),
                (["--check=yes", "a"], "unknown option: --check=yes; --help explains"),
                (["--keep"], "--keep needs a value"),
                (["a", "--"], "no command after --")):
            self.assertEqual(self.run_script("scripts/sample", *arguments), (2, "", f"scripts/sample: {reason}\n"))

    def test_prints_the_whole_usage(self):
        self.write(os.path.join(self.project, "scripts/sample"), SAMPLE)
        self.assertEqual(self.run_script("scripts/sample", "--help"),
                         (0, "usage: scripts/sample [--keep DIR] [--check] X [Y] [-- COMMAND...]\n\n"
                             "  --keep DIR   keeps\n", ""))


if __name__ == "__main__":
    unittest.main()
