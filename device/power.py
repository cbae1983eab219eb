# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Judges the states in which a power loss may have left the disk of a recording."""
import multiprocessing
import os
import shutil
import signal
from dataclasses import dataclass

from judge import is_repaired, judge, manifests
from machine import die_with_parent
from replay import Inspector, Replica
from write_log import WriteLog, epochs

WORKERS = 2


@dataclass(frozen=True)
class Point:
    """A state of the disk: all requests before `start`, and then only those of `chosen`. `end` is the moment of the
    power loss: every answer that is marked before it counts."""
    name: str
    start: int
    chosen: tuple
    end: int


@dataclass
class Verdict:
    """The mistakes found at a crash point, and whether the service has repaired the registry."""
    point: Point
    complaints: list
    repaired: bool


def prefixes(recording):
    """The disk has written everything up to one moment: each entry once."""
    entries = WriteLog(recording.log).entries
    return [Point(f"after entry {index}", index, (index,), index + 1)
            for index in range(recording.marks[0], len(entries)) if entries[index].is_write]


def reorderings(recording, chance):
    """Between two flushes the disk may write in any order. Of each such group of writes, the disk has written only one,
    and all but one, which chance chooses. Prefixes are left out."""
    points = []
    for group in epochs(WriteLog(recording.log).entries):
        writes = [index for index, entry in group if entry.offset < recording.size]
        end = group[-1][0] + 1
        if end <= recording.marks[0] or len(writes) < 2:
            continue
        start = group[0][0]
        alone = chance.choice(writes[1:])
        points.append(Point(f"entry {alone} alone of {writes[0]} to {writes[-1]}", start, (alone,), end))
        if len(writes) > 2:
            missing = chance.choice(writes[:-1])
            rest = tuple(index for index in writes if index != missing)
            points.append(Point(f"entry {missing} missing of {writes[0]} to {writes[-1]}", start, rest, end))
    return points


def allowed(recording, point):
    """The state that is acknowledged at this point, and the one that the operation after it leads to."""
    acknowledged = sum(mark < point.end for mark in recording.marks) - 1
    return recording.states[acknowledged:acknowledged + 2]


def become_worker():
    """A worker ends with its parent, and at a signal at once: the pool ends its workers with SIGTERM."""
    die_with_parent()
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


class Judge:
    """Judges points of recordings, in worker processes that have a replica of the disk each."""

    def __init__(self, device, project, programs, libraries):
        self._device = device
        self._inspection = (project, programs, libraries)
        self._contents = {}

    def judge(self, recording, points):
        """A verdict for each point, in their order."""
        self._contents = manifests([self._device.path_of(package) for package in recording.packages])
        shares = [points[len(points) * share // WORKERS:len(points) * (share + 1) // WORKERS]
                  for share in range(WORKERS)]
        with multiprocessing.get_context("fork").Pool(WORKERS, initializer=become_worker) as pool:
            return [verdict for verdicts in pool.map(self._work, [(recording, share, number)
                                                                  for number, share in enumerate(shares)], chunksize=1)
                    for verdict in verdicts]

    def _work(self, job):
        recording, points, number = job
        folder = self._device.make(f"{recording.name}-{number}")
        log = WriteLog(recording.log)
        replica = Replica(recording.before, os.path.join(folder, "disk"), log)
        inspector = Inspector(folder, *self._inspection)
        verdicts, done = [], 0
        try:
            for point in points:
                for index in range(done, point.start):
                    replica.apply(log.entries[index])
                done = point.start
                chosen = [log.entries[index] for index in point.chosen]
                saved = replica.save(chosen)
                for entry in chosen:
                    replica.apply(entry)
                found = inspector.look(replica.path)
                replica.restore(saved)
                states = allowed(recording, point)
                verdicts.append(Verdict(point, judge(found, states, self._contents), is_repaired(found, states)))
        finally:
            inspector.close()
            replica.close()
            shutil.rmtree(folder)
        return verdicts
