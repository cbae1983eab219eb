// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_service.h"
#include "tests/support/bus/private_bus.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <istream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using boost::property_tree::ptree;
using testing::ElementsAre;

ptree parsed(std::istream&& xml) {
  ptree tree;
  read_xml(xml, tree,
           boost::property_tree::xml_parser::no_comments | boost::property_tree::xml_parser::trim_whitespace);
  return tree;
}

/// An element in one line: its name, its sorted attributes and its content.
std::string describe(const std::string& name, const ptree& element) {
  std::set<std::string> attributes;
  std::string content;
  for (const auto& [childName, child] : element) {
    if (childName != "<xmlattr>")
      content += describe(childName, child);
    else
      for (const auto& [attribute, value] : child)
        attributes.insert(" " + attribute + "=" + value.data());
  }
  std::string text = "<" + name;
  for (const std::string& attribute : attributes)
    text += attribute;
  return text + ">" + element.data() + content;
}

/// The interfaces of an object description by name, with their members. The order of the members has no meaning; the
/// order of their arguments has.
std::map<std::string, std::set<std::string>> interfaces(const ptree& description) {
  std::map<std::string, std::set<std::string>> found;
  for (const auto& [name, interface] : description.get_child("node")) {
    if (name != "interface")
      continue;
    std::set<std::string>& members = found[interface.get<std::string>("<xmlattr>.name")];
    for (const auto& [memberName, member] : interface)
      if (memberName != "<xmlattr>")
        members.insert(describe(memberName, member));
  }
  return found;
}

class SandboxInterface : public testing::Test {
protected:
  std::map<std::string, std::set<std::string>> reported() {
    std::string xml;
    m_client.proxy().callMethod("Introspect").onInterface("org.freedesktop.DBus.Introspectable").storeResultsTo(xml);
    return interfaces(parsed(std::istringstream(xml)));
  }

  static std::map<std::string, std::set<std::string>> documented() {
    return interfaces(parsed(std::ifstream(KRV_SOURCE_DIRECTORY "/docs/velta.KRV.xml")));
  }

  Support::RpmSandbox m_rpm;
  Support::PrivateBus m_bus;
  RealService m_service{m_rpm.path()};
  ServiceClient m_client;
};

TEST_F(SandboxInterface, IsTheDocumentedOne) {
  EXPECT_EQ(documented().at("velta.KRV"), reported().at("velta.KRV"));
  EXPECT_EQ(documented()
                .at("velta.KRV")
                .count("<method name=Install><arg direction=in name=path type=s>"
                       "<arg direction=in name=options type=a{sv}>"),
            1U);
}

TEST_F(SandboxInterface, HasOnlyDocumentedAndStandardInterfaces) {
  std::vector<std::string> names;
  for (const auto& [name, members] : reported())
    names.push_back(name);
  EXPECT_THAT(names, ElementsAre("org.freedesktop.DBus.Introspectable", "org.freedesktop.DBus.Peer",
                                 "org.freedesktop.DBus.Properties", "velta.KRV"));
  ASSERT_EQ(documented().size(), 1U);
}

} // namespace
