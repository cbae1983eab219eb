#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Adds a message to a copy of the list of messages, and expects that krv-log-report no longer compiles.

usage: missing_place_test.py PROJECT COMPILER
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest

PROJECT = COMPILER = ""


class MissingPlace(unittest.TestCase):
    def compile_with(self, change):
        """Exit status and errors of compiling the places, with a changed list of messages."""
        with open(os.path.join(PROJECT, "driver/log/messages.h"), encoding="utf-8") as header:
            text = change(header.read())
        with tempfile.TemporaryDirectory() as folder:
            os.makedirs(os.path.join(folder, "driver/log"))
            with open(os.path.join(folder, "driver/log/messages.h"), "w", encoding="utf-8") as header:
                header.write(text)
            with open(os.path.join(PROJECT, "tools/krv-log-report/CMakeLists.txt"), encoding="utf-8") as settings:
                flag = re.search(r"-Werror=\S+(?=\))", settings.read()).group(0)
            done = subprocess.run([COMPILER, "-std=c++20", "-Wall", flag, "-fsyntax-only", "-I", folder, "-I", PROJECT,
                                   os.path.join(PROJECT, "tools/krv-log-report/place.cpp")],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, done.stdout

    def test_compiles_with_the_list_as_it_is(self):
        self.assertEqual(self.compile_with(lambda text: text), (0, ""))

    def test_refuses_a_message_without_a_place(self):
        last = "  DirectoryNotCleanedUp,\n"

        def add(text):
            self.assertEqual(text.count(last), 1)
            return text.replace(last, last + "  New,\n")
        status, errors = self.compile_with(add)
        self.assertEqual(status, 1)
        self.assertRegex(errors, r"error: enumeration value .New. not handled in switch")

    def test_refuses_forms_in_another_order(self):
        status, errors = self.compile_with(lambda text: text.replace("  NoProxy,\n  NoList,\n", "  NoList,\n  NoProxy,\n"))
        self.assertEqual(status, 1)
        self.assertIn("static assertion failed", errors)


if __name__ == "__main__":
    PROJECT, COMPILER = sys.argv.pop(1), sys.argv.pop(1)
    unittest.main()
