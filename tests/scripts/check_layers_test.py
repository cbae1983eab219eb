#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Feeds scripts/check-layers small trees: one for each kind of breach, and one without any.

usage: check_layers_test.py SCRIPT
"""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = ""

# Headers that the trees include.
HEADERS = {"driver/run.h": "", "driver/log/log_message.h": "", "common/error/error.h": "", "core/registry.h": "",
           "service/krv_proxy.h": "", "tests/support/process/process.h": "", "common/rpm/reader.h": "",
           "sandbox/service.h": "", "sandbox/store/directory.h": ""}

# The name of each breach, with the file, its text and the expected finding.
BREACHES = {
    "upper floor": ("core/a.cpp", '#include "driver/run.h"\n', "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "same floor": ("core/a.cpp", '#include "service/krv_proxy.h"\n',
                   "1: core (floor 2) includes service/krv_proxy.h of service (floor 2)"),
    "product includes tests": ("driver/a.cpp", '#include "tests/support/process/process.h"\n',
                               "1: driver (floor 3) includes tests/support/process/process.h of tests (floor 6)"),
    "inner folder includes outer": ("driver/log/a.cpp", '#include "driver/run.h"\n',
                                    "1: driver/log (floor 0) includes driver/run.h of driver (floor 3)"),
    "angle brackets": ("core/a.cpp", "#include <driver/run.h>\n",
                       "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "spaces in the directive": ("core/a.cpp", ' # \tinclude   "driver/run.h"\n',
                                "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "no space in the directive": ("core/a.cpp", '#include"driver/run.h"\n',
                                  "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "digraph": ("core/a.cpp", '%:include "driver/run.h"\n',
                "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "comment in the directive": ("core/a.cpp", '/* a */ # /* b */ include /* c */ "driver/run.h"\n',
                                 "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "directive on two lines": ("core/a.cpp", 'int a;\n#include \\\n  "driver/run.h"\n',
                               "2: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "include_next": ("core/a.cpp", "#include_next <rpm/rpmlib.h>\n", "1: core may not include rpm/rpmlib.h"),
    "import": ("core/a.cpp", "export import <rpm/rpmlib.h>;\n", "1: core may not include rpm/rpmlib.h"),
    "macro": ("core/a.cpp", "#include HEADER\n", "1: includes HEADER, which is no plain file name"),
    "header file": ("core/a.h", '#include "driver/run.h"\n', "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "file with another ending": ("core/a.inc", '#include "driver/run.h"\n',
                                 "1: core (floor 2) includes driver/run.h of driver (floor 3)"),
    "not from the root": ("driver/a.cpp", '#include "run.h"\n',
                          "1: includes run.h, which is no header of a listed library and not written from the root of the project"),
    "climbing path": ("driver/a.cpp", '#include "../core/registry.h"\n',
                      "1: includes ../core/registry.h, which is no header of a listed library and not written from the root of the project"),
    "inner folder of the sandbox includes outer": ("sandbox/store/a.cpp", '#include "sandbox/service.h"\n',
                          "1: sandbox/store (floor 4) includes sandbox/service.h of sandbox (floor 5)"),
    "acceptance includes the sandbox": ("acceptance/a.cpp", '#include "sandbox/store/directory.h"\n',
                                        "1: acceptance (floor 3) includes sandbox/store/directory.h of sandbox/store (floor 4)"),
    "acceptance includes the tool": ("acceptance/a.cpp", '#include "driver/run.h"\n',
                                     "1: acceptance (floor 3) includes driver/run.h of driver (floor 3)"),
    "bus in acceptance": ("acceptance/a.cpp", "#include <sdbus-c++/sdbus-c++.h>\n",
                          "1: acceptance may not include sdbus-c++/sdbus-c++.h"),
    "bus in the store": ("sandbox/store/a.cpp", "#include <sdbus-c++/sdbus-c++.h>\n",
                         "1: sandbox/store may not include sdbus-c++/sdbus-c++.h"),
    "librpm in sandbox": ("sandbox/a.cpp", "#include <rpm/rpmlib.h>\n", "1: sandbox may not include rpm/rpmlib.h"),
    "librpm in quotes": ("driver/a.cpp", '#include "rpm/rpmver.h"\n', "1: driver may not include rpm/rpmver.h"),
    "OpenSSL in sandbox": ("sandbox/a.cpp", "#include <openssl/cms.h>\n", "1: sandbox may not include openssl/cms.h"),
    "signatures in the log": ("driver/log/a.cpp", "#include <rpmsign-external/signing.h>\n",
                              "1: driver/log may not include rpmsign-external/signing.h"),
    "sdbus-c++ in the driver": ("driver/a.cpp", "#include <sdbus-c++/sdbus-c++.h>\n",
                                "1: driver may not include sdbus-c++/sdbus-c++.h"),
    "library that is not listed": ("core/a.cpp", "#include <sqlite3.h>\n",
                                   "1: includes sqlite3.h, which is no header of a listed library and not written from the root of the project"),
    "line around the list of messages": ("core/a.cpp", 'int a;\n  LogMessage(LogLevel::Info) << "x";\n',
                                         "2: writes a log line that is not in driver/log/messages.h"),
    "line around the list in a header": ("common/error/a.h", 'LogMessage line(LogLevel::Info);\n',
                                         "1: writes a log line that is not in driver/log/messages.h"),
    "part of Boost that is not listed": ("core/a.cpp", "#include <boost/regex.hpp>\n",
                                         "1: includes boost/regex.hpp, which is no header of a listed library and not written from the root of the project"),
}


class CheckLayers(unittest.TestCase):
    def check(self, sources):
        """Exit status, findings and report for a tree of `sources`."""
        with tempfile.TemporaryDirectory(prefix="a tree ") as tree:
            subprocess.run(["git", "init", "-q", tree], check=True)
            for path, text in sources.items():
                os.makedirs(os.path.dirname(os.path.join(tree, path)) or tree, exist_ok=True)
                with open(os.path.join(tree, path), "w", encoding="utf-8") as file:
                    file.write(text)
            done = subprocess.run([SCRIPT, tree], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
            return done.returncode, done.stderr.splitlines(), done.stdout

    def test_finds_each_kind_of_breach(self):
        for kind, (path, text, finding) in BREACHES.items():
            with self.subTest(kind):
                self.assertEqual(self.check({**HEADERS, path: text})[:2], (1, [f"{path}:{finding}"]))

    def test_finds_a_new_top_folder_by_its_first_file(self):
        self.assertEqual(self.check({**HEADERS, "helper/a.h": ""})[:2],
                         (1, ["helper/a.h: stands in a folder that is on no floor"]))

    def test_finds_a_new_folder_beside_a_listed_one(self):
        self.assertEqual(self.check({**HEADERS, "common/other/a.h": ""})[:2],
                         (1, ["common/other/a.h: stands in a folder that is on no floor"]))

    def test_reports_every_breach(self):
        status, findings, _ = self.check({**HEADERS, **{path: text for path, text, _ in
                                                        (BREACHES["upper floor"], BREACHES["librpm in sandbox"])}})
        self.assertEqual((status, len(findings)), (1, 2))

    def test_allows_lower_floors_own_folder_system_and_wrapped_libraries(self):
        allowed = {"core/a.cpp": '#include "core/registry.h"\n#include "driver/log/log_message.h"\n#include <sys/stat.h>\n'
                                 "#include <string>\n#include <boost/interprocess/sync/file_lock.hpp>\n",
                   "driver/a.cpp": '#include "core/registry.h"\n#include "service/krv_proxy.h"\n',
                   "common/rpm/a.cpp": '#include <rpm/rpmlib.h>\n#include "common/error/error.h"\n'}
        self.assertEqual(self.check({**HEADERS, **allowed}), (0, [], "9 includes in 12 files keep to their floors\n"))

    def test_reads_no_comment_and_no_text_as_a_directive(self):
        text = ('// #include "driver/run.h"\n/*\n#include "driver/run.h"\n*/\n'
                'auto a = R"(\n#include "driver/run.h"\n)";\nauto b = "// ";\nauto c = \'"\';  // "\nauto d = "/*";\n')
        self.assertEqual(self.check({**HEADERS, "core/a.cpp": text})[0], 0)

    def test_sees_the_directive_behind_a_text_that_looks_like_a_comment(self):
        text = 'auto a = {\'"\', "/*"};\n#include "driver/run.h"\nauto b = {\'"\', "*/"};\n'
        self.assertEqual(self.check({**HEADERS, "core/a.cpp": text})[1],
                         ["core/a.cpp:2: core (floor 2) includes driver/run.h of driver (floor 3)"])

    def test_does_not_pass_over_an_empty_tree(self):
        self.assertEqual(self.check({"README.md": "text"}), (2, ["scripts/check-layers: no source files here"], ""))

    def test_refuses_unknown_options(self):
        done = subprocess.run([SCRIPT, "--all"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (2, ""))


if __name__ == "__main__":
    SCRIPT = os.path.abspath(sys.argv.pop(1))
    unittest.main()
