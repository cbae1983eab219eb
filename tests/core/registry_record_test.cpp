// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_record.h"
#include "tests/support/diagnostics/captured_log.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using Core::KRV::parseRecord;
using Core::KRV::RegistryRecord;
using Core::KRV::toString;
using Event = RegistryRecord::Event;
using Support::CapturedLog;

/// Parses `line` and writes the record again, or "none"; then the log.
std::string readBack(std::string_view line) {
  const CapturedLog log;
  const std::optional<RegistryRecord> record = parseRecord(line);
  return (record ? toString(*record) : "none") + "\n" + log.text();
}

TEST(RegistryRecord, HasTheNumbersOfTheFamily) {
  EXPECT_EQ(static_cast<int>(Event::Install), 0);
  EXPECT_EQ(static_cast<int>(Event::Update), 1);
  EXPECT_EQ(static_cast<int>(Event::Remove), 2);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<Event>, std::int32_t>));
}

TEST(RegistryRecord, IsOneLineOfText) {
  EXPECT_EQ(toString({Event::Install, 5, "p", "k", {}}), "timestamp=5 event=I package=p keyid=k");
  EXPECT_EQ(toString({Event::Update, 1700000000, "sample-app", "K3", {"K1", "K2"}}),
            "timestamp=1700000000 event=U package=sample-app keyid=K3 prev-keyids=K1->K2");
  EXPECT_EQ(toString({Event::Remove, 0, "p", "k", {"a"}}), "timestamp=0 event=R package=p keyid=k prev-keyids=a");
  EXPECT_EQ(toString({Event::Install, std::numeric_limits<std::int64_t>::min(), "p", "k", {}}),
            "timestamp=-9223372036854775808 event=I package=p keyid=k");
  EXPECT_EQ(toString({Event::Install, std::numeric_limits<std::int64_t>::max(), "p", "k", {}}),
            "timestamp=9223372036854775807 event=I package=p keyid=k");
}

TEST(RegistryRecord, IsWrittenWithoutEscaping) {
  EXPECT_EQ(toString({Event::Install, 1, "a b", "\"k\"\\", {"x->y", ""}}),
            "timestamp=1 event=I package=a b keyid=\"k\"\\ prev-keyids=x->y->");
  EXPECT_EQ(toString({Event::Install, 1, "", "", {}}), "timestamp=1 event=I package= keyid=");
}

TEST(RegistryRecord, RefusesToWriteAnUnknownEvent) {
  for (const int number : {-1, 3, std::numeric_limits<int>::max()})
    EXPECT_THROW(toString({static_cast<Event>(number), 1, "p", "k", {}}), std::out_of_range);
}

TEST(RegistryRecord, IsReadFieldByField) {
  const CapturedLog log;
  EXPECT_EQ(parseRecord("timestamp=-12 event=U package=p keyid=k3 prev-keyids=k1->k2"),
            (RegistryRecord{Event::Update, -12, "p", "k3", {"k1", "k2"}}));
  EXPECT_EQ(parseRecord("keyid=k prev-keyids=a package=p event=R timestamp=7"),
            (RegistryRecord{Event::Remove, 7, "p", "k", {"a"}}));
  EXPECT_EQ(log.text(), "");
}

TEST(RegistryRecord, IsTheSameAfterWritingAndReading) {
  for (const char* line :
       {"timestamp=5 event=I package=p keyid=k", "timestamp=-1 event=U package=p keyid=k",
        "timestamp=1700000000 event=R package=sample-app keyid=K3 prev-keyids=K1->K2",
        "timestamp=0 event=I package=a=b keyid==k= prev-keyids=-", "timestamp=1 event=I package=\t keyid=\r"})
    EXPECT_EQ(readBack(line), line + "\n"s);
}

struct Line {
  std::string_view text;
  std::string_view record; ///< written again, or "none"
  std::string_view log;
};

void expectAll(const std::vector<Line>& lines) {
  for (const Line& line : lines)
    EXPECT_EQ(readBack(line.text), std::string(line.record) + "\n" + std::string(line.log)) << line.text;
}

constexpr std::string_view plain = "timestamp=5 event=I package=p keyid=k";

TEST(RegistryRecord, IsSplitOnlyAtSpaces) {
  expectAll({
      {"  timestamp=5   event=I package=p keyid=k  ", plain, ""},
      {"timestamp=5 event=I package=a\tb keyid=k\r", "timestamp=5 event=I package=a\tb keyid=k\r", ""},
      {"timestamp=5 event=I package=a\vb\f keyid=k\u00a0x", "timestamp=5 event=I package=a\vb\f keyid=k\u00a0x", ""},
      {"timestamp=5 event=I package=p keyid=k\0z"sv, "timestamp=5 event=I package=p keyid=k\0z"sv, ""},
      {"timestamp=5\tevent=I package=p keyid=k", "none", "[W] Registry record doesn't contains event type\n"},
  });
}

TEST(RegistryRecord, TakesTheLastValueOfARepeatedKey) {
  expectAll({
      {"timestamp=x timestamp=5 event=X event=I package=q package=p keyid=l keyid=k", plain, ""},
      {"timestamp=5 event=I package=p keyid=k timestamp=", "none", "[W] Registry record doesn't contains timestamp\n"},
      {"timestamp=5 event=I event= package=p keyid=k", "none", "[W] Registry record doesn't contains event type\n"},
      {"timestamp=5 event=I package=p package= keyid=k", "none", "[W] Registry record doesn't contains package id\n"},
      {"timestamp=5 event=I package=p keyid=k keyid=", "none", "[W] Registry record doesn't contains key id\n"},
  });
}

TEST(RegistryRecord, CollectsTheEarlierKeys) {
  const auto with = [](std::string_view pieces) { return std::string(plain) + " " + std::string(pieces); };
  struct Case {
    const char* pieces;
    std::vector<std::string> keys;
  };
  for (const Case& each : {Case{"prev-keyids=a", {"a"}}, Case{"prev-keyids=a->->b->", {"a", "b"}},
                           Case{"prev-keyids=->a", {"a"}}, Case{"prev-keyids=a prev-keyids=b", {"a", "b"}},
                           Case{"prev-keyids=b->a prev-keyids= prev-keyids=b", {"b", "a", "b"}},
                           Case{"prev-keyids=", {}}, Case{"prev-keyids=->->", {}}, Case{"prev-keyids=a-b>c", {"a-b>c"}},
                           Case{"prev-keyids=a-->b->>c", {"a-", "b", ">c"}}, Case{"prev-keyids=-", {"-"}},
                           Case{"prev-keyids=a=b", {"a=b"}}}) {
    const CapturedLog log;
    EXPECT_EQ(parseRecord(with(each.pieces)).value().prevKeyIds, each.keys) << each.pieces;
    EXPECT_EQ(log.text(), "") << each.pieces;
  }
  EXPECT_EQ(readBack(with("prev-keyids=")), std::string(plain) + "\n");
}

TEST(RegistryRecord, WarnsAboutEachUnknownKeyAndContinues) {
  expectAll({
      {"timestamp=5 event=I package=p keyid=k foo=bar", plain, "[W] Registry record contains unknown key: foo=bar\n"},
      {"Timestamp=1 timestamp=5 event event=I =x package=p prev-keyids keyid=k xkeyid=y", plain,
       "[W] Registry record contains unknown key: Timestamp=1\n"
       "[W] Registry record contains unknown key: event\n"
       "[W] Registry record contains unknown key: =x\n"
       "[W] Registry record contains unknown key: prev-keyids\n"
       "[W] Registry record contains unknown key: xkeyid=y\n"},
      {"foo event=I bar", "none",
       "[W] Registry record contains unknown key: foo\n"
       "[W] Registry record contains unknown key: bar\n"
       "[W] Registry record doesn't contains timestamp\n"},
      {"timestamp=5 event=I package=p keyid=k \t", plain, "[W] Registry record contains unknown key: \t\n"},
  });
}

TEST(RegistryRecord, ReportsOnlyTheFirstDefect) {
  expectAll({
      {"", "none", "[W] Registry record doesn't contains timestamp\n"},
      {"   ", "none", "[W] Registry record doesn't contains timestamp\n"},
      {"event=I package=p keyid=k", "none", "[W] Registry record doesn't contains timestamp\n"},
      {"timestamp= event=I package=p keyid=k", "none", "[W] Registry record doesn't contains timestamp\n"},
      {"timestamp=abc", "none", "[W] Registry record doesn't contains event type\n"},
      {"timestamp=5 package=p keyid=k", "none", "[W] Registry record doesn't contains event type\n"},
      {"timestamp=5 event= package=p keyid=k", "none", "[W] Registry record doesn't contains event type\n"},
      {"timestamp=5 keyid=k", "none", "[W] Registry record doesn't contains event type\n"},
      {"timestamp=abc event=X", "none", "[W] Registry record contains unknown event type\n"},
      {"timestamp=5 event=i package=p keyid=k", "none", "[W] Registry record contains unknown event type\n"},
      {"timestamp=5 event=II package=p keyid=k", "none", "[W] Registry record contains unknown event type\n"},
      {"timestamp=5 event=I\r package=p keyid=k", "none", "[W] Registry record contains unknown event type\n"},
      {"timestamp=5 event=I\0 package=p keyid=k"sv, "none", "[W] Registry record contains unknown event type\n"},
      {"timestamp=abc event=I keyid=k", "none", "[W] Registry record doesn't contains package id\n"},
      {"timestamp=5 event=I package= keyid=k", "none", "[W] Registry record doesn't contains package id\n"},
      {"timestamp=5 event=I", "none", "[W] Registry record doesn't contains package id\n"},
      {"timestamp=abc event=I package=p", "none", "[W] Registry record doesn't contains key id\n"},
      {"timestamp=5 event=I package=p keyid=", "none", "[W] Registry record doesn't contains key id\n"},
      {"timestamp=abc event=I package=p keyid=k", "none", "[W] Couldn't parse timestamp from registry record: abc\n"},
  });
}

TEST(RegistryRecord, AcceptsEveryDecimalTimestampOf64Bits) {
  struct Case {
    const char* text;
    std::int64_t value;
  };
  for (const Case& each : {Case{"0", 0}, Case{"-0", 0}, Case{"+0", 0}, Case{"5", 5}, Case{"+7", 7}, Case{"-7", -7},
                           Case{"007", 7}, Case{"-007", -7}, Case{"+00000000000000000000000000000001", 1},
                           Case{"00000000000000000000000000000000", 0}, Case{"9223372036854775807", INT64_MAX},
                           Case{"+9223372036854775807", INT64_MAX}, Case{"0000000009223372036854775807", INT64_MAX},
                           Case{"-9223372036854775808", INT64_MIN}, Case{"-000000009223372036854775808", INT64_MIN}}) {
    const std::optional<RegistryRecord> record =
        parseRecord("timestamp=" + std::string(each.text) + " event=I package=p keyid=k");
    ASSERT_TRUE(record) << each.text;
    EXPECT_EQ(record->timestamp, each.value) << each.text;
    EXPECT_EQ(toString(*record), "timestamp=" + std::to_string(each.value) + " event=I package=p keyid=k");
  }
}

TEST(RegistryRecord, RefusesEveryOtherTimestamp) {
  for (const std::string& text : {"abc"s,
                                  "+"s,
                                  "-"s,
                                  "--1"s,
                                  "++1"s,
                                  "+-5"s,
                                  "-+5"s,
                                  "5-"s,
                                  "5+"s,
                                  "\t5"s,
                                  "5\t"s,
                                  "5\r"s,
                                  "5\n"s,
                                  "5\0"s,
                                  "\0005"s,
                                  "5\0006"s,
                                  "0x5"s,
                                  "5e0"s,
                                  "1e3"s,
                                  "5.0"s,
                                  "5."s,
                                  "1,000"s,
                                  "1'000"s,
                                  "5L"s,
                                  "inf"s,
                                  "nan"s,
                                  "\u0665"s,
                                  "9223372036854775808"s,
                                  "+9223372036854775808"s,
                                  "-9223372036854775809"s,
                                  "18446744073709551615"s,
                                  "18446744073709551616"s,
                                  "18446744073709551621"s,
                                  "99999999999999999999999999999999"s,
                                  "-99999999999999999999999999999999"s,
                                  std::string(100'000, '9')})
    EXPECT_EQ(readBack("timestamp=" + text + " event=I package=p keyid=k"),
              "none\n[W] Couldn't parse timestamp from registry record: " + text + "\n");
}

} // namespace
