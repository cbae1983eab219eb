#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Runs scripts/on-debian with stand-ins for the programs that make and enter another system.

usage: on_debian_test.py SCRIPT

The real ones need privileges and a mirror: .ci/run uses them.
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SCRIPT = ""

REAL = ("bash", "cat", "chmod", "df", "dirname", "dpkg", "env", "flock", "git", "grep", "head", "ls", "mkdir", "mktemp",
        "pwd", "rm", "sed", "setarch", "sh", "sleep", "tail", "touch")

STAND_INS = {
    "id": "echo 0",
    # Skips the options and runs the command.
    "unshare": 'while [[ $1 == -* ]]; do shift; done; exec "$@"',
    "true": "",
    "apt-get": 'echo "file:$MIRROR"',
    "apt-config": "",
    # The root is the last argument but one.
    "mmdebstrap": 'echo "mmdebstrap $*" >>"$CALLS"; mkdir -p "${@: -2:1}/srv"',
    # Runs the command in the folder of --chdir below the root.
    "bwrap": 'root=$2; until [ "$1" = --chdir ]; do shift; done; cd "$root$2"; shift 2; "$@"',
}


class OnDebian(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.directory)
        self.bin = self.make("bin")
        self.temporary = self.make("temporary")
        self.calls = os.path.join(self.directory, "calls")
        self.write("mirror/dists/trixie/Release", "Suite: trixie\n")
        for name in REAL:
            os.symlink(shutil.which(name), os.path.join(self.bin, name))
        for name, text in STAND_INS.items():
            self.stand_in(name, text)
        self.project()

    def project(self):
        """A repository with the script, whose demo and test tell that they have run."""
        self.write("project/scripts/demo", "#!/bin/sh\necho demo in $PWD\n")
        self.write("project/scripts/test", "#!/bin/sh\necho test in $PWD\n")
        self.script = os.path.join(self.directory, "project/scripts/on-debian")
        shutil.copy(SCRIPT, self.script)
        for name in ("mirror.bash", "options.bash"):
            shutil.copy(os.path.join(os.path.dirname(SCRIPT), name), os.path.dirname(self.script))
        for name in ("demo", "test"):
            os.chmod(os.path.join(self.directory, "project/scripts", name), 0o755)
        git = ["git", "-C", os.path.join(self.directory, "project"), "-c", "user.name=n", "-c", "user.email=e"]
        subprocess.run(git + ["init", "-q"], check=True)
        subprocess.run(git + ["add", "."], check=True)
        subprocess.run(git + ["commit", "-q", "-m", "Begin"], check=True)

    def make(self, name):
        path = os.path.join(self.directory, name)
        os.makedirs(path)
        return path

    def write(self, name, text):
        path = os.path.join(self.directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def stand_in(self, name, text):
        path = self.write(os.path.join("bin", name), "#!/bin/bash\n" + text + "\n")
        os.chmod(path, 0o755)

    def start(self, *arguments):
        environment = {"PATH": self.bin, "TMPDIR": self.temporary, "HOME": self.directory, "CALLS": self.calls,
                       "MIRROR": os.path.join(self.directory, "mirror")}
        return subprocess.Popen([self.script, *arguments], env=environment, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)

    def run_script(self, *arguments):
        process = self.start(*arguments)
        output, errors = process.communicate()
        self.assertEqual(os.listdir(self.temporary), [])
        return process.returncode, output, errors

    def assert_refused(self, reason, *arguments):
        self.assertEqual(self.run_script(*arguments), (2, "", f"scripts/on-debian: {reason}\n"))

    def test_explains_its_usage(self):
        status, output, errors = self.run_script("--help")
        self.assertEqual((status, errors), (0, ""))
        self.assertTrue(output.startswith("usage: scripts/on-debian [--arch ARCH] [--cache DIR] SUITE [COMMAND...]\n"))

    def test_refuses_wrong_arguments(self):
        self.assert_refused("an argument is missing; --help explains")
        self.assert_refused("unknown option: --suite; --help explains", "--suite", "trixie")
        self.assert_refused("--cache needs a value", "--cache")
        self.assert_refused("this is no name of a suite: ../x", "../x")

    def test_refuses_a_suite_that_the_mirror_does_not_have(self):
        release = os.path.join(self.directory, "mirror/dists/nosuch/Release")
        status, output, errors = self.run_script("nosuch")
        self.assertEqual((status, output), (2, ""))
        self.assertRegex(errors, "^scripts/on-debian: apt's mirror has no suite nosuch: "
                                 f"E: Failed to fetch file:{release}  File not found[^\n]*\n$")

    def test_names_a_program_that_is_missing(self):
        for name in ("mmdebstrap", "bwrap", "git"):
            os.rename(os.path.join(self.bin, name), os.path.join(self.bin, "away"))
            self.assert_refused(f"there is no {name} here; scripts/setup ci installs it", "trixie")
            os.rename(os.path.join(self.bin, "away"), os.path.join(self.bin, name))

    def test_refuses_users_without_namespaces(self):
        self.stand_in("unshare", "echo refused >&2; exit 1")
        self.assert_refused("this root may not mount; a container needs CAP_SYS_ADMIN", "trixie")
        self.stand_in("id", "echo 1000")
        self.assert_refused("needs root, or user namespaces with newuidmap and a range in /etc/subuid", "trixie")

    def test_refuses_a_disk_without_space(self):
        os.remove(os.path.join(self.bin, "df"))
        self.stand_in("df", "echo Avail; echo '  12'")
        status, output, errors = self.run_script("trixie")
        self.assertEqual((status, output), (2, ""))
        self.assertRegex(errors, "^scripts/on-debian: no space: [0-9]+ MiB are needed below "
                                 f"{self.temporary} [(]TMPDIR moves it[)], and 12 are free\n$")

    def test_says_when_mmdebstrap_fails(self):
        self.stand_in("mmdebstrap", "exit 25")
        status, _, errors = self.run_script("trixie")
        self.assertEqual((status, errors), (2, "scripts/on-debian: mmdebstrap failed\n"))

    def test_runs_the_two_commands_of_the_readme_in_a_folder_with_a_space(self):
        status, output, errors = self.run_script("trixie")
        self.assertEqual((status, errors), (0, ""))
        self.assertRegex(output, "\n== scripts/demo\ndemo in .*root/srv/krv pre-installer\n"
                                 "== scripts/test\ntest in .*root/srv/krv pre-installer\n$")

    def test_ends_with_the_first_command_that_fails(self):
        self.stand_in("bwrap", "exit 7")
        status, output, errors = self.run_script("trixie")
        self.assertEqual((status, errors), (7, ""))
        self.assertTrue(output.endswith("\n== scripts/demo\n"), output)

    def test_passes_on_a_command_with_its_arguments_and_its_status(self):
        status, output, errors = self.run_script("trixie", "sh", "-c", "echo \"$1\"; exit 3", "sh", "a  b")
        self.assertEqual((status, errors), (3, ""))
        self.assertTrue(output.endswith("\na  b\n"), output)

    def test_makes_the_system_of_another_architecture(self):
        self.assertEqual(self.run_script("--arch", "i386", "trixie", "true")[0], 0)
        with open(self.calls, encoding="utf-8") as calls:
            self.assertIn(" --architectures=i386 ", calls.readline())

    def test_leaves_nothing_behind_when_it_is_ended(self):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                process = self.start("trixie", "sh", "-c", "echo ready; exec sleep 1000")
                while process.stdout.readline() != "ready\n":
                    self.assertIsNone(process.poll())
                process.send_signal(number)
                process.communicate()
                self.assertEqual(process.returncode, 128 + number)
                self.assertEqual(os.listdir(self.temporary), [])


if __name__ == "__main__":
    SCRIPT = os.path.abspath(sys.argv.pop(1))
    unittest.main()
