# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Plays the scenes: two devices at a time, each history on a disk of its own, on both buses."""
import os
from concurrent.futures import FIRST_EXCEPTION, ThreadPoolExecutor, wait
from dataclasses import dataclass
from functools import partial

import disk
import scenes
from machine import Machine, NotStarted

BUSES = ["dbus-daemon", "dbus-broker"]
LIMIT = 300


class Device:
    """Where everything is: the folder of images, that of packages, and one for disks and reports."""

    def __init__(self, images, packages, folder, accelerated, say):
        self.images = images
        self.packages = packages
        self.folder = folder
        self.accelerated = accelerated
        self.say = say

    def make(self, name):
        folder = os.path.join(self.folder, name.replace(" ", "-"))
        os.makedirs(folder, exist_ok=True)
        return folder

    def path_of(self, package):
        return os.path.join(self.packages, package + ".rpm")

    def boot(self, folder, path, arguments, **options):
        """Boots a disk, and returns the report of its agent."""
        try:
            report = self._boot_once(folder, path, arguments, **options)
        except NotStarted:
            if options.get("log"):
                raise  # a recording would miss what the first attempt has written
            self.say("    the kernel did not start in the emulator; booting again")
            report = self._boot_once(folder, path, arguments, **options)
        with open(os.path.join(folder, "journal"), "w", encoding="utf-8") as file:
            file.write(report.get("journal", ""))
        return report


    def _boot_once(self, folder, path, arguments, **options):
        machine = Machine(folder, self.images, path, self.accelerated,
                          arguments=["systemd.unit=krv-device.target", "systemd.show_status=0", *arguments], **options)
        machine.start()
        try:
            return machine.report(LIMIT)
        finally:
            machine.stop()


@dataclass
class Result:
    """A scene that was played, and what was not as expected."""
    name: str
    complaints: list


def play(device, history, bus):
    """One history on one bus; a list of Result."""
    home = device.make(f"{bus}-{history[0].name}")
    path = os.path.join(home, "disk")
    disk.copy(os.path.join(device.images, bus + ".ext4"), path)
    results, reports = [], {}
    for boot in history:
        changes = disk.Disk(path)
        changes.ship([device.path_of(package) for package in boot.ship])
        boot.change(changes, device.packages)
        changes.apply()
        report = device.boot(device.make(f"{bus}-{boot.name}"), path,
                             ["krv.steps=" + ",".join(boot.steps), *boot.arguments])
        for name, judge in boot.scenes.items():
            scene = judge(report, bus, reports)
            results.append(Result(name, scene.complaints))
            device.say(f"  {'FAILED' if scene.complaints else 'ok'}: {name}, on {bus}")
            for complaint in scene.complaints:
                device.say(f"    {complaint}")
        reports[boot.name] = report
    dirt = disk.check(path)
    if dirt:
        device.say(f"  FAILED: file system after {history[-1].name}, on {bus}: {dirt}")
        results.append(Result("file system", [dirt]))
    os.remove(path)
    return results


def in_parallel(jobs):
    """The results of functions, in their order. Three run at a time on two processors, because devices often wait. Raises
    the first exception without waiting for the other functions: the caller has to end the process then."""
    pool = ThreadPoolExecutor(max_workers=3)
    running = [pool.submit(job) for job in jobs]
    try:
        wait(running, return_when=FIRST_EXCEPTION)
        return [future.result() for future in running if future.done()]
    finally:
        pool.shutdown(wait=False, cancel_futures=True)


def plays(device):
    """Functions that play all histories on both buses."""
    return [partial(play, device, history, bus) for bus in BUSES for history in scenes.HISTORIES]
