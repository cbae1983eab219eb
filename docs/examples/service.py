#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""A package-manager service for krv-pre-installer: an example in Python of what a service has to do.

usage: KRV_ROOT_FS=DIR docs/examples/service.py

It runs as root, verifies packages with krv-package-signature, installs them with rpm(8), writes the registry, and prints
"ready" when it can be called. A service on a device also has to survive power losses and to protect itself from hostile
packages and users; docs/platform.md says how.
"""
import asyncio
import contextlib
import fcntl
import json
import logging
import os
import shutil
import subprocess
import tempfile
import time

from dbus_next import BusType, DBusError
from dbus_next.aio import MessageBus
from dbus_next.service import ServiceInterface, method

ROOT = os.environ["KRV_ROOT_FS"]
STATE = os.path.join(ROOT, "var/lib/krv")
REGISTRY = os.path.join(STATE, "registry")
# The name of a package -> its version, its developer's key id, and the earlier key ids of that developer. The earlier
# ones are needed for the record of the removal, when the package file is gone.
INSTALLED = os.path.join(STATE, "example-service.json")
PRE_INSTALLED = ".pre.installed.apps"


def refuse(name, reason):
    raise DBusError("velta.KRV.Error." + name, reason)


def run(error, *command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        refuse(error, done.stderr.strip() or f"{command[0]} failed")
    return done.stdout


def rpm(*arguments):
    run("Internal", "rpm", "--root", ROOT, "--dbpath", "/var/lib/rpm", *arguments)


def identity(package):
    """Name, version, key id and earlier key ids of a verified package file."""
    run("SignatureVerificationFailed", "krv-package-signature", "verify", package)
    found = json.loads(run("FileNotFound", "krv-package-signature", "show", "--json", package))[0]
    developer = next((cms for cms in found["cmses"] if cms["role"] == "developer"), None)
    if developer is None:
        refuse("MissingDeveloperSignature", "The package has no developer signature")
    return {"name": found["name"], "version": found["version"], "key": developer["keyId"],
            "earlier": developer["previousKeyIds"]}


@contextlib.contextmanager
def locked():
    """The lock that the tool and every writer of the registry take. The mode keeps other users from holding it."""
    file = os.open(REGISTRY + ".lock", os.O_RDWR | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600)
    try:
        fcntl.lockf(file, fcntl.LOCK_EX)
        yield
    finally:
        os.close(file)


def records():
    """The records of the registry, as dictionaries of their words."""
    with contextlib.suppress(FileNotFoundError), open(REGISTRY, encoding="utf-8", errors="surrogateescape") as file:
        for line in file:
            record = dict(word.split("=", 1) for word in line.rstrip("\n").split(" ") if "=" in word)
            if all(record.get(key) for key in ("timestamp", "event", "package", "keyid")):
                yield record


def earlier_keys(record):
    return [key for key in record.get("prev-keyids", "").split("->") if key]


def record_event(event, name, key, earlier):
    """Adds a record and drops those that it replaces, as krv-registry(5) describes."""
    added = {"timestamp": str(int(time.time())), "event": event, "package": name, "keyid": key}
    if earlier:
        added["prev-keyids"] = "->".join(earlier)
    with locked():
        chain, kept = {key, *earlier}, [added]
        for record in reversed(list(records())):
            same = record["package"] == name and record["keyid"] in chain
            if same:
                chain.update(earlier_keys(record))
            if not same or (event == "U" and record["event"] == "I"):
                kept.insert(0, record)
        with open(REGISTRY + ".next", "w", encoding="utf-8", errors="surrogateescape") as file:
            file.writelines(" ".join(f"{word}={value}" for word, value in record.items()) + "\n" for record in kept)
        os.replace(REGISTRY + ".next", REGISTRY)


def was_removed(package):
    """Whether the user removed this package of this developer."""
    with locked():
        return any(record["event"] == "R" and record["package"] == package["name"] and
                   package["key"] in [record["keyid"], *earlier_keys(record)] for record in records())


class Service(ServiceInterface):
    def __init__(self):
        super().__init__("velta.KRV")
        self.installed = {}
        with contextlib.suppress(FileNotFoundError), open(INSTALLED, encoding="utf-8") as file:
            self.installed = json.load(file)

    def save(self):
        with open(INSTALLED + ".next", "w", encoding="utf-8") as file:
            json.dump(self.installed, file)
        os.replace(INSTALLED + ".next", INSTALLED)

    def find(self, name):
        return self.installed.get(name) or refuse("PackageNotExist", "The package is not installed: " + name)

    @method()
    def GetPackage(self, name: "s") -> "a{ss}":
        found = self.find(name)
        return {"general.name": name, "general.version": found["version"], "certificate.id": found["key"]}

    @method()
    def Install(self, path: "s", options: "a{sv}"):
        source = options["OverrideSource"].value[0] if "OverrideSource" in options else ""
        with tempfile.TemporaryDirectory(dir=STATE) as folder, contextlib.ExitStack() as opened:
            # Only the copy is used from here on, so nobody can exchange what was verified.
            copy = os.path.join(folder, "package.rpm")
            try:
                original = opened.enter_context(open(path, "rb"))
            except OSError as error:
                refuse("FileNotFound", str(error))
            with open(copy, "wb") as file:
                shutil.copyfileobj(original, file)
            package = identity(copy)
            self.require_successor(package)
            if source == PRE_INSTALLED and package["name"] not in self.installed and was_removed(package):
                refuse("SourceNotAllowed", "The user removed the package: " + package["name"])
            rpm("--upgrade", "--nodeps", "--noscripts", copy)
        event = "U" if package["name"] in self.installed else "I"
        self.installed[package["name"]] = {key: package[key] for key in ("version", "key", "earlier")}
        self.save()
        record_event(event, package["name"], package["key"], package["earlier"])

    def require_successor(self, package):
        found = self.installed.get(package["name"])
        if found and found["key"] not in [package["key"], *package["earlier"]]:
            refuse("DeveloperMismatch", "The installed package is from another developer: " + package["name"])

    @method()
    def Remove(self, name: "s"):
        found = self.find(name)
        rpm("--erase", "--nodeps", "--noscripts", name)
        del self.installed[name]
        self.save()
        record_event("R", name, found["key"], found["earlier"])


async def main():
    logging.disable()  # the library logs every error answer as if it were a fault
    os.umask(0o077)
    os.makedirs(STATE, exist_ok=True)
    bus = await MessageBus(bus_type=BusType.SYSTEM).connect()
    # Before the name: whoever finds the name must find the object.
    bus.export("/velta/KRV", Service())
    await bus.request_name("velta.KRV")
    print("ready", flush=True)
    await bus.wait_for_disconnect()


asyncio.run(main())
