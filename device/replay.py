# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Makes the states of a disk in which a power loss may have left it, and looks at each one as the next boot would."""
import os
import re
import shutil
import signal
import subprocess
import threading

import disk
from judge import Found, tree
from machine import die_with_parent

START_LIMIT = 30
UNSYNCED, INODES = "device-unsynced-shim.so", "device-inode-shim.so"
# The folders that the service may change.
CHANGED = ["/opt", "/var/lib/krv"]
FOLDERS = ["/opt", "/var/lib/krv", "/var/lib/rpm", "/etc/krv"]
HARMLESS = re.compile(r"e2fsck [0-9.]+ |Pass \d|.*: recovering journal|.*: \d+/\d+ files |"
                      r".*\*\*\*\*\* FILE SYSTEM WAS MODIFIED \*\*\*\*\*|Clearing orphaned inode |"
                      r"Free (blocks|inodes) count wrong |Fix\? yes|Overwriting existing filesystem; | +e2undo |$")


class Replica:
    """A copy of the disk as it was before the recording, to which requests of the recording are applied."""

    def __init__(self, image, path, log):
        disk.copy(image, path)
        self.path = path
        self._log = log
        self._size = os.path.getsize(path)
        self._file = os.open(path, os.O_RDWR | os.O_CLOEXEC)

    def close(self):
        os.close(self._file)

    def apply(self, entry):
        """Marks are behind the end of the file system, and are left out."""
        if entry.is_write and entry.offset < self._size:
            os.pwrite(self._file, self._log.data(entry), entry.offset)

    def save(self, entries):
        """The present content of the places of these writes, for restore()."""
        return [(entry.offset, os.pread(self._file, entry.length, entry.offset)) for entry in entries
                if entry.is_write and entry.offset < self._size]

    def restore(self, saved):
        for offset, data in reversed(saved):
            os.pwrite(self._file, data, offset)


class Inspector:
    """Looks at a disk as the next boot would: replays the journal of the file system, starts the package-manager
    service on the files, which recovers what was under way, and reads files, database and registry. The disk is
    unchanged afterwards. `libraries` is the folder of the two preloaded libraries: syncs do nothing, because no plug is
    pulled here, and the copied files keep their inode numbers."""

    def __init__(self, folder, project, programs, libraries):
        self._root = os.path.join(folder, "root")
        self._undo = os.path.join(folder, "undo")
        self._service = os.path.join(programs, "krv-sandbox-service")
        # The socket has a relative path, because the path of a socket is limited to 107 bytes.
        self._folder, address = folder, "unix:path=bus"
        configuration = os.path.join(folder, "bus.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            subprocess.run(["bash", "-c", 'source "$0/sandbox/bus.bash" && bus_configuration "$1"', project, address],
                           check=True, stdout=file)
        self._inodes = os.path.join(folder, "inodes")
        # Names and a path of libraries, because LD_PRELOAD cannot have paths with spaces. AddressSanitizer would refuse
        # to start behind another library.
        sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        self._environment = {**os.environ, "LC_ALL": "C", "LD_LIBRARY_PATH": libraries, "ASAN_OPTIONS": sanitizer,
                             "LD_PRELOAD": UNSYNCED}
        self._environment_of_service = {**self._environment, "DBUS_SYSTEM_BUS_ADDRESS": address,
                                        "LD_PRELOAD": f"{UNSYNCED} {INODES}", "KRV_INODES": self._inodes}
        self._bus = subprocess.Popen(["dbus-daemon", "--nofork", "--print-address", "--config-file", configuration],
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=folder,
                                     preexec_fn=die_with_parent)
        self._bus.stdout.readline()
        self._files, self._found = None, None

    def close(self):
        self._bus.kill()
        self._bus.communicate()

    def _run(self, *command):
        return subprocess.run(command, text=True, check=False, env=self._environment, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)

    def look(self, path):
        """The state of this disk after the service has started."""
        if os.path.exists(self._undo):
            os.remove(self._undo)
        checked = self._run("e2fsck", "-fy", "-z", self._undo, path)
        try:
            dirt = [line for line in checked.stdout.splitlines() if not HARMLESS.match(line)]
            if checked.returncode > 1 or dirt:
                return failure("the file system is damaged: " + "; ".join(dirt))
            shutil.rmtree(self._root, ignore_errors=True)
            for folder in FOLDERS:
                os.makedirs(self._root + os.path.dirname(folder), exist_ok=True)
            disk.debugfs(path, [f"rdump {folder} {disk.quoted(self._root + os.path.dirname(folder))}"
                                for folder in FOLDERS])
            # Many writes change nothing that a program can see, and from the same files the service recovers the same.
            files = tree(self._root, "")
            if files == self._files:
                return self._found
            self._save_inodes(path)
        finally:
            undone = self._run("e2undo", self._undo, path)
            if undone.returncode != 0:
                raise disk.DiskError(f"e2undo failed: {undone.stdout}")
        self._files, self._found = files, self._recovered()
        return self._found

    def _save_inodes(self, path):
        """Writes the file for device-inode-shim.so."""
        folders = [folder.removeprefix(self._root) for top in CHANGED for folder, _, _ in os.walk(self._root + top)]
        folder = ""
        with open(self._inodes, "w", encoding="utf-8") as file:
            for line in disk.debugfs(path, [f"ls -p {name}" for name in folders]).splitlines():
                if line.startswith("debugfs: ls -p "):
                    folder = line.removeprefix("debugfs: ls -p ")
                elif line.startswith("/"):
                    _, inode, _, _, _, name, *_ = line.split("/")
                    here = os.path.join(self._root + folder, name)
                    if name != ".." and os.path.lexists(here):
                        file.write(f"{os.lstat(here).st_ino} {inode}\n")

    def _recovered(self):
        registry = os.path.join(self._root, "var/lib/krv/registry")
        raw = text_of(registry)
        home = os.path.join(self._root, "var/lib/krv/sandbox")
        under_way = os.path.exists(os.path.join(home, "transaction"))
        complaint = self._start_service()
        if complaint:
            return failure(complaint)
        query = subprocess.run(["rpm", "--dbpath", self._root + "/var/lib/rpm", "-qa", "--qf",
                                "%{NAME}-%{VERSION}-%{RELEASE}\n"], text=True, check=False, env=self._environment,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if query.returncode != 0 or query.stderr:
            return failure("the database is damaged: " + query.stderr.strip())
        leftovers = [name for name in os.listdir(home) if name != "lock"]
        return Found(raw, under_way, text_of(registry), query.stdout.splitlines(), tree(self._root, "opt"), leftovers)

    def _start_service(self):
        """Starts the service and ends it; why it did not start."""
        lines = []
        with subprocess.Popen([self._service, "--root", self._root], text=True, cwd=self._folder,
                              env=self._environment_of_service, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              preexec_fn=die_with_parent) as service:
            watchdog = threading.Timer(START_LIMIT, service.kill)
            watchdog.start()
            for line in service.stdout:
                lines.append(line.strip())
                if lines[-1] == "ready":
                    service.send_signal(signal.SIGTERM)
            status = service.wait()
            watchdog.cancel()
        return "" if "ready" in lines and status == 0 else "the service does not start: " + "; ".join(lines)


def failure(reason):
    return Found("", False, "", [], {}, [], reason)


def text_of(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""
