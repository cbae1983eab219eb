// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/differential_cases.h"

#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/packages/rpm_version.h"

#include <cctype>
#include <map>
#include <utility>

namespace Differential {

namespace {

using Support::PackageInput;

using Cases = std::vector<Case>;

/// Replaces the characters that a test name must not have.
std::string asName(const std::string& text) {
  std::string name;
  for (const char character : text)
    name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
  return name;
}

/// Makes equal names different.
Cases withUniqueNames(Cases cases) {
  std::map<std::string, int> counts;
  for (Case& each : cases) {
    if (const int count = ++counts[each.name]; count > 1)
      each.name += "_" + std::to_string(count);
  }
  return cases;
}

/// A tree with all types of entries that need no special rights.
const std::string makeTree = "mkdir -p %{buildroot}/opt/%{name}/folder; cd %{buildroot}/opt/%{name}\n"
                             "echo first > folder/first; seq 3000 > numbers; : > empty; echo shared > one; ln one two\n"
                             "ln -s folder/first link";

/// The tree, built with these macros.
Case withMacros(const std::string& name, const std::string& globals) {
  return {name, {.install = makeTree, .globals = globals}};
}

Case withPreamble(const std::string& name, const std::string& preamble) {
  return {name, {.preamble = preamble}};
}

Case withSections(const std::string& name, const std::string& sections) {
  return {name, {.sections = sections}};
}

/// Files below /opt/sample; the lines of %install start in that folder.
Case withFiles(const std::string& name, const std::string& install, const std::string& files) {
  return {name,
          {.install = "mkdir -p %{buildroot}/opt/sample; cd %{buildroot}/opt/sample\n" + install, .files = files}};
}

/// One file, with a directive.
Case withDirective(const std::string& directive) {
  return withFiles("File_" + asName(directive), "echo x > file", directive + " /opt/sample/file");
}

void addPayloads(Cases& cases) {
  for (const char* mode : {"w0.gzdio", "w1.gzdio", "w6.gzdio", "w9.gzdio", "w.gzdio", "w1.bzdio", "w9.bzdio",
                           "w0.xzdio", "w6.xzdio", "w9.xzdio", "w6T2.xzdio", "w7T0.xzdio", "w2.lzdio", "w9.lzdio",
                           "w1.zstdio", "w3.zstdio", "w19.zstdio", "w9T2.zstdio", "w.ufdio"})
    cases.push_back(withMacros("Payload_" + asName(mode), "%global _binary_payload " + std::string(mode)));
  for (const char* algorithm : {"1", "2", "8", "9", "10", "11"})
    cases.push_back(withMacros("FileDigest_" + std::string(algorithm),
                               "%global _binary_filedigest_algorithm " + std::string(algorithm)));
  cases.push_back(withMacros("PayloadWithoutPrefix", "%global _noPayloadPrefix 1"));
  cases.push_back({"PayloadOfNothing", {.install = "", .files = ""}});
  for (const char* mode : {"w9.gzdio", "w9.bzdio", "w6.xzdio", "w2.lzdio", "w3.zstdio", "w.ufdio"})
    cases.push_back({"PayloadOfNothing_" + asName(mode),
                     {.install = "", .files = "", .globals = "%global _binary_payload " + std::string(mode)}});
}

void addMacros(Cases& cases) {
  const std::string changelog = "%changelog\n* Mon Jan 03 2000 Somebody <somebody@example.org> - 1.0-1\n- second\n"
                                "* Sat Jan 01 2000 Somebody <somebody@example.org> - 0.9-1\n- first\n- of two";
  const auto withChangelog = [&](const std::string& name, const std::string& globals) {
    cases.push_back({name, {.sections = changelog, .globals = globals}});
  };
  withChangelog("Changelog", "");
  withChangelog("ChangelogTrimmed", "%global _changelog_trimtime 946771200");
  withChangelog("BuildTimeFromChangelog", "%global source_date_epoch_from_changelog 1\n"
                                          "%global use_source_date_epoch_as_buildtime 1\n"
                                          "%global clamp_mtime_to_source_date_epoch 1");
  cases.push_back(withMacros("BuildHost", "%global _buildhost build.example.org"));
  cases.push_back(withMacros("Vendor", "%global vendor A vendor\n%global packager A packager <p@example.org>"));
  cases.push_back(withMacros("Distribution", "%global distribution A distribution\n%global disttag tag"));
  cases.push_back(withMacros("BugUrl", "%global bugurl https://example.org/bugs"));
  cases.push_back(withMacros("OptFlags", "%global optflags -O2 -g -fno-such"));
  cases.push_back(withMacros("NoDocFiles", "%global _excludedocs 1"));
  cases.push_back({"BuildConditionWith",
                   {.preamble = "%{?with_extra:Provides: extra}",
                    .globals = "%bcond_with extra",
                    .arguments = {"--with", "extra"}}});
  cases.push_back({"BuildConditionWithout",
                   {.preamble = "%{!?with_usual:Provides: unusual}",
                    .globals = "%bcond_without usual",
                    .arguments = {"--without", "usual"}}});
  cases.push_back({"DefinedOutside", {.preamble = "Provides: %{outside}", .arguments = {"--define", "outside thing"}}});
}

void addPreamble(Cases& cases) {
  for (const char* line : {"Epoch: 0",
                           "Epoch: 7",
                           "Epoch: 4294967295",
                           "Group: Applications/Text",
                           "Vendor: Somebody",
                           "Packager: Somebody",
                           "Distribution: Something",
                           "DistTag: tag",
                           "URL: https://example.org/%%7e",
                           "BugURL: https://example.org/bugs",
                           "VCS: git:https://example.org/x.git",
                           "ModularityLabel: a:b:1:c",
                           "TranslationURL: https://example.org/t",
                           "UpstreamReleases: https://example.org/r",
                           "AutoReqProv: no",
                           "AutoReq: no",
                           "AutoProv: no",
                           "ExclusiveArch: noarch %{ix86} %{arm} x86_64 aarch64",
                           "ExcludeArch: sparc",
                           "ExclusiveOS: linux",
                           "ExcludeOS: aix",
                           "Prefix: /opt",
                           "Prefix: /opt\nPrefix: /opt/sample",
                           "Prefixes: /opt, /usr",
                           "Source: nowhere.tar",
                           "Source0: nowhere.tar\nNoSource: 0",
                           "Summary(de): Ein Testpaket",
                           "Summary(de): Ein Testpaket\nSummary(fr): Un paquet\nGroup(de): Gruppe",
                           "RemovePathPostfixes: .other"})
    cases.push_back(withPreamble("Preamble_" + asName(line), line));
}

void addNames(Cases& cases) {
  for (const char* version : {"0", "1.0~rc1", "1.0^git1", "1.0+2", "20260101", "1_0", "1.a.B.c", "00.01"})
    cases.push_back({"Version_" + asName(version), {.version = version}});
  cases.push_back({"Version_Long", {.version = std::string(180, '7')}});
  for (const char* release : {"0", "0.1.rc~2", "1%{?dist}", "3.el^8"})
    cases.push_back({"Release_" + asName(release), {.release = release}});
  for (const char* name : {"x", "Name", "a-b-c", "lib++", "a.b_c", "_name", "9lives"})
    cases.push_back({"Name_" + asName(name),
                     {.name = name, .install = "mkdir -p %{buildroot}/opt/sample", .files = "/opt/sample"}});
}

void addArchitectures(Cases& cases) {
  for (const char* target : {"x86_64-linux", "i386-linux", "i686-linux", "aarch64-linux", "armv7hl-linux",
                             "riscv64-linux", "ppc64le-linux", "s390x-linux", "noarch-linux"}) {
    const std::string architecture(target, std::string(target).find('-'));
    cases.push_back({"Architecture_" + architecture, {.architecture = "", .arguments = {"--target", target}}});
  }
}

void addDependencies(Cases& cases) {
  for (const char* kind : {"Requires", "Provides", "Conflicts", "Obsoletes", "Recommends", "Suggests", "Supplements",
                           "Enhances", "OrderWithRequires"}) {
    const std::string tag = std::string(kind) + ": ";
    cases.push_back(withPreamble(std::string(kind), tag + "other"));
    cases.push_back(
        withPreamble(std::string(kind) + "Versions", tag + "a < 1, b <= 1:2, c = 2-3, d >= 4~5, e > 0:6^7"));
  }
  for (const char* qualifier :
       {"pre", "post", "preun", "postun", "pretrans", "posttrans", "verify", "interp", "meta", "pre,post", "rpmlib"})
    cases.push_back(withPreamble("Requires_" + asName(qualifier), "Requires(" + std::string(qualifier) + "): other"));
  for (const char* rich : {"(a and b)", "(a or b)", "(a if b)", "(a if b else c)", "(a unless b)", "(a with b)",
                           "(a without b)", "((a >= 1 with a < 2) or (b and c))"})
    cases.push_back(withPreamble(
        "Rich_" + asName(rich),
        std::string(std::string(rich).find("unless") == std::string::npos ? "Requires: " : "Conflicts: ") + rich));
  cases.push_back(withPreamble("DependencyOnAFile", "Requires: /bin/sh\nConflicts: /opt/nothing"));
  cases.push_back(withPreamble("DependencyTwice", "Requires: a\nRequires: a\nProvides: b = 1\nProvides: b = 1"));
  cases.push_back(withPreamble("DependencyOfAnArchitecture", "Requires: a(x86-64)\nProvides: b(x86-64) = 1"));
  std::string many;
  for (int i = 0; i < 2000; ++i)
    many += "Provides: capability" + std::to_string(i) + " = " + std::to_string(i) + "\n";
  cases.push_back(withPreamble("DependenciesByThousands", many));
}

void addScripts(Cases& cases) {
  for (const char* script : {"pre", "post", "preun", "postun", "pretrans", "posttrans", "verifyscript"}) {
    const std::string section = "%" + std::string(script);
    cases.push_back(withSections("Script_" + std::string(script), section + "\ntrue"));
    cases.push_back(withSections("ScriptInLua_" + std::string(script), section + " -p <lua>\nprint(1)"));
    cases.push_back(
        withSections("ScriptWithArguments_" + std::string(script), section + " -p \"/bin/sh -e -u\"\ntrue"));
    cases.push_back(withSections("ScriptAlone_" + std::string(script), section + " -p /sbin/ldconfig"));
  }
  cases.push_back(withSections("ScriptExpanded", "%post -e\necho %%{name}"));
  cases.push_back(withSections("ScriptFormatted", "%post -q\necho %%{NAME}"));
  cases.push_back(withSections("ScriptsAll", "%pre\n1\n%post\n2\n%preun\n3\n%postun\n4\n%pretrans\n5\n%posttrans\n6"));
}

void addTriggers(Cases& cases) {
  for (const char* trigger : {"triggerin", "triggerun", "triggerpostun", "triggerprein"}) {
    const std::string section = "%" + std::string(trigger);
    cases.push_back(withSections("Trigger_" + std::string(trigger), section + " -- other\ntrue"));
    cases.push_back(withSections("TriggerConditions_" + std::string(trigger),
                                 section + " -p <lua> -- a, b < 3, c >= 1:2-3\nprint(1)"));
  }
  for (const char* trigger : {"filetriggerin", "filetriggerun", "filetriggerpostun", "transfiletriggerin",
                              "transfiletriggerun", "transfiletriggerpostun"}) {
    const std::string section = "%" + std::string(trigger);
    cases.push_back(withSections("Trigger_" + std::string(trigger), section + " -- /opt\ntrue"));
    cases.push_back(
        withSections("TriggerPriority_" + std::string(trigger), section + " -P 1234 -p <lua> -- /opt, /usr\nprint(1)"));
  }
  cases.push_back(withSections("TriggersOfAllKinds", "%triggerin -- a\n1\n%triggerin -- b\n2\n%triggerun -- a\n3\n"
                                                     "%filetriggerin -- /opt\n4\n%transfiletriggerin -- /opt\n5"));
  // rpmbuild only warns; the second condition belongs to the first script.
  if (!Support::librpmIsAtLeast("4.20")) // 4.20 refuses to build it
    cases.push_back(withSections("TriggersWithTheSameCondition", "%triggerin -- other\n1\n%triggerin -- other\n2"));
  cases.push_back(
      withSections("FileTriggersWithTheSameCondition", "%filetriggerin -- /opt\n1\n%filetriggerin -- /opt\n2"));
  cases.push_back(withSections("TransactionTriggersWithTheSameCondition",
                               "%transfiletriggerin -- /opt\n1\n%transfiletriggerin -- /opt\n2"));
}

void addDirectives(Cases& cases) {
  for (const char* directive : {"%doc",
                                "%license",
                                "%readme",
                                "%artifact",
                                "%config",
                                "%config(noreplace)",
                                "%config(missingok)",
                                "%config(missingok, noreplace)",
                                "%missingok",
                                "%ghost",
                                "%ghost %config",
                                "%lang(de)",
                                "%lang(de_AT)",
                                "%verify()",
                                "%verify(not md5 size mtime)",
                                "%verify(not filedigest)",
                                "%verify(mode)",
                                "%verify(user group)",
                                "%verify(not link rdev caps)",
                                "%verify(owner link)",
                                "%attr(0600, root, root)",
                                "%attr(4755, root, root)",
                                "%attr(2755, root, root)",
                                "%attr(1644, root, root)",
                                "%attr(0000, root, root)",
                                "%attr(0644, somebody, somegroup)",
                                "%attr(-, nobody, -)",
                                "%caps(cap_net_raw=ep)",
                                "%caps(cap_net_admin,cap_net_raw=eip)",
                                "%config %lang(de) %attr(0640, root, root) %verify(not md5)"})
    cases.push_back(withDirective(directive));
  cases.push_back(withFiles("Defattr", "mkdir folder; echo x > folder/file",
                            "%defattr(0640, somebody, somegroup, 0750)\n/opt/sample"));
  cases.push_back(withFiles("DocFromTheBuild", "echo text > %{_builddir}/README; echo text > %{_builddir}/COPYING",
                            "%doc README\n%license COPYING\n%dir /opt/sample"));
  cases.push_back(withFiles("DocDirectory", "mkdir papers; echo x > papers/a; echo y > other",
                            "%docdir /opt/sample/papers\n/opt/sample"));
  cases.push_back(withFiles("Excluded", "echo x > a; echo y > b", "/opt/sample\n%exclude /opt/sample/b"));
  cases.push_back(withFiles("ListedFromAFile", "echo x > a; echo /opt/sample/a > %{_builddir}/list", "-f list"));
  cases.back().input.files = "/opt/sample/a";
  cases.push_back(withFiles("Languages", "for l in de fr pl; do mkdir $l; echo $l > $l/text; done",
                            "%lang(de) /opt/sample/de\n%lang(fr) /opt/sample/fr\n/opt/sample/pl\n%dir /opt/sample"));
  cases.push_back(withFiles("DirectoriesAlone", "mkdir -p a/b/c", "%dir /opt/sample/a\n%dir /opt/sample/a/b/c"));
  cases.push_back(withFiles("DirectoryModes", "mkdir a b c",
                            "%dir %attr(1777, root, root) /opt/sample/a\n%dir %attr(2750, root, root) /opt/sample/b\n"
                            "%dir %attr(0500, root, root) /opt/sample/c"));
}

void addContents(Cases& cases) {
  const std::string all = "/opt/sample";
  cases.push_back(withFiles("HardLinks", "echo x > a; ln a b; ln a c; echo y > d; ln d e", all));
  cases.push_back(withFiles("HardLinksAcrossFolders", "mkdir x y; echo x > x/a; ln x/a y/b; echo y > x/z", all));
  cases.push_back(withFiles("HardLinksOfNothing", ": > a; ln a b", all));
  cases.push_back(withFiles("HardLinksOfASymlink", "ln -s nowhere a; ln a b", all));
  cases.push_back(withFiles("HardLinksToAGhost", "echo x > a; ln a b; ln a c",
                            "%ghost /opt/sample/a\n/opt/sample/b\n/opt/sample/c"));
  cases.push_back(withFiles("HardLinksOfGhosts", "echo x > a; ln a b; echo y > c",
                            "%ghost /opt/sample/a\n%ghost /opt/sample/b\n/opt/sample/c"));
  cases.push_back(withFiles("HardLinksOneLeftOut", "echo x > a; ln a b; ln a c",
                            "/opt/sample/a\n%exclude /opt/sample/b\n/opt/sample/c"));
  cases.push_back(withFiles("HardLinksConfigured", "echo x > a; ln a b",
                            "%config /opt/sample/a\n%attr(600, root, root) /opt/sample/b"));
  cases.push_back(
      withFiles("Symlinks", "ln -s /etc/passwd a; ln -s nowhere b; ln -s b c; ln -s . d; ln -s 'a b' e", all));
  cases.push_back(withFiles("SymlinkOfALongPath", "ln -s /" + std::string(250, 'x') + " a", all));
  cases.push_back(withFiles("SymlinkOfAFolder", "mkdir folder; echo x > folder/file; ln -s folder link", all));
  cases.push_back(withFiles("SymlinkAsGhost", "ln -s /somewhere a; echo x > b", "%ghost /opt/sample/a\n/opt/sample/b"));
  cases.push_back(withFiles("Fifo", "mkfifo a; echo x > b", all));
  cases.push_back(withFiles("Device", "echo x > b", "/opt/sample/b\n%dev(c, 1, 3) /opt/sample/null"));
  cases.push_back(
      withFiles("Names", "echo x > 'a b'; echo y > -rf; echo z > '\xc3\xa4'; echo q > \"q'\"; echo w > a:b", all));
  cases.push_back(withFiles("NamesThatAreNoText", "printf x > \"$(printf 'a\\377b')\"", all));
  cases.back().input.globals = "%global _invalid_encoding_terminates_build 0";
  cases.push_back(withFiles("NameOf255", "echo x > " + std::string(255, 'n'), all));
  cases.push_back(withFiles("ModificationTimes", "echo x > a; echo y > b; touch -d @0 a; touch -d @4294967295 b", all));
  cases.push_back(withFiles("Sparse", "truncate -s 3M a; head -c 131073 /dev/zero > b; seq 200000 > c", all));
  cases.push_back(withFiles("ManyFiles", "for i in $(seq 500); do echo $i > $i; done", all));
  cases.push_back(withFiles("ManyFolders", "for i in $(seq 300); do mkdir $i; echo $i > $i/file; done", all));
  cases.push_back(
      withFiles("DeepFolders", "d=x; for i in $(seq 60); do mkdir -p $d; echo x > $d/f; d=$d/x; done", all));
  // A ghost is not in the payload, so its size costs nothing. It needs the 64-bit size tags.
  cases.push_back(withFiles("GhostOf5GiB", "truncate -s 5G a; echo x > b", "%ghost /opt/sample/a\n/opt/sample/b"));
  cases.push_back(withFiles("Program", "cp /bin/true a; printf '#!/bin/sh\\n' > b; chmod 755 b", all));
  cases.back().input.globals =
      "%global __os_install_post %{nil}\n%global _binaries_in_noarch_packages_terminate_build 0";
  cases.push_back(withFiles("ProgramOfAnArchitecture", "cp /bin/true a; cp /bin/true b", all));
  cases.back().input.architecture = "%{_target_cpu}";
  cases.back().input.globals = "%global __os_install_post %{nil}\n%global debug_package %{nil}";
  cases.push_back(withFiles("RootFolder", "echo x > %{buildroot}/file", "%dir /\n/file"));
}

void addTexts(Cases& cases) {
  cases.push_back(
      withSections("DescriptionTranslated", "%description -l de\nEin Testpaket.\n%description -l fr\nUn paquet."));
  cases.push_back(withSections("DescriptionLong", "%description -l de\n" + std::string(100000, 'x')));
  cases.push_back({"SummaryUtf8", {.preamble = "Group: \xc3\x84\xc3\x96"}});
}

void addSourcePackages(Cases& cases) {
  const auto addSource = [&](const std::string& name, PackageInput input) {
    input.isSource = true;
    cases.push_back({"Source" + name, std::move(input)});
  };
  addSource("Plain", {});
  addSource("BuildRequires", {.preamble = "BuildRequires: a >= 1, b\nBuildConflicts: c"});
  addSource("Architectures", {.preamble = "ExclusiveArch: x86_64 aarch64\nExcludeArch: sparc"});
  addSource("Epoch", {.preamble = "Epoch: 3"});
  addSource("Md5", {.globals = "%global _source_filedigest_algorithm 1"});
  addSource("Sha512", {.globals = "%global _source_filedigest_algorithm 10"});
  for (const char* mode : {"w9.bzdio", "w6.xzdio", "w3.zstdio", "w.ufdio"})
    addSource("Payload_" + asName(mode), {.globals = "%global _source_payload " + std::string(mode)});
}

/// Cases that are signed with rpmsign and these arguments.
void addSignatures(Cases& cases) {
  const auto sign = [](const Support::RpmSandbox& sandbox, const std::filesystem::path& package) {
    const Support::OpenPgpKey key(sandbox);
    key.import();
    key.sign(package);
  };
  cases.push_back({"SignedWithAnImportedKey", {}, sign});
  cases.push_back(
      {"SignedWithAnUnknownKey", {}, [](const Support::RpmSandbox& sandbox, const std::filesystem::path& package) {
         const Support::OpenPgpKey key(sandbox);
         key.sign(package);
       }});
}

} // namespace

std::vector<Case> builtPackages() {
  Cases cases;
  addPayloads(cases);
  addMacros(cases);
  addPreamble(cases);
  addNames(cases);
  addArchitectures(cases);
  addDependencies(cases);
  addScripts(cases);
  addTriggers(cases);
  addDirectives(cases);
  addContents(cases);
  addTexts(cases);
  addSourcePackages(cases);
  addSignatures(cases);
  return withUniqueNames(std::move(cases));
}

} // namespace Differential
