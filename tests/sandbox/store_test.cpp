// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store_fixture.h"
#include "tests/support/captured_log.h"
#include "tests/support/process.h"
#include "tests/support/thrown.h"

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using StoreTest::Fixture;
using Support::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;

class Store : public Fixture {};

const Support::PackageInput mixed = {
    .install = "cd %{buildroot}; mkdir -p opt/app/folder; cd opt/app\n"
               "echo first >folder/first; echo second >second; : >empty; echo shared >one; ln one two\n"
               "ln -s folder/first link; ln -s /nowhere dangling\n"
               "chmod 640 second; chmod 4755 empty; chmod 2750 folder; chmod 600 one",
    .files = "/opt/app"};

TEST_F(Store, PutsEverythingInItsPlace) {
  install(mixed);
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/app 755 directory\n"
                    "opt/app/dangling -> /nowhere\n"
                    "opt/app/empty 755 \"\"\n"
                    "opt/app/folder 750 directory\n"
                    "opt/app/folder/first 644 \"first\n\"\n"
                    "opt/app/link -> folder/first\n"
                    "opt/app/one 600 \"shared\n\"\n"
                    "opt/app/second 640 \"second\n\"\n"
                    "opt/app/two 600 is also one\n");
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

} // namespace
