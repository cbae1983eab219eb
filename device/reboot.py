# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Boots the device from states that a power loss has left: the next boot repairs everything."""
import os

import disk
from expect import Scene
from power import allowed, prefixes
from recording import nevr
from replay import Replica
from write_log import WriteLog


def choose(recordings, chance, count):
    """States from the middle of operations: as many of each recording as the count allows, in turn."""
    chosen = []
    for number in range(count):
        recording = recordings[number % len(recordings)]
        points = prefixes(recording)
        chosen.append((recording, chance.choice(points[:len(points) * 9 // 10])))
    return chosen


def with_image(state, ship):
    """The installed packages after the packages of the image were added to a state or have replaced older ones."""
    packages = {name.rsplit("-", 2)[0]: name for name in state.packages}
    packages.update({os.path.basename(package): nevr(package) for package in ship})
    return set(packages.values())


def boot(device, recording, point):
    """The name of the case, and what is not as it should be after the next boot."""
    name = f"{recording.name}, {point.name}"
    home = device.make("reboot " + name)
    path = os.path.join(home, "disk")
    log = WriteLog(recording.log)
    replica = Replica(recording.before, path, log)
    for entry in log.entries[:point.end]:
        replica.apply(entry)
    replica.close()
    report = device.boot(home, path, ["krv.steps=boot,again"], bus=recording.bus)

    scene = Scene(report, "boot")
    scene.unit("active", "success", 0)
    scene.failed()
    found = {line.removesuffix(".noarch") for line in scene.lines("packages")}
    expected = [with_image(state, recording.ship) for state in allowed(recording, point)]
    if found not in expected:
        scene.equal_lists("packages", list(found), list(expected[0]))
    scene.equal_lists("rpm -Va", scene.lines("verify"), [])
    again = Scene(report, "again")
    again.same("packages", scene.text("packages"))
    again.same("registry", scene.text("registry"))
    again.equal_lists("rpm -Va of a second run", again.lines("verify"), [])
    dirt = disk.check(path)
    if dirt:
        scene.complaints.append("the file system: " + dirt)
    os.remove(path)
    return name, scene.complaints + again.complaints
