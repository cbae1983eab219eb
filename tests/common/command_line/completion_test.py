#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Loads the completion scripts of a build into the shells, and compares what the shells offer with the programs' help.

usage: completion_test.py BUILD-DIR
"""
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD = os.path.abspath(sys.argv.pop(1))
PROGRAMS = ["krv-image-check", "krv-log-report", "krv-package-signature"]
# The shells and the names of their scripts.
SCRIPTS = {"bash": "{}", "fish": "{}.fish", "zsh": "_{}"}

# A command line, whose last word is unfinished, and what is offered for it.
OFFERS = [
    ("krv-package-signature |", ["show", "sign", "verify"]),
    ("krv-package-signature s|", ["show", "sign"]),
    ("krv-package-signature sign --c|", ["--cert", "--chain"]),
    ("krv-package-signature sign --key|", ["--key"]),
    ("krv-package-signature show --c|", []),
    ("krv-image-check --format |", ["html", "json", "sarif", "text"]),
    ("krv-image-check --format=s|", ["sarif"]),
    ("krv-image-check --deep --fail-on |", ["error", "note", "warning"]),
    ("krv-image-check --removed |", []),
    ("krv-image-check --explain |", []),
]
# The same for values that are paths. There are a folder "image" and a file "alice.pem".
PATHS = [
    ("krv-package-signature sign --cert |", "files"),
    ("krv-package-signature sign --key=|", "files"),
    ("krv-package-signature verify |", "files"),
    ("krv-package-signature verify --ca-path |", "directories"),
    ("krv-image-check |", "directories"),
    ("krv-image-check --previous image --device |", "directories"),
    ("krv-image-check --output |", "files"),
]
# Lines that somebody types on a terminal, and the arguments that the program gets. zsh joins an option and its value by
# "=", and removes the slash at the end.
TYPED = [
    ("krv-package-signature si\t--k\tali\t--ce\tbob\tmy\t",
     ["sign", "--key", "alice.pem", "--cert", "bob.pem", "my app.rpm"]),
    ("krv-package-signature ver\t--ca\ttr\t", ["verify", "--ca-path", "trusted ca/"]),
    ("krv-image-check --fo\ts\tima\t", ["--format", "sarif", "image/"]),
]
FILES = ["alice.pem", "bob.pem", "my app.rpm"]
FOLDERS = ["image", "trusted ca"]


def help_of(*command):
    return subprocess.run([os.path.join(BUILD, "bin", command[0]), *command[1:], "--help"], capture_output=True,
                          text=True, check=True).stdout


def section_of(title, *command):
    section = re.search(rf"(?is)\n{title}:\s*\n(.*?)(\n\n|$)", help_of(*command))
    return section.group(1) if section else ""


def subcommands_of(program):
    return re.findall(r"(?m)^  (\S+)", section_of("Subcommands", program))


def options_of(*command):
    """The names of all options that the help shows, for example in a line "  -h,--help     Print this help message"."""
    names = re.findall(r"(?m)^ {2,8}((?:--?[a-z][a-z-]*,?\s*)+)", section_of("Options", *command))
    return sorted(name for line in names for name in re.findall(r"--?[a-z][a-z-]*", line))


def commands():
    """Each program, and each with each of its subcommands."""
    return [(program, *subcommand) for program in PROGRAMS
            for subcommand in [()] + [(name,) for name in subcommands_of(program)]]


def split(line):
    """The words as bash splits them: an "=" is a word of its own."""
    assert line.endswith("|")
    return [part for word in line[:-1].split(" ") for part in (re.findall(r"=|[^=]+", word) if "=" in word else [word])]


class Programs(unittest.TestCase):
    def test_have_scripts_for_each_shell(self):
        for shell, name in SCRIPTS.items():
            self.assertEqual(sorted(os.listdir(os.path.join(BUILD, "completions", shell))),
                             sorted(name.format(program) for program in PROGRAMS))

    def test_have_the_scripts_that_their_writers_print(self):
        for program in PROGRAMS:
            writer = os.path.join(BUILD, "tools", program, f"{program}-completions")
            for shell, name in SCRIPTS.items():
                printed = subprocess.run([writer, shell], capture_output=True, text=True, check=True).stdout
                with open(os.path.join(BUILD, "completions", shell, name.format(program)), encoding="utf-8") as file:
                    self.assertEqual(file.read(), printed)
            for arguments in ([], ["csh"], ["bash", "fish"]):
                self.assertEqual(subprocess.run([writer, *arguments], check=False).returncode, 2)


class Shell(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.work = os.path.join(self.folder, "work")
        self.programs = os.path.join(self.folder, "bin")
        for folder in (self.programs, *(os.path.join(self.work, name) for name in FOLDERS)):
            os.makedirs(folder)
        for name in FILES:
            with open(os.path.join(self.work, name), "w", encoding="utf-8"):
                pass
        # Prints its arguments.
        for program in PROGRAMS:
            path = os.path.join(self.programs, program)
            with open(path, "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\nprintf 'arguments:'\nprintf '<%s>' \"$@\"\necho\n")
            os.chmod(path, 0o755)
        self.environment = {"PATH": f"{self.programs}:{os.environ['PATH']}", "HOME": self.folder, "TERM": "dumb",
                            "LC_ALL": "C.UTF-8", "INPUTRC": "/dev/null", "PS1": "ready> "}

    def script(self, shell, name):
        return os.path.join(BUILD, "completions", shell, name)

    def type_into(self, command, lines):
        """Types each line on a terminal, after a prompt. Returns the arguments that the program prints at last."""
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.work)
            os.execvpe(command[0], command, self.environment)
        seen = b""
        deadline = time.monotonic() + 60
        try:
            for line in [*lines, None]:
                # zsh announces bracketed paste behind its prompt.
                while not re.search(rb"ready> (\x1b\[\?2004h)?$", seen):
                    self.assertTrue(select.select([terminal], [], [], max(0, deadline - time.monotonic()))[0], seen)
                    seen += os.read(terminal, 4096)
                if line is not None:
                    seen = b""
                    os.write(terminal, line.encode() + b"\n")
        finally:
            os.close(terminal)
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)
        return re.findall(r"<([^>]*)>", re.search(r"\narguments:(.*?)\r", seen.decode()).group(1))


class Bash(Shell):
    def offers(self, words):
        """The words that are offered for the last one, or "files" or "directories"."""
        code = """
source "$1"
shift
compopt() { case $2 in default) echo files ;; dirnames) echo directories ;; esac; }
function=$(complete -p "$1")
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
$(sed -E 's/.* -F ([^ ]+) .*/\\1/' <<<"$function")
printf '%s\\n' "${COMPREPLY[@]}"
"""
        done = subprocess.run(["bash", "-c", code, "bash", self.script("bash", words[0]), *words], capture_output=True,
                              text=True, env=self.environment, cwd=self.work, check=True)
        self.assertEqual(done.stderr, "")
        return sorted(done.stdout.split())

    def test_offers_the_options_of_the_help(self):
        self.assertEqual(len(commands()), 6)
        for command in commands():
            with self.subTest(command):
                self.assertEqual(self.offers([*command, "-"]), options_of(*command))

    def test_offers_words(self):
        for line, offers in OFFERS:
            with self.subTest(line):
                self.assertEqual(self.offers(split(line)), offers)

    def test_offers_paths(self):
        for line, kind in PATHS:
            with self.subTest(line):
                self.assertEqual(self.offers(split(line)), [kind])

    def test_completes_on_a_terminal(self):
        for line, arguments in TYPED:
            with self.subTest(line):
                script = self.script("bash", line.split()[0])
                self.assertEqual(self.type_into(["bash", "--norc", "--noprofile", "-i"], [f"source '{script}'", line]),
                                 arguments)


@unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
class Zsh(Shell):
    def test_has_the_options_of_the_help(self):
        for program in PROGRAMS:
            with open(self.script("zsh", f"_{program}"), encoding="utf-8") as file:
                parts = re.split(r"(?m)^(?:_arguments| +[a-z]+\) _arguments) .*$", file.read())[1:]
            names = [sorted(re.findall(r"(?m)^ +'\*?(-[^=\[]+)", part)) for part in parts]
            self.assertEqual(names, [options_of(*command) for command in commands() if command[0] == program])

    def test_completes_on_a_terminal(self):
        folder = os.path.join(BUILD, "completions/zsh")
        for line, arguments in TYPED:
            with self.subTest(line):
                setup = [f"fpath=('{folder}' $fpath)", "autoload -Uz compinit", "compinit -u -D"]
                typed = [part for argument in self.type_into(["zsh", "-f", "-i"], [*setup, line])
                         for part in argument.split("=")]
                self.assertEqual(typed, [argument.removesuffix("/") for argument in arguments])


@unittest.skipUnless(shutil.which("fish"), "fish is not installed")
class Fish(Shell):
    def offers(self, line):
        script = self.script("fish", line.split()[0] + ".fish")
        done = subprocess.run(["fish", "--no-config", "-c", "source $argv[1]; complete -C $argv[2]", script, line],
                              capture_output=True, text=True, env=self.environment, cwd=self.work, check=True)
        self.assertEqual(done.stderr, "")
        return sorted(offer.split("\t")[0] for offer in done.stdout.splitlines())

    def test_offers_the_options_of_the_help(self):
        for command in commands():
            with self.subTest(command):
                self.assertEqual(self.offers(" ".join([*command, "-"])), options_of(*command))

    def test_offers_words(self):
        for line, offers in OFFERS:
            with self.subTest(line):
                start = "--format=" if "--format=" in line else ""
                self.assertEqual(self.offers(line[:-1]), [start + offer for offer in offers])

    def test_offers_paths(self):
        folders = [name + "/" for name in FOLDERS]
        for line, kind in PATHS:
            with self.subTest(line):
                start = line[:-1].split(" ")[-1]
                names = folders if kind == "directories" else folders + FILES
                self.assertEqual(self.offers(line[:-1]), sorted(start + name for name in names))


if __name__ == "__main__":
    unittest.main()
