# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""The scenes on a booted device: what each boot gets, what the agent does, and what its report must say."""
from dataclasses import dataclass, field
from typing import Callable

from expect import Scene, foreign, installed, not_newer, path, refused, removed, unreadable

OLD_IMAGE = ["notes-1.0-1", "maps-2.0-1", "player-0.9-1", "camera-3.1-1", "clock-1.0-1"]
NEW_IMAGE = ["notes-1.2-1", "maps-2.0-2", "player-1.1-1", "camera-3.1-1", "clock-2.0-1", "weather-1.0-1", "wallet-1.0-1",
             "draft-0.1-1", "damaged"]
OLD_EVENTS = ["I notes", "I maps", "I player", "I camera", "I clock"]
UNIT = "krv-pre-installer.service"
SERVICE_FILE = "/usr/share/dbus-1/system-services/velta.KRV.service"
DROP_IN = "/etc/systemd/system/krv-sandbox.service.d/test.conf"

# The texts of the bus: dbus-daemon's and dbus-broker's.
NOT_PROVIDED = {"dbus-daemon": "The name velta.KRV was not provided by any .service files",
                "dbus-broker": "The name is not activatable"}


def boot_order(scene):
    """The tool has ended before anybody may log in, and the boot went on to its end."""
    units = scene.order()

    def time(name, moment):
        return units.get(name, {}).get(moment, 0)

    end = int(scene.values("times").get("ExecMainExitTimestampMonotonic", 0))
    sessions = time("systemd-user-sessions.service", "InactiveExitTimestampMonotonic")
    scene.holds("the tool did not run before logins", 0 < end < sessions)
    scene.holds("a login prompt came before logins were allowed",
                sessions < time("console-getty.service", "InactiveExitTimestampMonotonic"))
    scene.holds("the boot did not reach its end", sessions < time("multi-user.target", "ActiveEnterTimestampMonotonic"))


def first_boot(report, bus, _):
    scene = Scene(report, "boot")
    scene.equal("bus", bus in scene.text("bus"), True)
    scene.log(*map(installed, OLD_IMAGE))
    scene.unit("active", "success", 0)
    scene.failed()
    scene.packages(*OLD_IMAGE)
    scene.registry(*OLD_EVENTS)
    boot_order(scene)
    scene.holds("the registry's lock is open to others",
                "/var/lib/krv/registry.lock regular empty file root:root 600" in scene.lines("state-folder"))
    return scene


def second_boot(report, bus, earlier):
    scene = Scene(report, "boot")
    scene.log(*map(not_newer, OLD_IMAGE))
    scene.unit("active", "success", 0)
    scene.failed()
    scene.packages(*OLD_IMAGE)
    scene.same("registry", earlier["first boot"]["boot/registry"])
    scene.same("state-folder", earlier["first boot"]["boot/state-folder"])
    boot_order(scene)
    return scene


# The accesses that the unit allows, and the errors of those that it forbids.
ALLOWED = ["write the registry's folder", "write the folder of RPM's database", "open a local socket"]
FORBIDDEN = {
    "write /usr": "EROFS", "write /etc": "EROFS", "write /opt": "EROFS", "write the image's packages": "EROFS",
    "write /var/lib": "EROFS", "write /run": "EROFS", "write /sys/fs/cgroup": "EROFS", "read /root": "EACCES",
    "see another's /tmp": "ENOENT", "open the disk": "ENOENT", "read the kernel's log": "EPERM",
    "open /dev/kmsg": "ENOENT", "write a kernel setting": "EROFS", "set the clock": "EPERM",
    "set the host name": "EPERM", "mount": "EPERM", "make a user namespace": "EPERM", "make a mount namespace": "EPERM",
    "open an internet socket": "EAFNOSUPPORT", "open a netlink socket": "EAFNOSUPPORT", "be another user": "EPERM",
    "change an owner": "EPERM", "make a set-user-ID file": "EPERM", "keep a capability": "EPERM",
    "write and execute memory": "EPERM", "be real-time": "EPERM", "raise the priority": "EPERM",
    "change the personality": "EPERM", "trace a process": "EPERM", "load a module": "EPERM", "swap": "EPERM",
}


def confinement(report, bus, _):
    scene = Scene(report, "confinement")
    confined = dict(line.split(": ") for line in scene.lines("confined") if ": " in line)
    expected = {**{name: "allowed" for name in ALLOWED}, **FORBIDDEN}
    scene.equal_lists("attempts", [": ".join(item) for item in confined.items()],
                      [": ".join(item) for item in expected.items()])
    # Without the confinement each attempt has another result, or the attempt would prove nothing.
    unconfined = dict(line.split(": ") for line in scene.lines("unconfined") if ": " in line)
    for name, error in FORBIDDEN.items():
        scene.holds(f"{name}: {error} without confinement too", unconfined.get(name, error) != error)
    return scene


def runs_as_ever(scene):
    """After a scene that disturbed the unit, a start of it is an ordinary run again."""
    after = Scene(scene.report, scene.step + "/after")
    after.log(*map(not_newer, OLD_IMAGE + (["big-1.0-1"] if "big" in after.text("packages") else [])))
    after.unit("active", "success", 0)
    after.failed()
    scene.complaints += ["afterwards, " + complaint for complaint in after.complaints]


def start_limits(report, bus, _):
    scene = Scene(report, "limits")
    scene.equal("starts", scene.lines("starts"), ["1 0", "2 0", "3 1"])
    scene.unit("failed", "start-limit-hit", 0)
    scene.failed("krv-test-limits.service")
    after = Scene(report, "limits/after")
    after.unit("active", "success", 0)
    after.failed()
    scene.complaints += ["after reset-failed, " + complaint for complaint in after.complaints]
    return scene


def stop_in_the_middle(report, bus, _):
    """The service finishes what the tool has asked for."""
    scene = Scene(report, "stop")
    scene.equal("at the moment of the stop", scene.text("big-at-stop"), "package big is not installed\n")
    scene.unit("inactive", "success", 15)
    scene.failed()
    after = Scene(report, "stop/after")
    after.packages(*OLD_IMAGE, "big-1.0-1")
    after.registry(*OLD_EVENTS, "I big")
    scene.complaints += after.complaints
    runs_as_ever(scene)
    return scene


def time_limit(report, bus, _):
    scene = Scene(report, "timeout")
    scene.equal("log", scene.text("log"), "")
    scene.unit("failed", "timeout", 15)
    scene.failed("krv-test-timeout.service")
    runs_as_ever(scene)
    return scene


def removal(report, bus, _):
    scene = Scene(report, "remove")
    scene.packages(*[name for name in OLD_IMAGE if name != "player-0.9-1"], "big-1.0-1")
    scene.registry("I notes", "I maps", "R player", "I camera", "I clock", "I big")
    return scene


def update(report, bus, _):
    scene = Scene(report, "boot")
    scene.log(installed("notes-1.2-1"), installed("maps-2.0-2"), removed("player-1.1-1"), not_newer("camera-3.1-1"),
              foreign("clock-2.0-1"), installed("weather-1.0-1"),
              refused("wallet-1.0-1", "Package is signed with a non-legal developer certificate"),
              unreadable("draft-0.1-1", "Package doesn't have developer signature"),
              unreadable("damaged", "Couldn't read rpm package"))
    scene.unit("active", "success", 0)
    scene.failed()
    scene.packages("notes-1.2-1", "maps-2.0-2", "camera-3.1-1", "clock-1.0-1", "weather-1.0-1", "big-1.0-1")
    scene.registry("I notes", "U notes", "I maps", "U maps", "R player", "I camera", "I clock", "I big", "I weather")
    boot_order(scene)
    again = Scene(report, "again")
    again.same("packages", scene.text("packages"))
    again.same("registry", scene.text("registry"))
    again.failed()
    scene.complaints += again.complaints
    return scene


def without_service(report, bus, _):
    scene = Scene(report, "boot")
    scene.equal("log", scene.lines("log"), [f"[E] {NOT_PROVIDED[bus]}",
                                            "[E] Failed to create dbus proxy for KRV service"])
    scene.unit("failed", "exit-code", 1)
    scene.failed(UNIT)
    scene.equal("system", scene.text("system"), "degraded\n")
    scene.packages()
    boot_order(scene)
    return scene


def dying_service(report, bus, _):
    """Every package has its lines, and the run ends; which text the bus has for a dead service does not matter."""
    scene = Scene(report, "boot")
    lines = scene.lines("log")
    for package in OLD_IMAGE:
        name = package.rsplit("-", 2)[0]
        scene.holds(f"no line about the query for {name}",
                    f"[E] Failed to query information about installed package: {name}" in lines)
        scene.holds(f"no outcome of {name}", f"[E] Failed to pre-install package: {path(package)}" in lines)
    scene.equal("errors of installations", sum(line.startswith("[E] Package installation error: ") for line in lines),
                len(OLD_IMAGE))
    scene.equal("lines", len(lines), 4 * len(OLD_IMAGE) + 1)
    scene.unit("active", "success", 0)
    scene.packages()
    boot_order(scene)
    return scene


def ordered_after_logins(report, bus, _):
    """The service waits for logins, and logins wait for the tool: the tool gives up, and the boot goes on."""
    scene = Scene(report, "boot")
    scene.equal("last line", scene.lines("log")[-1:], ["[E] Failed to create dbus proxy for KRV service"])
    scene.unit("failed", "exit-code", 1)
    scene.failed(UNIT)
    scene.packages()
    boot_order(scene)
    return scene


@dataclass
class Boot:
    """One boot of a disk: the packages of the image, further changes of the disk, the agent's steps, and the scenes."""
    name: str
    ship: list
    scenes: dict[str, Callable]
    steps: list
    change: Callable = lambda disk, packages: None
    arguments: list = field(default_factory=list)


def carry_big(disk, packages):
    disk.put(f"{packages}/big-1.0-1.rpm", "/usr/lib/krv-device/big-1.0-1.rpm")


def lose_service(disk, _):
    disk.remove(SERVICE_FILE)


def make_service_die(disk, _):
    disk.write(DROP_IN, "[Service]\nEnvironment=LD_PRELOAD=/usr/lib/krv-device/device-dying-shim.so\n")


def order_service_late(disk, _):
    disk.write(DROP_IN, "[Unit]\nAfter=systemd-user-sessions.service\n")


# The boots of one list follow each other on the same disk. While one device waits in vain for the late service, another
# uses the processor.
HISTORIES = [
    [Boot("late service", OLD_IMAGE, {"service ordered after logins": ordered_after_logins}, ["boot"],
          order_service_late)],
    [Boot("first boot", OLD_IMAGE, {"first boot": first_boot}, ["boot"], carry_big),
     Boot("second boot", OLD_IMAGE,
          {"second boot changes nothing": second_boot, "confinement": confinement, "start limits": start_limits,
           "stop in the middle of an installation": stop_in_the_middle, "time limit": time_limit,
           "removal by the user": removal},
          ["boot", "confinement", "limits", "timeout", "stop", "remove"], arguments=["krv.remove=player"]),
     Boot("update", NEW_IMAGE, {"update of the image, with a removed, a rotated, a foreign and a damaged package": update},
          ["boot", "again"])],
    [Boot("dying service", OLD_IMAGE, {"service that dies at every call": dying_service}, ["boot"], make_service_die)],
    [Boot("no service", OLD_IMAGE, {"no service, status 1": without_service}, ["boot"], lose_service)],
]
