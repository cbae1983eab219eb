# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Disks of the virtual device: files with an ext4 file system, read and written with debugfs, never mounted."""
import os
import subprocess
import tempfile

PRE_INSTALL = "/usr/share/krv/pre-install-apps"


class DiskError(Exception):
    """A disk could not be read or written."""


def debugfs(disk, commands, writable=False):
    """The output of debugfs for a list of commands. Its complaints about single commands are on the returned text."""
    result = subprocess.run(["debugfs", *(["-w"] if writable else []), "-f", "-", disk], text=True, check=False,
                            input="".join(command + "\n" for command in commands), stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise DiskError(f"debugfs failed on {disk}: {result.stdout.strip()}")
    return result.stdout


def quoted(name):
    """A name as an argument of a command of debugfs."""
    return '"' + name.replace('"', '""') + '"'


def copy(image, disk):
    """A disk of its own from an image; holes stay holes."""
    subprocess.run(["cp", "--reflink=auto", "--sparse=always", image, disk], check=True)


class Disk:
    """Changes on a disk that is not in use. They are collected, and made by apply()."""

    def __init__(self, path):
        self.path = path
        self._commands = []
        self._files = tempfile.TemporaryDirectory(dir=os.path.dirname(path))

    def put(self, source, target, mode=0o644):
        """Copies a file of the host to `target`, whose folder must be there. A file in the way is replaced."""
        name = quoted(target)
        self._commands += [f"rm {name}", f"write {quoted(source)} {name}", f"sif {name} mode 0{0o100000 | mode:o}",
                           f"sif {name} uid 0", f"sif {name} gid 0"]

    def write(self, target, text):
        """Writes a file, and makes its folder."""
        source = os.path.join(self._files.name, str(len(self._commands)))
        with open(source, "w", encoding="utf-8") as file:
            file.write(text)
        self._commands.append(f"mkdir {quoted(os.path.dirname(target))}")
        self.put(source, target)

    def remove(self, target):
        self._commands.append(f"rm {quoted(target)}")

    def ship(self, packages):
        """The image carries these packages and nothing else."""
        listed = debugfs(self.path, [f"ls -p {PRE_INSTALL}"])
        names = [line.split("/")[5] for line in listed.splitlines() if line.startswith("/")]
        for name in names:
            if name not in (".", ".."):
                self.remove(f"{PRE_INSTALL}/{name}")
        for package in packages:
            self.put(package, f"{PRE_INSTALL}/{os.path.basename(package)}")

    def apply(self):
        debugfs(self.path, self._commands, writable=True)
        self._commands = []
        self._files.cleanup()


def check(disk):
    """The errors that e2fsck finds in the file system, which it does not change; empty if the file system is clean."""
    result = subprocess.run(["e2fsck", "-fn", disk], text=True, check=False, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    return "" if result.returncode == 0 else result.stdout
