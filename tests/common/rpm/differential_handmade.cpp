// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/handles.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/common/rpm/differential_cases.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/process.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Differential {

namespace {

using Support::PackageInput;
using Cases = std::vector<Case>;
using std::filesystem::path;

/// A package with all kinds of entries, dependencies, scripts and triggers, and an uncompressed payload.
PackageInput sample() {
  PackageInput input = ArchiveTest::mixedPackage;
  input.preamble = "Requires: a >= 1, b\nRecommends: c\nConflicts: d < 2\nVendor: Somebody";
  input.sections = "%pre\ntrue\n%post -p <lua>\nprint(1)\n%triggerin -- x, y < 3\ntrue\n%triggerun -- z\ntrue\n"
                   "%filetriggerin -- /opt, /usr\ntrue\n%transfiletriggerin -- /opt\ntrue\n%description -l de\nText.\n"
                   "%changelog\n* Sat Jan 01 2000 Somebody <somebody@example.org> - 1.0-1\n- made";
  input.globals = "%global _binary_payload w.ufdio";
  return input;
}

Case withBytes(const std::string& name, const std::function<void(std::string&)>& change,
               const PackageInput& input = sample()) {
  return {name, input, [change](const Support::RpmSandbox&, const path& package) {
            std::string bytes = Support::readFile(package);
            change(bytes);
            Support::writeFile(package, bytes);
          }};
}

Case withHeader(const std::string& name, const std::function<void(Header)>& change,
                const PackageInput& input = sample()) {
  return {name, input,
          [change](const Support::RpmSandbox&, const path& package) { Support::changeHeader(package, change); }};
}

Case withPayload(const std::string& name, const std::function<std::string(const std::string&)>& change,
                 const PackageInput& input = sample()) {
  return {name, input, [change](const Support::RpmSandbox&, const path& package) {
            Support::changeHeader(package, [](Header header) {
              headerDel(header, RPMTAG_PAYLOADDIGEST);
              headerDel(header, RPMTAG_PAYLOADDIGESTALT);
            });
            Support::replacePayload(package, change(ArchiveTest::payloadOf(package)));
          }};
}

/// Sets a tag to a value of any type; librpm's typed functions would refuse wrong types.
void set(Header header, rpmTagVal tag, rpm_tagtype_t type, const void* value, std::size_t count) {
  headerDel(header, tag);
  const auto data = Common::Rpm::ownHandle<rpmtdFree>(rpmtdNew());
  data->tag = tag;
  data->type = type;
  data->count = static_cast<rpm_count_t>(count);
  data->data = const_cast<void*>(value); // headerPut() copies
  headerPut(header, data.get(), HEADERPUT_DEFAULT);
}

void setTexts(Header header, rpmTagVal tag, const std::vector<const char*>& texts) {
  set(header, tag, RPM_STRING_ARRAY_TYPE, texts.data(), texts.size());
}

void setNumbers(Header header, rpmTagVal tag, const std::vector<std::uint32_t>& numbers) {
  set(header, tag, RPM_INT32_TYPE, numbers.data(), numbers.size());
}

/// Removes the last value of a list of any type.
void shorten(Header header, rpmTagVal tag) {
  const auto data = Common::Rpm::ownTagData(rpmtdNew());
  headerGet(header, tag, data.get(), HEADERGET_ALLOC);
  set(header, tag, data->type, data->data, data->count - 1);
}

/// Appends a copy of the first value.
void lengthen(Header header, rpmTagVal tag) {
  const auto data = Common::Rpm::ownTagData(rpmtdNew());
  headerGet(header, tag, data.get(), HEADERGET_ALLOC);
  rpmtdInit(data.get());
  rpmtdNext(data.get());
  if (const char* text = rpmtdGetString(data.get()))
    headerPutString(header, tag, std::string(text).c_str());
}

std::string nameOf(rpmTagVal tag) {
  return rpmTagGetName(tag);
}

void addTypes(Cases& cases) {
  const std::uint32_t number = 7;
  for (const rpmTagVal tag : {RPMTAG_LICENSE, RPMTAG_VENDOR, RPMTAG_URL, RPMTAG_SOURCERPM, RPMTAG_PREIN, RPMTAG_ARCH,
                              RPMTAG_OS, RPMTAG_PAYLOADCOMPRESSOR, RPMTAG_NAME, RPMTAG_VERSION, RPMTAG_RELEASE}) {
    cases.push_back(withHeader("ListForAText_" + nameOf(tag), [tag](Header header) {
      setTexts(header, tag, {"first", "second"});
    }));
    cases.push_back(withHeader("TranslatedText_" + nameOf(tag), [tag](Header header) {
      set(header, tag, RPM_I18NSTRING_TYPE, std::vector<const char*>{"first", "second"}.data(), 2);
    }));
  }
  for (const rpmTagVal tag : {RPMTAG_NAME, RPMTAG_LICENSE, RPMTAG_SUMMARY, RPMTAG_PREINPROG, RPMTAG_BASENAMES,
                              RPMTAG_FILELINKTOS, RPMTAG_REQUIRENAME, RPMTAG_TRIGGERSCRIPTS, RPMTAG_CLASSDICT})
    cases.push_back(withHeader("NumberForAText_" + nameOf(tag),
                               [=](Header header) { set(header, tag, RPM_INT32_TYPE, &number, 1); }));
  for (const rpmTagVal tag : {RPMTAG_BASENAMES, RPMTAG_DIRNAMES, RPMTAG_CLASSDICT, RPMTAG_REQUIRENAME,
                              RPMTAG_TRIGGERSCRIPTS, RPMTAG_FILELANGS, RPMTAG_CHANGELOGTEXT})
    cases.push_back(withHeader("TextForAList_" + nameOf(tag),
                               [=](Header header) { set(header, tag, RPM_STRING_TYPE, "text", 1); }));
  for (const rpmTagVal tag : {RPMTAG_FILESIZES, RPMTAG_FILEMODES, RPMTAG_FILEFLAGS, RPMTAG_REQUIREFLAGS,
                              RPMTAG_DIRINDEXES, RPMTAG_EPOCH, RPMTAG_SIZE})
    cases.push_back(withHeader("TextForANumber_" + nameOf(tag),
                               [=](Header header) { set(header, tag, RPM_STRING_TYPE, "text", 1); }));
  cases.push_back(withHeader("UnknownTag", [](Header header) { set(header, 0x7ffffff0, RPM_BIN_TYPE, "text", 4); }));
}

void addLengths(Cases& cases) {
  for (const rpmTagVal tag : {RPMTAG_BASENAMES,
                              RPMTAG_DIRNAMES,
                              RPMTAG_DIRINDEXES,
                              RPMTAG_FILESIZES,
                              RPMTAG_FILEMODES,
                              RPMTAG_FILERDEVS,
                              RPMTAG_FILEMTIMES,
                              RPMTAG_FILEDIGESTS,
                              RPMTAG_FILELINKTOS,
                              RPMTAG_FILEFLAGS,
                              RPMTAG_FILEUSERNAME,
                              RPMTAG_FILEGROUPNAME,
                              RPMTAG_FILEVERIFYFLAGS,
                              RPMTAG_FILEDEVICES,
                              RPMTAG_FILEINODES,
                              RPMTAG_FILELANGS,
                              RPMTAG_FILECOLORS,
                              RPMTAG_FILECLASS,
                              RPMTAG_FILEDEPENDSX,
                              RPMTAG_FILEDEPENDSN,
                              RPMTAG_CLASSDICT,
                              RPMTAG_REQUIRENAME,
                              RPMTAG_REQUIREVERSION,
                              RPMTAG_REQUIREFLAGS,
                              RPMTAG_PROVIDEVERSION,
                              RPMTAG_RECOMMENDFLAGS,
                              RPMTAG_TRIGGERNAME,
                              RPMTAG_TRIGGERVERSION,
                              RPMTAG_TRIGGERFLAGS,
                              RPMTAG_TRIGGERINDEX,
                              RPMTAG_TRIGGERSCRIPTS,
                              RPMTAG_TRIGGERSCRIPTPROG,
                              RPMTAG_FILETRIGGERNAME,
                              RPMTAG_FILETRIGGERSCRIPTS,
                              RPMTAG_TRANSFILETRIGGERINDEX,
                              RPMTAG_CHANGELOGTIME,
                              RPMTAG_PREINPROG}) {
    cases.push_back(withHeader("Missing_" + nameOf(tag), [tag](Header header) { headerDel(header, tag); }));
    cases.push_back(withHeader("TooFew_" + nameOf(tag), [tag](Header header) { shorten(header, tag); }));
  }
  for (const rpmTagVal tag : {RPMTAG_BASENAMES, RPMTAG_FILELANGS, RPMTAG_FILEDIGESTS, RPMTAG_FILELINKTOS,
                              RPMTAG_PROVIDENAME, RPMTAG_PROVIDEVERSION, RPMTAG_REQUIRENAME, RPMTAG_TRIGGERSCRIPTS,
                              RPMTAG_TRIGGERNAME, RPMTAG_FILETRIGGERVERSION, RPMTAG_CLASSDICT, RPMTAG_DIRNAMES})
    cases.push_back(withHeader("TooMany_" + nameOf(tag), [tag](Header header) { lengthen(header, tag); }));
  cases.push_back(withHeader("FewerFileSignatures", [](Header header) {
    setTexts(header, RPMTAG_FILESIGNATURES, {"0302041122334455", "0302041122334455"});
    setNumbers(header, RPMTAG_FILESIGNATURELENGTH, {8});
  }));
  cases.push_back(withHeader("TriggerScriptsAlone", [](Header header) {
    for (const rpmTagVal tag : {RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERFLAGS, RPMTAG_TRIGGERINDEX})
      headerDel(header, tag);
  }));
  for (const rpmTagVal tag : {RPMTAG_NAME, RPMTAG_VERSION, RPMTAG_RELEASE, RPMTAG_ARCH, RPMTAG_OS, RPMTAG_PAYLOADFORMAT,
                              RPMTAG_FILEDIGESTALGO, RPMTAG_RPMVERSION, RPMTAG_SIZE})
    cases.push_back(withHeader("Missing_" + nameOf(tag), [tag](Header header) { headerDel(header, tag); }));
}

void addFileLists(Cases& cases) {
  const auto withNumbers = [&](const std::string& name, rpmTagVal tag, const std::vector<std::uint32_t>& numbers) {
    cases.push_back(withHeader(name, [=](Header header) { setNumbers(header, tag, numbers); }));
  };
  withNumbers("FolderThatIsNotThere", RPMTAG_DIRINDEXES, {0, 1, 1, 2, 1, 1, 1, 99});
  withNumbers("FolderOfANegativeNumber", RPMTAG_DIRINDEXES, {0, 1, 1, 2, 1, 1, 1, 0xffffffff});
  withNumbers("DigestAlgorithmUnknown", RPMTAG_FILEDIGESTALGO, {99});
  withNumbers("DigestAlgorithmOfAnotherLength", RPMTAG_FILEDIGESTALGO, {10});
  withNumbers("SizesOfNothing", RPMTAG_FILESIZES, {0, 0, 0, 0, 0, 0, 0, 0});
  withNumbers("FlagsOfGhosts", RPMTAG_FILEFLAGS, {64, 64, 64, 64, 64, 64, 64, 64});
  cases.push_back(withHeader("LinkToNothing", [](Header header) {
    setTexts(header, RPMTAG_FILELINKTOS, {"", "", "", "", "", "", "", ""});
  }));
  cases.push_back(withHeader("LinkToElsewhere", [](Header header) {
    setTexts(header, RPMTAG_FILELINKTOS, {"", "", "", "", "elsewhere/first", "", "", ""});
  }));
  cases.push_back(withHeader("DigestsThatAreNone", [](Header header) {
    setTexts(header, RPMTAG_FILEDIGESTS, {"", "x", "", "0123", "", "", "", ""});
  }));
  cases.push_back(withHeader("Modes", [](Header header) {
    const std::vector<std::uint16_t> modes = {040755, 0100644, 040750, 0100644, 0120777, 0140644, 0644, 0100644};
    set(header, RPMTAG_FILEMODES, RPM_INT16_TYPE, modes.data(), modes.size());
  }));
  cases.push_back(withHeader("LongSizes", [](Header header) {
    const auto data = Common::Rpm::ownTagData(rpmtdNew());
    headerGet(header, RPMTAG_FILESIZES, data.get(), HEADERGET_DEFAULT);
    std::vector<std::uint64_t> sizes;
    while (rpmtdNext(data.get()) >= 0)
      sizes.push_back(rpmtdGetNumber(data.get()));
    const std::uint64_t size = 5'000'000'000;
    headerDel(header, RPMTAG_FILESIZES);
    headerDel(header, RPMTAG_SIZE);
    set(header, RPMTAG_LONGFILESIZES, RPM_INT64_TYPE, sizes.data(), sizes.size());
    set(header, RPMTAG_LONGSIZE, RPM_INT64_TYPE, &size, 1);
  }));
  cases.push_back(withHeader("OldFileNames", [](Header header) { headerConvert(header, HEADERCONV_EXPANDFILELIST); }));
  cases.push_back(withHeader("OldFileNamesBesideTheNew", [](Header header) {
    setTexts(header, RPMTAG_OLDFILENAMES, {"/opt/sample", "/etc/passwd"});
  }));
  cases.push_back(
      withHeader("ConvertedToVersion3", [](Header header) { headerConvert(header, HEADERCONV_RETROFIT_V3); }));
}

/// Names that are changed both in the header and in the payload.
void addNames(Cases& cases) {
  const auto replace = [&](const std::string& name, const std::string& from, const std::string& to) {
    cases.push_back({name, sample(), [from, to](const Support::RpmSandbox&, const path& package) {
                       Support::replaceEverywhere(package, from, to);
                     }});
  };
  replace("NameThatClimbs", "/opt/sample/", "/../../out//");
  replace("NameWithDots", "/opt/sample/", "/./o/./sam//");
  replace("NameThatIsNoText", "empty", "e\xff\xfety");
}

void addPayloads(Cases& cases) {
  cases.push_back(withPayload("PayloadOfNothing", [](const std::string&) { return ""; }));
  cases.push_back(withPayload("PayloadCutInTheMiddle",
                              [](const std::string& payload) { return payload.substr(0, payload.size() / 2); }));
  cases.push_back(withPayload("PayloadWithoutTrailer",
                              [](const std::string& payload) { return payload.substr(0, payload.rfind("070701")); }));
  cases.push_back(
      withPayload("PayloadWithMoreBehindIt", [](const std::string& payload) { return payload + "and more of it"; }));
  cases.push_back(withPayload("PayloadTwice", [](const std::string& payload) { return payload + payload; }));
  cases.push_back(withPayload("PayloadWithAnotherName", [](std::string payload) {
    return payload.replace(payload.find("./opt/sample/second"), 19, "./opt/sample/SECOND");
  }));
  cases.push_back(withPayload("PayloadWithAnotherContent", [](std::string payload) {
    return payload.replace(payload.find("first\n"), 5, "FIRST");
  }));
  for (const std::size_t missing : {0U, 1U, 3U, 4U, 7U})
    cases.push_back(withPayload("PayloadWithoutEntry" + std::to_string(missing), [missing](const std::string& payload) {
      std::vector<std::string> entries = ArchiveTest::entriesOf(payload);
      entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(missing));
      return ArchiveTest::joined(entries);
    }));
  cases.push_back(withPayload("PayloadInAnotherOrder", [](const std::string& payload) {
    std::vector<std::string> entries = ArchiveTest::entriesOf(payload);
    std::reverse(entries.begin(), entries.begin() + 4);
    return ArchiveTest::joined(entries);
  }));
  cases.push_back(withPayload("PayloadWithAnEntryTwice", [](const std::string& payload) {
    std::vector<std::string> entries = ArchiveTest::entriesOf(payload);
    entries.insert(entries.begin(), entries[1]);
    return ArchiveTest::joined(entries);
  }));
  cases.push_back(
      withPayload("PayloadWithoutMagic", [](std::string payload) { return payload.replace(0, 6, "070703"); }));
  cases.push_back(
      withPayload("PayloadWithCheckSums", [](std::string payload) { return payload.replace(0, 6, "070702"); }));
  cases.push_back(withPayload("PayloadThatIsNoArchive", [](const std::string&) { return "This is a text."; }));
}

void addCompressors(Cases& cases) {
  const auto nameCompressor = [&](const std::string& name, const char* claimed, const std::string& mode) {
    PackageInput input = sample();
    input.globals = "%global _binary_payload " + mode;
    cases.push_back(withHeader(
        name,
        [claimed](Header header) {
          headerDel(header, RPMTAG_PAYLOADCOMPRESSOR);
          if (claimed != nullptr)
            headerPutString(header, RPMTAG_PAYLOADCOMPRESSOR, claimed);
        },
        input));
  };
  nameCompressor("CompressorOfNoName", "", "w9.gzdio");
  nameCompressor("CompressorUnknown", "unknown", "w9.gzdio");
  nameCompressor("CompressorAbsent", nullptr, "w9.gzdio");
  nameCompressor("CompressorAbsentForXz", nullptr, "w6.xzdio");
  nameCompressor("CompressorOfGzipForPlain", "gzip", "w.ufdio");
  nameCompressor("CompressorOfXzForPlain", "xz", "w.ufdio");
  nameCompressor("CompressorOfLzmaForXz", "lzma", "w6.xzdio");
  nameCompressor("CompressorOfXzForLzma", "xz", "w6.lzdio");
  nameCompressor("CompressorOfXzForGzip", "xz", "w9.gzdio");
  nameCompressor("CompressorByItsLibrary", "gzdio", "w9.gzdio");
  for (const char* mode : {"w9.gzdio", "w9.bzdio", "w6.xzdio", "w6.lzdio", "w3.zstdio"}) {
    PackageInput input = sample();
    input.globals = "%global _binary_payload " + std::string(mode);
    const std::string kind = std::string(mode).substr(3, 2);
    cases.push_back(withPayload(
        "CompressionCut_" + kind, [](const std::string& payload) { return payload.substr(0, payload.size() - 1); },
        input));
    cases.push_back(withPayload(
        "CompressionWithMoreBehindIt_" + kind, [](const std::string& payload) { return payload + "more"; }, input));
    cases.push_back(withPayload(
        "CompressionTwice_" + kind, [](const std::string& payload) { return payload + payload; }, input));
  }
}

/// Damage that digests detect, and changes of unused bytes.
void addBytes(Cases& cases) {
  const auto flip = [&](const std::string& name, const std::function<std::size_t(const std::string&)>& place) {
    cases.push_back(withBytes("Flipped" + name, [place](std::string& bytes) {
      const std::size_t at = place(bytes);
      bytes.at(at) = static_cast<char>(bytes.at(at) ^ 1);
    }));
  };
  for (const std::size_t place : {0U, 4U, 5U, 7U, 8U, 10U, 76U, 78U, 90U})
    flip("Lead" + std::to_string(place), [place](const std::string&) { return place; });
  for (const std::size_t place : {0U, 3U, 4U, 11U, 15U, 19U, 23U, 31U})
    flip("SignatureHeader" + std::to_string(place), [place](const std::string&) { return 96 + place; });
  for (const std::size_t place : {0U, 3U, 4U, 11U, 15U, 19U, 23U, 31U, 200U})
    flip("MainHeader" + std::to_string(place),
         [place](const std::string& bytes) { return Support::mainHeaderOffset(bytes) + place; });
  flip("FirstOfThePayload", [](const std::string& bytes) { return Support::payloadOffset(bytes) + 10; });
  flip("Content", [](const std::string& bytes) { return bytes.rfind("first\n"); });
  flip("LastByte", [](const std::string& bytes) { return bytes.size() - 1; });
  for (const std::size_t size : {0U, 1U, 95U, 96U, 100U, 112U, 300U})
    cases.push_back(withBytes("CutAt" + std::to_string(size), [size](std::string& bytes) { bytes.resize(size); }));
  cases.push_back(
      withBytes("CutBeforeThePayload", [](std::string& bytes) { bytes.resize(Support::payloadOffset(bytes)); }));
  cases.push_back(
      withBytes("CutInTheHeader", [](std::string& bytes) { bytes.resize(Support::payloadOffset(bytes) - 1); }));
  cases.push_back(withBytes("CutByOneByte", [](std::string& bytes) { bytes.pop_back(); }));
  cases.push_back(withBytes("MoreBehindIt", [](std::string& bytes) { bytes += "more"; }));
  cases.push_back(withBytes("Text", [](std::string& bytes) { bytes = "This is a text.\n"; }));
  for (const std::size_t excess : {1U, 2U, 1000U})
    cases.push_back(
        {"SizeTooLargeBy" + std::to_string(excess), sample(),
         [excess](const Support::RpmSandbox&, const path& package) { Support::sealHeader(package, excess); }});
}

} // namespace

std::vector<Case> handmadePackages() {
  Cases cases;
  addTypes(cases);
  addLengths(cases);
  addFileLists(cases);
  addNames(cases);
  addPayloads(cases);
  addCompressors(cases);
  addBytes(cases);
  return cases;
}

} // namespace Differential
