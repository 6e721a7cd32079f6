// The reporter's spool across crashes, and the form of its events.
#include <gtest/gtest.h>

#include "platform/kel/Format.h"
#include "programs/zerotouch-reporter/CloudEvent.h"
#include "programs/zerotouch-reporter/Spool.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace {

// As in "3:c 4:d, delivered 2, dropped 0, next 5, host 4".
std::string shown(Spool const& spool) {
  std::string text;
  for (auto const& entry : spool.waiting()) text += Kel::format("%d:%s ", entry.number, entry.event);
  auto const counts = spool.counts();
  EXPECT_EQ(counts.waiting, spool.waiting().size());
  return text + Kel::format("delivered %d, dropped %d, next %d, host %d", counts.delivered, counts.dropped,
                            spool.next(), spool.hostPosition().number);
}

struct Crash {
  char const* name;
  // What a crash leaves of the spool with events a to d, of which a and b are delivered.
  void (*leave)(TemporaryFolder const& folder, std::string const& eventsBefore,
                std::string const& positionBefore);
  char const* found;
};

Crash const crashes[] = {
    {"None", [](auto const&, auto const&, auto const&) {}, "3:c 4:d delivered 2, dropped 0, next 5, host 4"},
    {"BeforeThePositionWasWritten",
     [](auto const& folder, auto const&, auto const& position) { folder.write("/spool/position", position); },
     "1:a 2:b 3:c 4:d delivered 0, dropped 0, next 5, host 4"},
    {"InALine",
     [](auto const& folder, auto const& events, auto const&) {
       folder.write("/spool/events", events.substr(0, events.size() - 1));
     },
     "3:c delivered 2, dropped 0, next 4, host 3"},
    {"InTheFirstLine",
     [](auto const& folder, auto const&, auto const&) { folder.write("/spool/events", "3 3 1"); },
     "delivered 2, dropped 0, next 3, host 4"},
    {"WithALineThatIsNone",
     [](auto const& folder, auto const& events, auto const&) {
       folder.write("/spool/events", "x\n\n3\n" + events);
     },
     "3:c 4:d delivered 2, dropped 0, next 5, host 4"},
    {"WithoutItsFiles",
     [](auto const& folder, auto const&, auto const&) { std::filesystem::remove_all(folder.path("/spool")); },
     "delivered 0, dropped 0, next 1, host 0"},
};

class SpoolTest : public testing::TestWithParam<Crash> {};

TEST_P(SpoolTest, IsWholeAfterACrash) {
  TemporaryFolder folder;
  constexpr Kel::Seconds raised = 1700000000.123456;
  std::string instance, position;
  {
    Spool spool(folder.path("/spool"), 1000);
    instance = spool.instance();
    for (std::uint64_t number = 1; number <= 4; ++number) {
      char const event = "abcd"[number - 1];
      EXPECT_EQ(spool.add(Kel::String(1, event), {.number = number, .time = raised + 1.0 * number}), "");
      if (number == 2) position = folder.read("/spool/position");
    }
    spool.done(2, true);
  }
  GetParam().leave(folder, folder.read("/spool/events"), position);
  Spool spool(folder.path("/spool"), 1000);
  EXPECT_EQ(shown(spool), GetParam().found);
  bool const lost = std::string(GetParam().name) == "WithoutItsFiles";
  EXPECT_EQ(spool.instance() == instance, !lost) << "numbers that begin anew are those of another spool";
  if (!lost) {
    EXPECT_EQ(spool.hostPosition().time, raised + 1.0 * static_cast<double>(spool.hostPosition().number));
  }
  std::uint64_t const next = spool.next();
  EXPECT_EQ(spool.add("e", {}), "");
  EXPECT_EQ(spool.waiting().back().number, next);
  EXPECT_EQ(shown(Spool(folder.path("/spool"), 1000)), shown(spool)) << "what follows a torn line is whole";
}

INSTANTIATE_TEST_SUITE_P(Crashes, SpoolTest, testing::ValuesIn(crashes),
                         [](auto const& crash) { return std::string(crash.param.name); });

TEST(SpoolBoundTest, DropsTheOldestAndCountsThem) {
  TemporaryFolder folder;
  constexpr std::size_t most = 1000;
  Spool spool(folder.path("/spool"), most);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(spool.add(std::string(50, 'x'), {}), "");
    EXPECT_LE(folder.read("/spool/events").size(), most);
  }
  auto const counts = spool.counts();
  EXPECT_EQ(counts.dropped + counts.waiting, 100U);
  EXPECT_GE(counts.waiting, 9U) << "about half of the room is used at least";
  EXPECT_EQ(spool.waiting().front().number, counts.dropped + 1);
  EXPECT_EQ(spool.waiting().back().number, 100U);
  spool.done(100, true);
  EXPECT_EQ(folder.read("/spool/events"), "");
  EXPECT_EQ(shown(Spool(folder.path("/spool"), most)), shown(spool));
  EXPECT_EQ(spool.add(std::string(2 * most, 'x'), {}), "") << "one that has no room is dropped too";
  EXPECT_EQ(spool.counts().waiting, 0U);
}

TEST(CloudEventTest, IsWhatTheStandardAsksFor) {
  EXPECT_EQ(jsonOf({.id = "1f-7",
                    .source = "SN 1/ä",
                    .type = "zerotouch.ZTP_INIT",
                    .time = 1700000000.0625,
                    .sequence = 7,
                    .data = {{"message", "a \"b\"\n"}, {"attempt", Kel::Value()}}}),
            R"({"specversion":"1.0","id":"1f-7","source":"SN%201%2F%C3%A4","type":"zerotouch.ZTP_INIT",)"
            R"("time":"2023-11-14T22:13:20.062Z","sequence":"00000000000000000007",)"
            R"("datacontenttype":"application/json","data":{"message":"a \"b\"\n","attempt":null}})");
}

}  // namespace
