# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Reads a recording of everything that was written to a disk.

QEMU's block driver blklogwrites makes it, in the format of Linux's dm-log-writes. All numbers are little-endian; the log
consists of sectors, whose size the first one states (512 here).

  sector 0           magic number 0x6a736677736872 (8 bytes), version 1 (8), number of entries (8), size of a sector (4)
  then per entry     one sector: place on the disk in sectors (8), length in sectors (8), flags (8), length of a comment
                     in bytes (8), the comment;
                     then, except for a discard, as many sectors of data

The flags are 1 for a flush, 2 for a write that is on the disk when it is answered (FUA), 4 for a discard, 8 for a
comment. A flush without data has the length 0. An entry is written when its request has been carried out, so a prefix of
the log is a possible state of a disk that writes everything at once, and the entries between two flushes are what a disk
with a cache may have written in part.

QEMU writes the number of entries only now and then, and at its end.

The guest marks answers in the log: a write behind the end of the file system that begins with "krv-mark LABEL LENGTH\\n"
and goes on with LENGTH bytes, the registry at that moment.
"""
import mmap
import os
import struct
from dataclasses import dataclass

MAGIC = 0x6A736677736872
FLUSH, FUA, DISCARD, COMMENT = 1, 2, 4, 8
MARK = b"krv-mark "



class LogError(Exception):
    """The log is not one, or is cut."""


@dataclass(frozen=True)
class Entry:
    """A request: where on the disk, and where in the log its data is; a flush has no data."""
    offset: int
    length: int
    flags: int
    data: int

    @property
    def is_write(self):
        return self.length > 0 and not self.flags & (DISCARD | COMMENT)

    @property
    def is_flush(self):
        return bool(self.flags & FLUSH)


class WriteLog:
    """An open log: `entries`, and their data."""

    def __init__(self, path):
        with open(path, "rb") as file:
            if os.fstat(file.fileno()).st_size < 512:
                raise LogError("the log is empty")
            self._bytes = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
        magic, version, count, sector = struct.unpack_from("<QQQI", self._bytes)
        if magic != MAGIC or version != 1 or sector < 512:
            raise LogError("this is no log of writes")
        self.entries = []
        place = sector
        for _ in range(count):
            if place + 32 > len(self._bytes):
                raise LogError("the log is cut")
            start, length, flags, _ = struct.unpack_from("<QQQQ", self._bytes, place)
            place += sector
            self.entries.append(Entry(start * sector, length * sector, flags, place))
            if not flags & DISCARD:
                place += length * sector
            if place > len(self._bytes):
                raise LogError("the log is cut")

    def data(self, entry):
        return self._bytes[entry.data:entry.data + entry.length]

    def mark(self, entry, end):
        """The registry that this entry marks, if it is a mark behind `end`, the end of the file system."""
        if not entry.is_write or entry.offset < end:
            return None
        data = self.data(entry)
        head, _, text = data.partition(b"\n")
        words = head.split(b" ")
        if not head.startswith(MARK) or len(words) != 3:
            raise LogError("a write behind the file system is no mark")
        return text[:int(words[2])].decode()


def epochs(entries):
    """The entries grouped by flushes: lists of (index, entry) of writes; each list ends where a flush was carried out."""
    group = []
    for index, entry in enumerate(entries):
        if entry.is_flush and group:
            yield group
            group = []
        if entry.is_write:
            group.append((index, entry))
    if group:
        yield group
