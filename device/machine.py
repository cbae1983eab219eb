# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Boots the virtual device in QEMU. No process of it outlives this one."""
import ctypes
import io
import os
import signal
import subprocess
import tarfile
import time

PR_SET_PDEATHSIG = 1
LIBC = ctypes.CDLL(None, use_errno=True)


class NoReport(Exception):
    """The device sent no report in time."""


class NotStarted(NoReport):
    """The kernel has not printed anything. Without KVM, QEMU sometimes hangs before that."""


# A kernel prints its first line after two seconds; on a busy machine it may take ten times as long.
START_LIMIT = 60


def die_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def accelerator(kernel, folder):
    """KVM if a guest prints its first line with it within some seconds: there may be a /dev/kvm that runs none."""
    if os.access("/dev/kvm", os.R_OK | os.W_OK):
        output = os.path.join(folder, "kvm")
        open(output, "wb").close()
        command = ["qemu-system-x86_64", "-machine", "q35,accel=kvm", "-cpu", "host", "-m", "256", "-nodefaults",
                   "-display", "none", "-no-reboot", "-kernel", kernel, "-append", "console=ttyS0 earlyprintk=ttyS0",
                   "-serial", "file:" + output]
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=die_with_parent) as qemu:
            try:
                end = time.monotonic() + 5
                while time.monotonic() < end and qemu.poll() is None:
                    with open(output, "rb") as lines:
                        if b"Linux version" in lines.read():
                            return "kvm"
                    time.sleep(0.05)
            finally:
                qemu.kill()
                os.remove(output)
    return "tcg"


class Machine:
    """One boot: made, started, waited for, and read."""

    def __init__(self, folder, image, disk, accelerated, *, bus="nvme", log=None, arguments=(), console=None):
        """`folder` takes the serial ports' output. `image` is the folder of kernel and initramfs, `log` the file for a
        recording of the disk, `arguments` go to the kernel."""
        self.folder = folder
        self.console = os.path.join(folder, "console")
        self._report = os.path.join(folder, "report.tar.gz")
        self._disk = disk
        self._qemu = None
        kernel = ["root=/dev/nvme0n1" if bus == "nvme" else "root=/dev/vda", "rw", "panic=-1", "quiet",
                  "mitigations=off", "no_timer_check", "tsc=reliable", "cryptomgr.notests", "rcupdate.rcu_expedited=1",
                  "console=ttyS0", *arguments]
        processor = {"kvm": ["-accel", "kvm", "-cpu", "host"], "tcg": ["-accel", "tcg,thread=single", "-cpu", "max"]}
        self._command = ["qemu-system-x86_64", "-machine", "q35", *processor[accelerated], "-m", "512", "-nodefaults",
                         "-display", "none", "-no-reboot", "-kernel", os.path.join(image, "vmlinuz"), "-append",
                         " ".join(kernel)]
        storage = {"driver": "raw", "node-name": "disk", "file.driver": "file", "file.filename": disk}
        self._command += ["-blockdev", options(storage)]
        if log:
            open(log, "wb").close()
            self._command += ["-blockdev", options({"driver": "file", "node-name": "log", "filename": log}), "-blockdev",
                              options({"driver": "blklogwrites", "node-name": "recorded", "file": "disk", "log": "log"})]
        drive = "recorded" if log else "disk"
        if bus == "nvme":
            self._command += ["-device", f"nvme,serial=krv,drive={drive}"]
        else:
            self._command += ["-device", f"virtio-blk-pci,drive={drive}", "-initrd",
                              os.path.join(image, "virtio.cpio.gz")]
        if console is None:
            self._command += ["-serial", "file:" + self.console, "-serial", "file:" + self._report]
        else:
            self._command += ["-serial", console]

    def start(self):
        self._qemu = subprocess.Popen(self._command, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                      preexec_fn=die_with_parent)

    def run(self):
        """Runs a machine with a console until it is switched off."""
        return subprocess.run(self._command, preexec_fn=die_with_parent, check=False).returncode

    def stop(self):
        if self._qemu and self._qemu.poll() is None:
            self._qemu.kill()
            self._qemu.wait()

    def report(self, limit):
        """Waits until the device has switched itself off; a dictionary of the files that its agent sent."""
        try:
            errors = self._wait(limit)
        except subprocess.TimeoutExpired:
            self.stop()
            raise NoReport(f"no report from the device within {limit} seconds; {self._last_words()}") from None
        if self._qemu.returncode != 0:
            raise NoReport("QEMU failed: " + errors.decode(errors="replace").strip())
        try:
            with open(self._report, "rb") as file:
                return unpack(file.read())
        except (OSError, EOFError, tarfile.TarError) as error:
            raise NoReport(f"no whole report from the device ({error}); {self._last_words()}") from None

    def _wait(self, limit):
        """Waits for QEMU's end and returns its errors. Raises NotStarted early."""
        if limit > START_LIMIT:
            try:
                return self._qemu.communicate(timeout=START_LIMIT)[1]
            except subprocess.TimeoutExpired:
                limit -= START_LIMIT
                if not os.path.exists(self.console) or os.path.getsize(self.console) == 0:
                    self.stop()
                    raise NotStarted(f"nothing on the device's console within {START_LIMIT} seconds") from None
        return self._qemu.communicate(timeout=limit)[1]

    def _last_words(self):
        with open(self.console, encoding="utf-8", errors="replace") as file:
            lines = [line.strip() for line in file if line.strip()]
        return f"the console's last line is: {lines[-1]}" if lines else "the console is empty"


def options(values):
    return ",".join(f"{key}={str(value).replace(',', ',,')}" for key, value in values.items())


def unpack(archive):
    """The regular files of a report: name without "./", and text."""
    with tarfile.open(fileobj=io.BytesIO(archive), mode="r:gz") as tar:
        return {member.name.removeprefix("./"): tar.extractfile(member).read().decode(errors="replace")
                for member in tar.getmembers() if member.isfile()}
