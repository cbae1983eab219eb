#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Tests the product on the virtual device: scenes, power losses, and the proof that losses are found.

usage: test.py PROJECT IMAGES PACKAGES PROGRAMS FOLDER SEED

IMAGES and PACKAGES are from device/image and device/packages, PROGRAMS is the build's folder of programs, and FOLDER takes
disks, reports and recordings; scripts/device-test calls this. Exit status: 0 all is well, 1 something is not, 2 the test
could not be done.
"""
import os
import random
import signal
import subprocess
import sys
import time
from functools import partial

import disk
import power
import reboot
import stage
from machine import NoReport, accelerator, die_with_parent
from recording import Recording, RecordingFailed, record
from write_log import LogError

FIRST = [f"apps/1.0/app{number:03}" for number in range(1, 7)]
UPDATED = [f"apps/2.0/app{number:03}" for number in range(1, 5)]
REMOVED = [f"app{number:03}" for number in range(5, 7)]
NEEDED_POINTS = 300
REBOOTS = 4
SHOWN = 5


class Test:
    """The whole test; it collects what goes wrong."""

    def __init__(self, project, images, packages, programs, folder, seed):
        self._begin = time.monotonic()
        accelerated = accelerator(os.path.join(images, "vmlinuz"), folder)
        self._say(f"The virtual device runs with {accelerated}; --seed {seed} makes the same choices again")
        self._device = stage.Device(images, packages, folder, accelerated, self._say)
        self._image = os.path.join(images, "dbus-daemon.ext4")
        self._judge = power.Judge(self._device, project, programs,
                                  os.path.join(programs, "../device/guest/bin"))
        self._seed = seed
        self._chance = random.Random(seed)
        self._points = 0
        self._losses = 0
        self._failures = 0

    def _say(self, line):
        print(f"{time.monotonic() - self._begin:5.0f} s  {line}", flush=True)

    def run(self):
        self._say("Scenes, and recordings of first boots and of updates with removals")
        # The recordings take longest, so they begin first.
        played = stage.in_parallel([*self._recordings(), *stage.plays(self._device)])
        scenes = [result for results in played for result in results if isinstance(result, stage.Result)]
        *recordings, unsynced = [result for results in played for result in results if isinstance(result, Recording)]
        self._failures += sum(bool(scene.complaints) for scene in scenes)

        self._say("Power losses")
        for recording in recordings:
            self._power(recording, power.prefixes(recording), "crash points")
            if recording.bus == "virtio":
                self._power(recording, power.reorderings(recording, self._chance), "reorderings")
        self._prove(unsynced)
        self._reboot(recordings)
        print(f"{len(scenes)} scenes, {self._points} crash points, {self._losses} losses, {self._failures} failures",
              flush=True)
        return 1 if self._failures or self._losses else 0

    def _recordings(self):
        """Functions that make recordings; the last one is the one without syncs."""
        def first_and_update(bus):
            first = record(self._device, f"first boot on {bus}", self._image, FIRST, bus=bus)
            return [first, record(self._device, f"update on {bus}", first.after, UPDATED, remove=REMOVED, bus=bus,
                                  installed=FIRST)]

        def without_syncs():
            return [record(self._device, "first boot without syncs", self._image, FIRST, unsynced=True)]

        return [partial(first_and_update, "nvme"), partial(first_and_update, "virtio"), without_syncs]

    def _power(self, recording, points, kind):
        verdicts = self._judge.judge(recording, points)
        bad = [verdict for verdict in verdicts if verdict.complaints]
        self._points += len(verdicts)
        self._losses += len(bad)
        repaired = sum(verdict.repaired for verdict in verdicts)
        self._say(f"  {'FAILED' if bad else 'ok'}: {recording.name}, {len(verdicts)} {kind}, {len(bad)} losses, "
                  f"{repaired} registries repaired by the service")
        for verdict in bad[:SHOWN]:
            self._say(f"    {verdict.point.name}: {'; '.join(verdict.complaints[:3])}")
        if kind == "crash points" and len(verdicts) < NEEDED_POINTS:
            self._failures += 1
            self._say(f"    FAILED: {NEEDED_POINTS} crash points are needed")

    def _prove(self, unsynced):
        verdicts = self._judge.judge(unsynced, power.prefixes(unsynced))
        bad = sum(bool(verdict.complaints) for verdict in verdicts)
        self._failures += not bad
        self._say(f"  {'ok' if bad else 'FAILED'}: without syncs, {bad} losses are found in {len(verdicts)} crash points")

    def _reboot(self, recordings):
        self._say(f"Booting {REBOOTS} of these states")
        chosen = reboot.choose(recordings, self._chance, REBOOTS)
        for name, complaints in stage.in_parallel([partial(reboot.boot, self._device, *case) for case in chosen]):
            self._failures += bool(complaints)
            self._say(f"  {'FAILED' if complaints else 'ok'}: {name}")
            for complaint in complaints[:SHOWN]:
                self._say(f"    {complaint}")


def main(arguments):
    project, images, packages, programs, folder, seed = arguments
    die_with_parent()
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda received, _: leave(128 + received))
    try:
        return Test(project, images, packages, programs, folder, int(seed)).run()
    except (NoReport, RecordingFailed, LogError, disk.DiskError, OSError, subprocess.CalledProcessError) as error:
        print(f"scripts/device-test: {error}", file=sys.stderr)
        return 2


def leave(status):
    """Ends this process at once, without waiting for its threads. All processes that it has started die with it."""
    sys.stdout.flush()
    sys.stderr.flush()
    os._exit(status)


if __name__ == "__main__":
    leave(main(sys.argv[1:]))
