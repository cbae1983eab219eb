// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/handles.h"
#include "sandbox/store/header_blob.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gmock/gmock.h>
#include <rpm/rpmtag.h>

namespace {

using Common::Rpm::Reader;
using Sandbox::exportHeader;
using Sandbox::importHeader;
using Support::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int32_t ownTag = 1263687299; // a tag number that librpm does not know

class HeaderBlob : public testing::Test {
protected:
  HeaderBlob() { m_sandbox.build({}, m_sandbox.path() / "sample.rpm"); }

  Reader package() const { return Reader((m_sandbox.path() / "sample.rpm").string()); }

  Support::RpmSandbox m_sandbox;
};

TEST_F(HeaderBlob, IsTheWholeHeader) {
  const std::string bytes = exportHeader(package());
  const Reader copy = importHeader(bytes);
  EXPECT_EQ(copy.tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
  EXPECT_TRUE(exportHeader(copy) == bytes);
}

TEST_F(HeaderBlob, MakesAnIndependentHeader) {
  const Reader original = package();
  const std::string bytes = exportHeader(original);
  Reader copy = importHeader(bytes);
  Sandbox::addTexts(copy, ownTag, {"one", "two"});
  EXPECT_THAT(copy.texts(ownTag), ElementsAre("one", "two"));
  EXPECT_THAT(original.texts(ownTag), IsEmpty());
  EXPECT_TRUE(exportHeader(original) == bytes);
  EXPECT_THAT(importHeader(exportHeader(copy)).texts(ownTag), ElementsAre("one", "two"));
}

TEST_F(HeaderBlob, DoesNotChangeWithoutATextToAdd) {
  Reader copy = importHeader(exportHeader(package()));
  Sandbox::addTexts(copy, ownTag, {});
  EXPECT_TRUE(exportHeader(copy) == exportHeader(package()));
}

TEST_F(HeaderBlob, FailsForATruncatedOrOtherBlob) {
  const std::string error = "Internal: Couldn't read the header of a package";
  const std::string bytes = exportHeader(package());
  EXPECT_EQ(errorOf([] { importHeader(""); }), error);
  EXPECT_EQ(errorOf([] { importHeader("no header at all"); }), error);
  EXPECT_EQ(errorOf([&] { importHeader(bytes.substr(0, bytes.size() - 1)); }), error);
  EXPECT_EQ(errorOf([&] { importHeader(bytes + '\0'); }), error);
}

TEST_F(HeaderBlob, MarksThePackageAsInstalled) {
  Reader copy = importHeader(exportHeader(package()));
  Sandbox::markInstalled(copy, 1'600'000'000);
  EXPECT_EQ(headerGetNumber(copy.header().get(), RPMTAG_INSTALLTIME), 1'600'000'000U);
  const auto states = Common::Rpm::ownTagData(rpmtdNew());
  ASSERT_EQ(headerGet(copy.header().get(), RPMTAG_FILESTATES, states.get(), HEADERGET_DEFAULT), 1);
  EXPECT_EQ(std::string(static_cast<const char*>(states->data), states->count),
            std::string(copy.texts(RPMTAG_BASENAMES).size(), RPMFILE_STATE_NORMAL));
}

TEST_F(HeaderBlob, AddsNoFileStatesForAPackageWithoutFiles) {
  m_sandbox.build({.install = "", .files = ""}, m_sandbox.path() / "sample.rpm");
  Reader copy = importHeader(exportHeader(package()));
  Sandbox::markInstalled(copy, 7);
  EXPECT_EQ(headerGetNumber(copy.header().get(), RPMTAG_INSTALLTIME), 7U);
  EXPECT_EQ(headerIsEntry(copy.header().get(), RPMTAG_FILESTATES), 0);
}

} // namespace
