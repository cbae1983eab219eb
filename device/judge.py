# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Judges what a power loss has left of a device: the states that are allowed, and everything that differs from them."""
import hashlib
import os
import stat
import subprocess
from dataclasses import dataclass


@dataclass(frozen=True)
class State:
    """The acknowledged state: the registry, and the installed packages as NAME-VERSION-RELEASE."""
    registry: str
    packages: frozenset


@dataclass(frozen=True)
class File:
    """The compared facts of a packaged file: its type and permissions, and the digest of its content or its target."""
    mode: int
    content: str

    def __str__(self):
        return f"mode {self.mode:o}, {self.content[:8] or 'no content'}"


EMPTY = hashlib.sha256().hexdigest()


@dataclass
class Found:
    """The device's state. `raw_registry` is the registry before the service has started, and `under_way` whether it
    had a transaction to recover; `failure` tells why the service did not start, or why the file system or the database
    could not be read."""
    raw_registry: str
    under_way: bool
    registry: str
    packages: list
    files: dict
    leftovers: list
    failure: str = ""


def manifests(packages):
    """The files of package files: NAME-VERSION-RELEASE to path to File."""
    result = {}
    for package in packages:
        query = subprocess.run(["rpm", "-qp", "--nosignature", "--qf", "%{NAME}-%{VERSION}-%{RELEASE}\n"
                                "[%{FILENAMES}\t%{FILEMODES:octal}\t%{FILEDIGESTS}\t%{FILELINKTOS}\n]", package],
                               text=True, check=True, stdout=subprocess.PIPE).stdout.splitlines()
        files = {}
        for line in query[1:]:
            path, mode, digest, target = line.split("\t")
            files[path] = File(int(mode, 8), target or digest)
        result[query[0]] = files
    return result


def file_at(path):
    """A file as it is."""
    status = os.lstat(path)
    if stat.S_ISLNK(status.st_mode):
        return File(status.st_mode, os.readlink(path))
    if stat.S_ISREG(status.st_mode):
        with open(path, "rb") as file:
            return File(status.st_mode, hashlib.sha256(file.read()).hexdigest())
    return File(status.st_mode, "")


def tree(root, top):
    """The files below root/top, by their path on the device."""
    found = {}
    for folder, names, others in os.walk(os.path.join(root, top)):
        for name in names + others:
            path = os.path.join(folder, name)
            found["/" + os.path.relpath(path, root)] = file_at(path)
    return found


def states(registries, versions, before):
    """The states that marks in a recording have acknowledged. Each mark has the registry at its moment, whose last
    record is the new event. `versions` tells which NAME-VERSION-RELEASE an installation of a name brings; `before` is
    what is installed at the first mark."""
    packages = {name.rsplit("-", 2)[0]: name for name in before}
    result = [State(registries[0], frozenset(packages.values()))]
    for registry in registries[1:]:
        words = dict(word.split("=", 1) for word in registry.splitlines()[-1].split())
        if words["event"] == "R":
            del packages[words["package"]]
        else:
            packages[words["package"]] = versions[words["package"]]
        result.append(State(registry, frozenset(packages.values())))
    return result


def judge(found, allowed, contents):
    """Everything wrong with what was found, one text each. `allowed` are the last acknowledged state and, if an
    operation was under way, the state that it would lead to; `contents` is from manifests()."""
    if found.failure:
        return [found.failure]
    complaints = []
    texts = [state.registry for state in allowed]
    if found.raw_registry not in texts and not found.under_way:
        complaints.append("before the service starts, the registry is " + describe(found.raw_registry, texts))
    state = next((state for state in allowed if sorted(state.packages) == sorted(found.packages)), None)
    if state is None:
        acknowledged = allowed[0].packages
        complaints += [f"not in the database: {name}" for name in sorted(acknowledged - set(found.packages))]
        complaints += [f"in the database: {name}" for name in sorted(set(found.packages) - acknowledged)]
        if not complaints:
            complaints.append("a package is twice in the database")
        state = State(allowed[0].registry, frozenset(found.packages))
    if found.registry != state.registry:
        complaints.append("the registry does not fit the database: it is " + describe(found.registry, texts))
    complaints += [f"left behind: {path}" for path in found.leftovers]
    return complaints + wrong_files(found.files, state.packages, contents)


def is_repaired(found, allowed):
    """Whether only the recovery of the service has made the registry one of those that are allowed."""
    return not found.failure and found.under_way and found.raw_registry not in [state.registry for state in allowed]


def describe(registry, texts):
    if not registry:
        return "empty"
    known = {line for text in texts for line in text.splitlines()}
    if not registry.endswith("\n") or any(line not in known for line in registry.splitlines()):
        return "torn"
    return f"another one, of {len(registry.splitlines())} records"


def wrong_files(files, packages, contents):
    expected = {path: file for name in packages for path, file in contents.get(name, {}).items()}
    complaints = []
    for path in sorted(expected.keys() | files.keys()):
        if path not in files:
            complaints.append(f"missing: {path}")
        elif path not in expected:
            complaints.append(f"belongs to no package: {path}")
        elif files[path] != expected[path]:
            empty = files[path].content == EMPTY
            complaints.append(f"{'empty' if empty else 'wrong'}: {path} ({files[path]} instead of {expected[path]})")
    return complaints
