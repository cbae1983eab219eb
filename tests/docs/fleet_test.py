#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Runs the commands and queries of docs/fleet.md on the journals of 10,000 simulated devices.

usage: fleet_test.py PROJECT FOLDER-OF-PROGRAMS

Each simulated device has its fate, a log and its entries in one journal of systemd. The expected answers are computed
from the fates, without the log.
"""
import collections
import hashlib
import os
import random
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

PROJECT, PROGRAMS = sys.argv.pop(1), sys.argv.pop(1)
DEVICES = 10_000
FOLDER = "/usr/share/krv/pre-install-apps/"
START = 1_760_000_000_000_000
NO_SERVICE = "The name velta.KRV was not provided by any .service files"
IMAGES = [["maps-1.0-1.rpm", "mail-1.0-1.rpm", "notes-3.1-2.rpm", "player-0.9-1.rpm"],
          ["maps-2.0-1.rpm", "mail-1.0-1.rpm", "notes-3.1-2.rpm", "player-0.9-1.rpm"]]

# The lines of an entry for each fate.
LINES = {
    "installed": ['[I] The package successfully pre-installed: "{path}"'],
    "full": ["[E] Package installation error: The disk is full", '[E] Failed to pre-install package: "{path}"'],
    "late": ["[E] Package installation error: Connection timed out", '[E] Failed to pre-install package: "{path}"'],
    "developer": ["[E] Package developer doesn't match with the developer of an already installed package: \"{path}\"",
                  '[I] Skipping package pre-installation: "{path}"'],
    "damaged": ["[E] Couldn't read rpm package", '[E] Failed to read RPM package: "{path}"',
                '[I] Skipping package pre-installation: "{path}"'],
    "old": ["[E] The package version is lower than or equal to the version of an already installed package: \"{path}\"",
            '[I] Skipping package pre-installation: "{path}"'],
    "removed": ['[I] The package was manually removed by the user: "{path}"',
                '[I] Skipping package pre-installation: "{path}"'],
    # The text of the service has lines of its own: an outcome of an entry that no image has, and one of another entry.
    "evil": ["[E] Package installation error: No", '[I] The package successfully pre-installed: "' + FOLDER + 'ghost.rpm"',
             '[I] The package successfully pre-installed: "' + FOLDER + 'player-0.9-1.rpm"',
             "[E] Package installation error: No", '[E] Failed to pre-install package: "{path}"'],
}
FAILURES = {"full": "The disk is full", "late": "Connection timed out", "evil": "No"}

Boot = collections.namedtuple("Boot", "time end seconds fates")


def fate_of(entry, number, chance):
    """What happens to an entry at a boot of this number."""
    name = entry.split("-")[0]
    if name == "maps":
        return "developer" if chance < 0.02 else "installed"
    if number > 0:
        return "removed" if name == "player" and chance < 0.1 else "old"
    if name == "mail" and chance < 0.05:
        return "full" if chance < 0.03 else "late"
    if name == "player" and chance < 0.007:
        return "damaged"
    return "installed"


def boots_of(device):
    """The one or two boots of a device; the same in each run of the test."""
    choice = random.Random(device)
    boots = []
    for number in range(1 if choice.random() < 0.7 else 2):
        time = START + number * 86_400_000_000 + device * 1_000_000 + choice.randrange(1_000_000)
        end = choice.choices(["complete", "no-service", "cut"], [0.985, 0.01, 0.005])[0]
        fates = {entry: fate_of(entry, number, choice.random()) for entry in IMAGES[number]}
        if device == 4711 and number == 0:
            fates, end = {**fates, "mail-1.0-1.rpm": "evil", "player-0.9-1.rpm": "damaged"}, "complete"
        if end == "no-service":
            fates = {}
        seconds = int(choice.expovariate(0.1)) if end == "complete" else None
        boots.append(Boot(time, end, seconds, fates))
    return boots


def log_of(boot):
    if boot.end == "no-service":
        return ["[E] " + NO_SERVICE, "[E] Failed to create dbus proxy for KRV service"]
    lines = [line.format(path=FOLDER + entry) for entry, fate in boot.fates.items() for line in LINES[fate]]
    if boot.end == "complete":
        lines.append(f"[I] Time spent for pre-installation: {boot.seconds} seconds")
    return lines


def identity(*parts):
    return hashlib.md5(repr(parts).encode()).hexdigest()


def journal_entries(fleet):
    """The entries of all devices in the order of their times, in the export format of the journal."""
    entries = []
    for device, boots in enumerate(fleet):
        for number, boot in enumerate(boots):
            for count, line in enumerate(log_of(boot)):
                entries.append((boot.time + count * 150_000, device, number, line))
    for time, device, number, line in sorted(entries):
        yield (f"__REALTIME_TIMESTAMP={time}\n__MONOTONIC_TIMESTAMP=1\n_BOOT_ID={identity(device, number)}\n"
               f"_MACHINE_ID={identity(device)}\n_SYSTEMD_INVOCATION_ID={identity('run', device, number)}\n"
               f"_SYSTEMD_UNIT=krv-pre-installer.service\nMESSAGE={line}\n\n")


def expected_failures(fleet):
    devices = collections.Counter((entry, FAILURES[fate]) for boots in fleet for boot in boots
                                  for entry, fate in boot.fates.items() if fate in FAILURES)
    rows = []
    for entry in {entry for entry, _ in devices}:
        reasons = sorted(((count, detail) for (other, detail), count in devices.items() if other == entry),
                         key=lambda reason: (-reason[0], reason[1]))
        rows.append((entry, sum(count for count, _ in reasons), reasons[0][1], reasons[0][0]))
    return sorted(rows, key=lambda row: (-row[1], row[0]))


def expected_mismatches(fleet):
    return sorted({(identity(device), entry) for device, boots in enumerate(fleet) for boot in boots
                   for entry, fate in boot.fates.items() if fate == "developer"})


def expected_versions(fleet):
    last = collections.Counter()
    for boots in fleet:
        installed = [entry for boot in boots for entry, fate in boot.fates.items()
                     if entry.startswith("maps-") and fate == "installed"]
        last.update(installed[-1:])
    return sorted(last.items())


def expected_percentiles(fleet):
    seconds = sorted(boots[0].seconds for boots in fleet if boots[0].seconds is not None)
    return [tuple(seconds[-(-len(seconds) * percent // 100) - 1] for percent in (50, 90, 99))]


def expected_ends(fleet):
    ends = collections.Counter(boot.end for boots in fleet for boot in boots if boot.end != "complete")
    return [(end, NO_SERVICE if end == "no-service" else "", count) for end, count in
            sorted(ends.items(), key=lambda item: (-item[1], item[0]))]


def expected_oddities(fleet):
    players = sum(any("player-0.9-1.rpm" in boot.fates for boot in boots) for boots in fleet)
    return [("ghost.rpm", 1, 0), ("player-0.9-1.rpm", players, 1)]


class Fleet(unittest.TestCase):
    def setUp(self):
        with open(os.path.join(PROJECT, "docs/fleet.md"), encoding="utf-8") as page:
            self.page = page.read()
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def run_command(self, start, change=lambda command: command, **options):
        """Runs the command of the page that begins with `start`."""
        command = re.search(rf"(?m)^    ({re.escape(start)} .*)$", self.page).group(1)
        path = PROGRAMS + ":" + os.environ["PATH"]
        done = subprocess.run(["bash", "-o", "pipefail", "-c", change(command)], cwd=self.folder.name,
                              env={**os.environ, "PATH": path}, capture_output=True, text=True, check=False, **options)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def make_journal(self, fleet):
        folder = os.path.join(self.folder.name, "remote")
        os.mkdir(folder)
        source = os.path.join(self.folder.name, "export")
        with open(source, "w", encoding="utf-8") as file:
            file.writelines(journal_entries(fleet))
        subprocess.run(["/lib/systemd/systemd-journal-remote", f"--output={folder}/remote.journal", source],
                       stderr=subprocess.DEVNULL, check=True)
        return folder

    def query(self, sql):
        """The rows as tuples; numbers as numbers, and an empty text for NULL."""
        done = subprocess.run(["sqlite3", "-separator", "\x1f", "fleet.db", sql], cwd=self.folder.name,
                              stdout=subprocess.PIPE, text=True, check=True)
        return [tuple(int(cell) if cell.isdigit() and len(cell) < 20 else cell for cell in row.split("\x1f"))
                for row in done.stdout.splitlines()]

    def test_answers_each_question(self):
        fleet = [boots_of(device) for device in range(DEVICES)]
        folder = self.make_journal(fleet)
        self.run_command("journalctl", lambda command: command.replace(
            "--directory=/var/log/journal/remote", "--quiet --directory=" + shlex.quote(folder)))
        load, *queries = re.findall(r"(?ms)^```sql\n(.*?)^```$", self.page)
        with open(os.path.join(self.folder.name, "load.sql"), "w", encoding="utf-8") as script:
            script.write(load)
        self.run_command("sqlite3")
        self.assertEqual(self.query("SELECT count(*) FROM run"), [(sum(len(boots) for boots in fleet),)])
        expectations = [expected_failures, expected_mismatches, expected_versions, expected_percentiles, expected_ends,
                        expected_oddities]
        self.assertEqual(len(queries), len(expectations))
        for sql, expectation in zip(queries, expectations):
            with self.subTest(expectation.__name__):
                answer = expectation(fleet)
                self.assertTrue(answer)
                self.assertEqual(self.query(sql), answer)


if __name__ == "__main__":
    unittest.main()
