#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Tests how the virtual device's recordings are read and judged, on recordings and findings made here.

usage: judge_test.py PROJECT
"""
import os
import struct
import sys
import tempfile
import unittest
from random import Random

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(sys.argv.pop(1), "device"))

from judge import EMPTY, File, Found, State, is_repaired, judge, states  # noqa: E402
from power import Point, allowed, prefixes, reorderings  # noqa: E402
from recording import Recording  # noqa: E402
from write_log import DISCARD, FLUSH, FUA, MAGIC, Entry, LogError, WriteLog, epochs  # noqa: E402

SECTOR = 512


def log_of(*requests, magic=MAGIC, count=None):
    """A log of (sector, data, flags); an integer instead of data is the length of a discard."""
    entries = b""
    for sector, data, flags in requests:
        length = data if isinstance(data, int) else len(data) // SECTOR
        entries += struct.pack("<QQQQ", sector, length, flags, 0).ljust(SECTOR, b"\0")
        entries += b"" if isinstance(data, int) else data
    head = struct.pack("<QQQI", magic, 1, len(requests) if count is None else count, SECTOR)
    return head.ljust(SECTOR, b"\0") + entries


def block(text):
    return text.encode().ljust(SECTOR, b"\0")


class WithLog(unittest.TestCase):
    def log(self, content):
        file = tempfile.NamedTemporaryFile(delete=False)
        self.addCleanup(os.unlink, file.name)
        with file:
            file.write(content)
        return file.name


class Log(WithLog):
    def test_holds_requests_in_their_order(self):
        log = WriteLog(self.log(log_of((8, block("a") * 2, 0), (0, b"", FLUSH), (3, block("b"), FUA | FLUSH))))
        self.assertEqual([(entry.offset, entry.length, entry.flags) for entry in log.entries],
                         [(8 * SECTOR, 2 * SECTOR, 0), (0, 0, FLUSH), (3 * SECTOR, SECTOR, FUA | FLUSH)])
        self.assertEqual(log.data(log.entries[2]), block("b"))

    def test_has_no_data_of_a_discard(self):
        log = WriteLog(self.log(log_of((8, 100, DISCARD), (3, block("b"), 0))))
        self.assertFalse(log.entries[0].is_write)
        self.assertEqual(log.data(log.entries[1]), block("b"))

    def test_is_refused_if_it_is_cut_or_something_else(self):
        whole = log_of((8, block("a"), 0))
        for content in (b"", b"x" * 4096, whole[:-1], whole[:SECTOR], log_of(magic=1), log_of((1, block("a"), 0), count=2)):
            with self.assertRaises(LogError):
                WriteLog(self.log(content))

    def test_has_marks_behind_the_file_system(self):
        log = WriteLog(self.log(log_of((8, block("krv-mark install 3\nabc"), 0), (9, block("krv-mark install 3\nabcd"), 0),
                                       (9, block("something"), 0), (0, b"", FLUSH))))
        self.assertIsNone(log.mark(log.entries[0], 9 * SECTOR))
        self.assertEqual(log.mark(log.entries[1], 9 * SECTOR), "abc")
        self.assertIsNone(log.mark(log.entries[3], 0))
        with self.assertRaises(LogError):
            log.mark(log.entries[2], 9 * SECTOR)


class Epochs(unittest.TestCase):
    def test_end_at_flushes(self):
        entries = [Entry(0, 512, 0, 0), Entry(1, 512, 0, 0), Entry(0, 0, FLUSH, 0), Entry(0, 0, FLUSH, 0),
                   Entry(2, 512, FLUSH, 0), Entry(3, 512, DISCARD, 0), Entry(4, 512, 0, 0)]
        self.assertEqual([[index for index, _ in group] for group in epochs(entries)], [[0, 1], [4, 6]])


class Points(WithLog):
    def setUp(self):
        self.mark = block("krv-mark install 0\n")
        log = self.log(log_of((1, block("boot"), 0), (0, b"", FLUSH), (1000, self.mark, 0), (2, block("a"), 0),
                              (3, block("b"), 0), (4, block("c"), 0), (0, b"", FLUSH), (1000, self.mark, 0),
                              (5, block("d"), 0), (0, b"", FLUSH)))
        self.recording = Recording("name", "virtio", "", "", log, ["S0", "S1"], [2, 7], 1000 * SECTOR, [], [])

    def test_are_all_writes_from_the_first_mark_on(self):
        self.assertEqual([point.end for point in prefixes(self.recording)], [3, 4, 5, 6, 8, 9])

    def test_are_one_write_alone_and_one_write_missing_between_flushes(self):
        seen = set()
        for seed in range(50):
            points = [(point.start, point.chosen, point.end) for point in reorderings(self.recording, Random(seed))]
            self.assertEqual(len(points), 2)
            seen.update(points)
        self.assertEqual(seen, {(2, (4,), 6), (2, (5,), 6), (2, (4, 5), 6), (2, (3, 5), 6)})

    def test_allow_what_is_acknowledged_and_what_is_under_way(self):
        self.assertEqual(allowed(self.recording, Point("", 0, (), 7)), ["S0", "S1"])
        self.assertEqual(allowed(self.recording, Point("", 0, (), 8)), ["S1"])


A, B = "timestamp=1 event=I package=a keyid=k\n", "timestamp=2 event=I package=b keyid=k\n"
FILE = File(0o100644, "0123")
CONTENTS = {"a-1-1": {"/opt/a": FILE}, "b-1-1": {"/opt/b": FILE}}
OLD, NEW = State(A, frozenset(["a-1-1"])), State(A + B, frozenset(["a-1-1", "b-1-1"]))


def found(**changes):
    """All of the old state, with changes."""
    return Found(**{"raw_registry": A, "under_way": False, "registry": A, "packages": ["a-1-1"], "files": {"/opt/a": FILE}, "leftovers": [],
                    **changes})


class Judgement(unittest.TestCase):
    def complaints(self, **changes):
        return judge(found(**changes), [OLD, NEW], CONTENTS)

    def test_is_silent_about_the_old_and_the_new_state(self):
        self.assertEqual(self.complaints(), [])
        new = {"raw_registry": A + B, "registry": A + B, "packages": ["b-1-1", "a-1-1"],
               "files": {"/opt/a": FILE, "/opt/b": FILE}}
        self.assertEqual(self.complaints(**new), [])
        self.assertEqual(judge(found(**new), [NEW], CONTENTS), [])

    def test_finds_an_acknowledged_package_that_is_gone(self):
        self.assertEqual(judge(found(), [NEW], CONTENTS),
                         ["before the service starts, the registry is another one, of 1 records",
                          "not in the database: b-1-1", "the registry does not fit the database: it is another one, of 1 records"])

    def test_finds_a_file_that_is_lost(self):
        self.assertEqual(self.complaints(files={}), ["missing: /opt/a"])

    def test_finds_an_empty_file(self):
        self.assertEqual(self.complaints(files={"/opt/a": File(0o100644, EMPTY)}),
                         [f"empty: /opt/a (mode 100644, {EMPTY[:8]} instead of mode 100644, 0123)"])

    def test_finds_other_permissions(self):
        self.assertEqual(self.complaints(files={"/opt/a": File(0o100600, "0123")}),
                         ["wrong: /opt/a (mode 100600, 0123 instead of mode 100644, 0123)"])

    def test_finds_a_file_of_no_package(self):
        self.assertEqual(self.complaints(files={"/opt/a": FILE, "/opt/b": FILE}), ["belongs to no package: /opt/b"])

    def test_finds_a_torn_and_an_empty_registry(self):
        for text, name in ((A[:-1], "torn"), (A + "\0\0", "torn"), ("", "empty"), (B, "another one, of 1 records")):
            self.assertEqual(self.complaints(raw_registry=text),
                             [f"before the service starts, the registry is {name}"])

    def test_lets_the_service_repair_the_registry_of_a_transaction_under_way(self):
        repaired = found(raw_registry="\0" * len(A), under_way=True)
        self.assertEqual(judge(repaired, [OLD, NEW], CONTENTS), [])
        self.assertTrue(is_repaired(repaired, [OLD, NEW]))
        self.assertFalse(is_repaired(found(under_way=True), [OLD, NEW]))

    def test_finds_a_registry_that_is_ahead_of_the_database(self):
        self.assertEqual(self.complaints(registry=A + B),
                         ["the registry does not fit the database: it is another one, of 2 records"])

    def test_finds_a_package_twice_and_one_of_nobody(self):
        self.assertEqual(self.complaints(packages=["a-1-1", "a-1-1"]), ["a package is twice in the database"])
        self.assertEqual(self.complaints(packages=["a-1-1", "c-1-1"]), ["in the database: c-1-1"])

    def test_finds_leftovers(self):
        self.assertEqual(self.complaints(leftovers=["transaction"]), ["left behind: transaction"])

    def test_finds_that_the_service_does_not_start(self):
        self.assertEqual(self.complaints(failure="the service does not start: why"), ["the service does not start: why"])


class States(unittest.TestCase):
    def test_follow_the_last_record_of_each_mark(self):
        removal = A + "timestamp=3 event=R package=b keyid=k\n"
        update = removal + "timestamp=4 event=U package=a keyid=k\n"
        self.assertEqual([sorted(state.packages) for state in
                          states(["", A, A + B, removal, update], {"a": "a-2-1", "b": "b-1-1"}, ["a-1-1"])],
                         [["a-1-1"], ["a-2-1"], ["a-2-1", "b-1-1"], ["a-2-1"], ["a-2-1"]])


if __name__ == "__main__":
    unittest.main()
