// What operators and developers read: formatted texts, log events, trace lines; and how values are read from
// text.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "platform/kel/Codec.h"
#include "platform/kel/Format.h"
#include "platform/kel/Log.h"
#include "platform/kel/Trace.h"
#include "platform/kel/testing/SimulatedTime.h"

namespace {

using Kel::Value;

TEST(Format, follows_printf_and_the_type_of_the_argument) {
  std::string const longText(2000, 'x');
  struct Case {
    char const* format;
    Kel::FormatArgument argument;
    std::string expected;
  };
  for (Case const& c : {
           Case{"%s", "text", "text"},
           Case{"[%6s]", "ab", "[    ab]"},
           Case{"[%-6s]", "ab", "[ab    ]"},
           Case{"%.2s", "abc", "ab"},
           Case{"%d", "text", "text"},
           Case{"%s", "100%d%", "100%d%"},
           Case{"%s", longText, longText},
           Case{"%1s", longText, longText},
           Case{"%s", std::string_view("a\0b", 3), std::string("a\0b", 3)},
           Case{"%s", "", ""},
           Case{"%d", -5, "-5"},
           Case{"%i", 7, "7"},
           Case{"%u", -5, "-5"},
           Case{"%s", 42, "42"},
           Case{"%03d", 7, "007"},
           Case{"%+d", 7, "+7"},
           Case{"%600d", 7, std::string(599, ' ') + "7"},
           Case{"%d", INT64_MIN, "-9223372036854775808"},
           Case{"%d", UINT64_MAX, "18446744073709551615"},
           Case{"%02x", std::uint8_t{10}, "0a"},
           Case{"%X", 255, "FF"},
           Case{"%#x", 255U, "0xff"},
           Case{"%d", true, "1"},
           Case{"%u", 90.0, "90"},
           Case{"%d", 0.5, "0.5"},
           Case{"%s", 1.25, "1.25"},
           Case{"%03u", 9.0, "009"},
           Case{"[%5d]", 0.5, "[  0.5]"},
           Case{"%d", -0.0, "0"},
           Case{"%d", 1700000000.0, "1700000000"},
           Case{"%s", Kel::never, "inf"},
           Case{"%d", 1e300, "1e+300"},
           Case{"%f", 1.5, "1.500000"},
           Case{"%.1f", 2, "2.0"},
           Case{"%.2f", 3U, "3.00"},
           Case{"%g", 0.25, "0.25"},
           Case{"100%% of %s%%", "it", "100% of it%"},
       }) {
    EXPECT_EQ(Kel::formatArguments(c.format, {c.argument}), c.expected) << c.format;
  }
  EXPECT_EQ(Kel::format("plain"), "plain");
  EXPECT_EQ(Kel::format("%s-%d-%s", "a", 1, 2.5), "a-1-2.5");
}

TEST(FormatDeathTest, aborts_on_a_text_that_does_not_fit_its_arguments) {
  struct Case {
    char const* format;
    std::initializer_list<Kel::FormatArgument> arguments;
    char const* reason;
  };
  for (Case const& c :
       {Case{"%s %s", {"a"}, "a placeholder without an argument"},
        Case{"text %", {"a"}, "a placeholder without an argument"},
        Case{"text", {"a"}, "an argument without a placeholder"}, Case{"%q", {"a"}, "an unknown placeholder"},
        Case{"%lu", {5}, "an unknown placeholder"}}) {
    EXPECT_DEATH(Kel::formatArguments(c.format, c.arguments),
                 std::string("Format.cc:[0-9]+: Assertion failed: format: ") + c.reason)
        << c.format;
  }
}

class LogEvents : public testing::Test {
 protected:
  LogEvents() {
    sink = Kel::logSinkIs([this](Kel::LogEvent const& event) { seen.push_back(event); });
  }
  ~LogEvents() override { Kel::logSinkDel(sink); }

  Kel::testing::SimulatedTime time{1000};
  std::vector<Kel::LogEvent> seen;
  int sink = 0;
};

TEST_F(LogEvents, carry_all_that_an_operator_may_want) {
  Kel::LogHandle handle("A_NAME", 4, "%s has %u", "An explanation.", Kel::NoActionRequired, 0, 1, 0);
  EXPECT_EQ(Kel::logHandles().back(), &handle);
  time.advance(5);
  handle.log("Ethernet1", 3U);
  ASSERT_EQ(seen.size(), 1U);
  Kel::LogEvent const& event = seen.front();
  EXPECT_EQ(event.time, 1005);
  EXPECT_EQ(event.name, "A_NAME");
  EXPECT_EQ(event.severity, 4U);
  EXPECT_EQ(event.message, "Ethernet1 has 3");
  EXPECT_EQ(event.explanation, "An explanation.");
  EXPECT_EQ(event.action, Kel::NoActionRequired);
}

TEST_F(LogEvents, repeat_within_their_limit_only) {
  struct Case {
    Kel::Seconds interval;
    double burst;
    std::uint32_t flags;
    std::size_t events;  // of ten, one every second
  };
  for (Case const& c : {Case{0, 1, 0, 10}, Case{5, 1, 0, 2}, Case{5, 2, 0, 4}, Case{1, 1, 0, 10},
                        Case{Kel::never, 3, 0, 3}, Case{0, 1, 1, 0}}) {
    Kel::LogHandle handle("LIMITED", 6, "text", "", "", c.interval, c.burst, c.flags);
    seen.clear();
    for (int i = 0; i < 10; ++i) {
      bool const ok = handle.okToLog();
      std::size_t const before = seen.size();
      handle.log();
      EXPECT_EQ(seen.size() - before, ok ? 1U : 0U);
      time.advance(1);
    }
    EXPECT_EQ(seen.size(), c.events) << c.interval << " " << c.burst;
  }
}

TEST_F(LogEvents, are_not_limited_by_a_simulated_time_that_has_ended) {
  Kel::LogHandle handle("LIMITED", 6, "text", "", "", 60, 1, 0);
  handle.log();
  Kel::Loop::instance().simulate(10);
  handle.log();
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(LogEvents, do_not_reach_a_sink_that_another_sink_removed) {
  int second = 0, secondSaw = 0;
  int const first = Kel::logSinkIs([&](Kel::LogEvent const&) { Kel::logSinkDel(second); });
  second = Kel::logSinkIs([&](Kel::LogEvent const&) { ++secondSaw; });
  Kel::LogHandle handle("NAME", 6, "text", "", "", 0, 1, 0);
  handle.log();
  handle.log();
  EXPECT_EQ(secondSaw, 0);
  EXPECT_EQ(seen.size(), 2U);
  Kel::logSinkDel(first);
}

TEST(Trace, writes_what_the_setting_asks_for_and_costs_nothing_else) {
  std::vector<std::string> lines;
  Kel::traceSinkIs([&](Kel::TraceFacility const& facility, int level, std::string const& text) {
    lines.push_back(facility.name() + (" " + std::to_string(level) + " " + text));
  });
  int evaluated = 0;
  auto const linesFor = [&](std::string const& setting) {
    Kel::TraceFacility const before("Before");
    EXPECT_EQ(Kel::traceIs(setting), "");
    Kel::TraceFacility const after("After");  // as in a library that is loaded later
    lines.clear();
    for (Kel::TraceFacility const* facility : {&before, &after}) {
      for (int const level : {0, 5, 9}) KEL_TRACE(*facility, level, "n=" << ++evaluated);
    }
    std::string result;
    for (std::string const& line : lines) result += line.substr(0, line.find(" n=")) + "|";
    return result;
  };
  EXPECT_EQ(linesFor(""), "");
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(linesFor("Before=0,After=9"), "Before 0|After 0|After 5|After 9|");
  EXPECT_EQ(linesFor("*=5,After=0"), "Before 0|Before 5|After 0|");

  for (char const* bad :
       {"Before", "Before=", "Before=10", "Before=x", "=5", ",", "Before=1,,After=2", "A=B=1"}) {
    std::string const reason = Kel::traceIs(bad);
    EXPECT_NE(reason.find("is no trace setting"), std::string::npos) << bad;
  }
  Kel::TraceFacility const kept("After");
  EXPECT_TRUE(kept.enabled(0));  // what was refused changed nothing
  EXPECT_FALSE(kept.enabled(1));
  EXPECT_EQ(Kel::traceIs(""), "");
  Kel::traceSinkIs(nullptr);
}

template <typename T>
std::string read(Value const& value) {
  T out{};
  std::string const error = Kel::Codec<T>::fromValue(value, out);
  return error.empty() ? Kel::Codec<T>::toText(out) : "! " + error;
}

TEST(Codec, reads_values_of_the_right_type_and_range_and_says_what_is_wrong) {
  std::string const u8 = "! expected a whole number from 0 to 255", flag = "! expected true or false";
  std::string const seconds = "! expected seconds (a number from 0 on) or \"unlimited\"";
  struct Case {
    std::string (*read)(Value const&);
    Value value;
    std::string expected;
  };
  for (Case const& c : {
           Case{read<std::uint8_t>, std::uint64_t{255}, "255"},
           Case{read<std::uint8_t>, std::int64_t{7}, "7"},
           Case{read<std::uint8_t>, std::uint64_t{256}, u8},
           Case{read<std::uint8_t>, std::int64_t{-1}, u8},
           Case{read<std::uint8_t>, 1.0, u8},
           Case{read<std::uint8_t>, "1", u8},
           Case{read<std::uint8_t>, true, u8},
           Case{read<std::uint8_t>, nullptr, u8},
           Case{read<std::uint64_t>, UINT64_MAX, "18446744073709551615"},
           Case{read<double>, 2.5, "2.5"},
           Case{read<double>, std::uint64_t{3}, "3"},
           Case{read<double>, std::int64_t{3}, "3"},
           Case{read<double>, "unlimited", "unlimited"},
           Case{read<double>, -0.1, seconds},
           Case{read<double>, std::int64_t{-1}, seconds},
           Case{read<double>, std::nan(""), seconds},
           Case{read<double>, "forever", seconds},
           Case{read<bool>, true, "true"},
           Case{read<bool>, std::uint64_t{1}, flag},
           Case{read<bool>, "true", flag},
           Case{read<std::string>, "text", "text"},
           Case{read<std::string>, 1.0, "! expected a string"},
       }) {
    EXPECT_EQ(c.read(c.value), c.expected);
  }
  EXPECT_EQ(Kel::Codec<double>::toValue(Kel::never), Value("unlimited"));

  for (char const* bad : {"", "-1", "+1", " 1", "1 ", "0x1", "01", "256", "1.0"}) {
    std::uint8_t kept = 9;
    EXPECT_EQ(Kel::Codec<std::uint8_t>::fromText(bad, kept), "'" + std::string(bad) + "': " + u8.substr(2));
    EXPECT_EQ(kept, 9);
  }
}

}  // namespace
