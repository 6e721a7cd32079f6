// What operators and developers read: formatted texts, log events, trace lines; and how values are read from
// text.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "platform/kel/EntityType.h"
#include "platform/kel/Format.h"
#include "platform/kel/Log.h"
#include "platform/kel/Trace.h"
#include "platform/kel/testing/SimulatedTime.h"

namespace {

using Kel::Value;

TEST(Format, follows_printf_and_the_type_of_the_argument) {
  EXPECT_EQ(Kel::format("%s|[%-6s]|%d|%s|%d|%u|%s|%03d|%d|%d", "text", "ab", "text", "100%d%", -5, -5, 42, 7,
                        INT64_MIN, UINT64_MAX),
            "text|[ab    ]|text|100%d%|-5|-5|42|007|-9223372036854775808|18446744073709551615");
  EXPECT_EQ(Kel::format("%02x|%d|%u|%d|%d|%s|%f|%.1f|100%% of %s%%", std::uint8_t{10}, true, 90.0, 0.5,
                        1700000000.0, Kel::never, 1.5, 2, "it"),
            "0a|1|90|0.5|1700000000|inf|1.500000|2.0|100% of it%");
  EXPECT_EQ(Kel::format("%s", std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(Printable, leaves_nothing_that_steers_a_terminal) {
  for (auto const& [text, shown] : std::initializer_list<std::pair<std::string, char const*>>{
           {"a\tb\n\x1b[2J\x7f", "a b??[2J?"},
           {std::string("a\0b", 3), "a?b"},
           {"M\xc3\xbcller \xe2\x9b\x94 M\xfcller", "M\xc3\xbcller \xe2\x9b\x94 M\xfcller"},
           {"\x9b"
            "2J \xc2\x9b"
            "2J",
            "?2J \xc2?2J"}}) {
    EXPECT_EQ(Kel::printable(text), shown);
  }
  EXPECT_EQ(Kel::printable("abc", 3) + Kel::printable("a\nbc", 3), "abca?b...");
}

TEST(LogEvents, repeat_within_their_limit_only) {
  Kel::testing::SimulatedTime time{1000};
  std::vector<Kel::LogEvent> seen;
  int const sink = Kel::logSinkIs([&seen](Kel::LogEvent const& event) { seen.push_back(event); });
  struct Case {
    Kel::Seconds interval;
    double burst;
    std::uint32_t flags;
    std::size_t events;  // of ten, one every second
  };
  for (Case const& c : {Case{0, 1, 0, 10}, Case{5, 2, 0, 4}, Case{Kel::never, 3, 0, 3}, Case{0, 1, 1, 0}}) {
    Kel::LogHandle handle("LIMITED", 6, "%s has %u", "", "", c.interval, c.burst, c.flags);
    seen.clear();
    for (int i = 0; i < 10; ++i, time.advance(1)) {
      bool const ok = handle.okToLog();
      std::size_t const before = seen.size();
      handle.log("Ethernet1", 3U);
      EXPECT_EQ(seen.size() - before, ok ? 1U : 0U);
    }
    EXPECT_EQ(seen.size(), c.events) << c.interval << " " << c.burst;
    for (auto const& event : seen) EXPECT_EQ(event.message, "Ethernet1 has 3");
  }
  Kel::logSinkDel(sink);
}

TEST(Trace, writes_what_the_setting_asks_for_and_costs_nothing_else) {
  std::string lines;
  Kel::traceSinkIs([&](Kel::TraceFacility const& facility, int level, std::string const& text) {
    lines += facility.name() + std::to_string(level) + text + "|";
  });
  int evaluated = 0;
  for (auto const& [setting, expected] : std::initializer_list<std::pair<std::string, std::string>>{
           {"", ""},
           {"Before=0,After=9", "Before0?1|After0?2|After5?3|After9?4|"},
           {"*=5,After=0", "Before0?5|Before5?6|After0?7|"}}) {
    Kel::TraceFacility const before("Before");
    EXPECT_EQ(Kel::traceIs(setting), "");
    Kel::TraceFacility const after("After");  // as in a library that is loaded later
    lines.clear();
    for (Kel::TraceFacility const* facility : {&before, &after}) {
      for (int const level : {0, 5, 9}) KEL_TRACE(*facility, level, "\n" << ++evaluated);
    }
    EXPECT_EQ(lines, expected);
  }
  for (char const* bad :
       {"Before", "Before=", "Before=10", "Before=x", "=5", ",", "Before=1,,After=2", "A=B=1"}) {
    EXPECT_NE(Kel::traceIs(bad).find("is no trace setting"), std::string::npos) << bad;
  }
  Kel::TraceFacility const kept("After");
  EXPECT_TRUE(kept.enabled(0) && !kept.enabled(1)) << "what was refused changed something";
  EXPECT_EQ(Kel::traceIs(""), "");
  Kel::traceSinkIs(nullptr);
}

// What is refused with which words, the requests of the state tree show; how seconds read, the command line.
TEST(Codec, reads_numbers_of_every_kind_exactly) {
  std::uint64_t large = 0;
  EXPECT_EQ(Kel::Codec<std::uint64_t>::fromText("18446744073709551615", large), "");
  EXPECT_EQ(Kel::Codec<std::uint64_t>::toValue(large), Value(UINT64_MAX));
  double seconds = 0;
  EXPECT_NE(Kel::Codec<double>::fromValue(std::nan(""), seconds), "");
}

}  // namespace
