# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""The expectations of a scene about the report of a device."""
import re

FOLDER = "/usr/share/krv/pre-install-apps"
TIME = re.compile(r"\[I\] Time spent for pre-installation: (\d+) seconds")


def path(package):
    return f'"{FOLDER}/{package}.rpm"'


def installed(package):
    return [f"[I] The package successfully pre-installed: {path(package)}"]


def skipped(package, *reason):
    return [*reason, f"[I] Skipping package pre-installation: {path(package)}"]


def not_newer(package):
    return skipped(package, "[E] The package version is lower than or equal to the version of an already installed "
                            f"package: {path(package)}")


def removed(package):
    return skipped(package, f"[I] The package was manually removed by the user: {path(package)}")


def foreign(package):
    return skipped(package, "[E] Package developer doesn't match with the developer of an already installed package: "
                   + path(package))


def unreadable(package, reason):
    return skipped(package, f"[E] {reason}", f"[E] Failed to read RPM package: {path(package)}")


def refused(package, reason):
    return [f"[E] Package installation error: {reason}", f"[E] Failed to pre-install package: {path(package)}"]


class Scene:
    """Collects what is not as expected in one step of a report."""

    def __init__(self, report, step):
        self.report = report
        self.step = step
        self.complaints = []

    def text(self, name):
        return self.report.get(f"{self.step}/{name}", f"(the report has no {self.step}/{name})")

    def lines(self, name):
        return self.text(name).splitlines()

    def values(self, name):
        return dict(line.split("=", 1) for line in self.lines(name) if "=" in line)

    def order(self):
        """The units of the boot: name to property to value; moments are microseconds since the kernel's start."""
        units, unit = {}, {}
        for line in self.lines("order") + [""]:
            name, _, value = line.partition("=")
            unit[name] = int(value) if value.isdecimal() else value
            if not line:
                units[unit.get("Id")] = unit
                unit = {}
        return units

    def equal(self, what, found, expected):
        if found != expected:
            self.complaints.append(f"{what}: {found!r} instead of {expected!r}")

    def equal_lists(self, what, found, expected):
        """Without regard to the order; a complaint names the differences only."""
        self.complaints += [f"{what}: unexpected {line!r}" for line in sorted(found)
                            if found.count(line) > expected.count(line)]
        self.complaints += [f"{what}: no {line!r}" for line in sorted(expected)
                            if expected.count(line) > found.count(line)]

    def holds(self, what, condition):
        if not condition:
            self.complaints.append(what)

    def log(self, *groups):
        """The tool's log has these lines, in any order of the packages, and the time at its end."""
        lines = self.lines("log")
        self.equal_lists("log", lines[:-1], [line for group in groups for line in group])
        self.holds(f"the log ends with {lines[-1:]}", lines and TIME.fullmatch(lines[-1]))

    def unit(self, state, result, status):
        values = self.values("unit")
        self.equal("unit", (values.get("ActiveState"), values.get("Result"), values.get("ExecMainStatus")),
                   (state, result, str(status)))

    def failed(self, *units):
        self.equal_lists("failed units", [line.split()[0] for line in self.lines("failed")], list(units))

    def packages(self, *names):
        """Installed are these and nothing else: in RPM's database, and with all their files whole."""
        self.equal_lists("packages", self.lines("packages"), [f"{name}.noarch" for name in names])
        self.equal_lists("rpm -Va", self.lines("verify"), [])
        self.equal_lists("folders in /opt", list({line.split("/")[2] for line in self.lines("files")}),
                         [name.rsplit("-", 2)[0] for name in names])

    def registry(self, *events):
        """The registry has these events, "I notes", in any order."""
        records = [dict(word.split("=", 1) for word in line.split()) for line in self.lines("registry")]
        self.equal_lists("registry", [f"{record.get('event')} {record.get('package')}" for record in records],
                         list(events))
        self.holds("a key of the registry has not 64 digits",
                   all(re.fullmatch("[0-9a-f]{64}", record.get("keyid", "")) for record in records))

    def same(self, name, other):
        """A file of this step is equal to that of another step or report."""
        self.equal(name, self.text(name), other)
