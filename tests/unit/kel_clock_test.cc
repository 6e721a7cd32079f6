// Clocks, under simulated time and on the real timer.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <functional>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Format.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace {

using Log = std::vector<std::string>;
constexpr Kel::Seconds start = 1'700'000'000;

class Alarm : public Kel::Clock::NotifieeConst {
 public:
  explicit Alarm(std::function<void()> action)
      : NotifieeConst(Kel::activityManager()->config()->clock()), act(std::move(action)) {}
  ~Alarm() override {
    if (atEnd) atEnd();
  }
  void onTime() override { act(); }

  std::function<void()> act, atEnd;
};

class Clocks : public testing::Test {
 protected:
  // Notes its name and the time since the start, then runs `act`.
  Kel::Ptr<Alarm> named(std::string const& name, std::function<void()> act = {}) {
    return Kel::makePtr<Alarm>([this, name, act] {
      log.push_back(name + "@" + Kel::format("%.2f", Kel::now() - start));
      if (act) act();
    });
  }
  Log taken() { return std::exchange(log, {}); }

  Kel::testing::SimulatedTime time{start};
  Log log;
};

TEST_F(Clocks, fire_once_in_time_order_and_ties_as_armed) {
  auto const a = named("a"), b = named("b"), c = named("c"), d = named("d"), parked = named("parked");
  a->timeMinIs(start + 5);
  c->timeMinIs(start + 2.5);
  b->timeMinIs(start + 2.5);
  c->timeMinIs(start + 2.5);  // armed again: now behind b
  d->timeMinIs(start + 1);
  parked->timeMinIs(start + 1);
  parked->timeMinIs(Kel::never);
  time.advance(2.4);
  EXPECT_EQ(taken(), (Log{"d@1.00"}));
  EXPECT_DOUBLE_EQ(Kel::now(), start + 2.4);
  time.advance(3600);
  EXPECT_EQ(taken(), (Log{"b@2.50", "c@2.50", "a@5.00"}));
  EXPECT_DOUBLE_EQ(Kel::now(), start + 3602.4);
  for (auto const& one : {a, b, c, d, parked}) EXPECT_EQ(one->timeMin(), Kel::never);
}

TEST_F(Clocks, past_times_mean_the_next_pass_and_never_the_call_itself) {
  for (Kel::Seconds const due : {start - 100, 0.0, -Kel::never, start}) {
    auto const late = named("late");
    late->timeMinIs(due);
    EXPECT_EQ(taken(), Log{}) << due;
    time.settle();
    EXPECT_EQ(taken(), (Log{"late@0.00"})) << due;
  }
}

TEST_F(Clocks, armed_by_a_handler_for_now_fire_behind_all_that_were_due) {
  Kel::Ptr<Alarm> a, b, c;
  int rounds = 0;
  a = named("a", [&] {
    EXPECT_EQ(a->timeMin(), Kel::never);  // parked before the handler runs
    if (++rounds < 3) a->timeMinIs(start);
    c->timeMinIs(start - 1);  // earlier than what is firing, but armed later
  });
  b = named("b");
  c = named("c");
  a->timeMinIs(start);
  b->timeMinIs(start);
  time.settle();
  EXPECT_EQ(taken(), (Log{"a@0.00", "b@0.00", "c@0.00", "a@0.00", "c@0.00", "a@0.00", "c@0.00"}));
}

TEST_F(Clocks, may_be_parked_moved_or_ended_by_handlers) {
  Kel::Ptr<Alarm> a, b, c, d, e;
  a = named("a", [&] {
    b = nullptr;
    c->timeMinIs(Kel::never);
    d->timeMinIs(start + 9);
    e->hasNotificationActiveIs(false);
  });
  b = named("b");
  c = named("c");
  d = named("d");
  e = named("e");
  for (auto const& one : {a, b, c, d, e}) one->timeMinIs(start + 1);
  time.advance(60);
  EXPECT_EQ(taken(), (Log{"a@1.00", "d@9.00"}));
  EXPECT_EQ(e->timeMin(), Kel::never);
}

TEST_F(Clocks, may_end_themselves_armed_and_take_the_next_in_line_with_them) {
  Kel::Ptr<Alarm> a, b;
  auto const c = named("c");
  b = named("b");
  a = named("a", [&] {
    a->timeMinIs(start + 1);
    a->atEnd = [&] { b = nullptr; };
    a = nullptr;  // the last handle but that of the firing clock
  });
  for (auto const& one : {a, b, c}) one->timeMinIs(start + 1);
  time.advance(60);
  EXPECT_EQ(taken(), (Log{"a@1.00", "c@1.00"}));
}

TEST_F(Clocks, advanceUntil_stops_at_the_condition_the_limit_or_when_nothing_is_left) {
  int count = 0;
  Kel::Ptr<Alarm> tick;
  tick = Kel::makePtr<Alarm>([&] {
    if (++count < 10) tick->timeMinIs(Kel::now() + 1);
  });
  tick->timeMinIs(start + 1);
  EXPECT_TRUE(time.advanceUntil([&] { return count == 3; }, 100));
  EXPECT_DOUBLE_EQ(Kel::now(), start + 3);
  EXPECT_FALSE(time.advanceUntil([&] { return count == 9; }, 2));
  EXPECT_EQ(count, 5);
  EXPECT_FALSE(time.advanceUntil([&] { return count == 11; }, 1e9));
  EXPECT_EQ(count, 10);
  EXPECT_TRUE(time.advanceUntil([&] { return count == 10; }, 0));
}

TEST(RealTime, never_steps_back_and_fires_clocks_at_most_a_few_milliseconds_late) {
  Kel::Loop& loop = Kel::Loop::instance();
  Log log;
  Kel::Seconds const begin = Kel::now();
  TemporaryFolder const folder;
  struct stat made {};
  ASSERT_EQ(stat(folder.path().c_str(), &made), 0);
  EXPECT_NEAR(begin, static_cast<double>(made.st_mtim.tv_sec), 60);
  // Far times are parked, whatever they are; times passed fire at once; the rest no earlier than asked.
  std::vector<Kel::Ptr<Alarm>> alarms;
  auto const arm = [&](std::string const& name, Kel::Seconds due, std::function<void()> act) {
    alarms.push_back(Kel::makePtr<Alarm>([&log, name, due, act] {
      EXPECT_GE(Kel::now(), due) << name;
      log.push_back(name);
      act();
    }));
    alarms.back()->timeMinIs(due);
  };
  arm("far", 1e300, [] {});
  arm("end", begin + 0.03, [&] { loop.stop(4); });
  arm("soon", begin + 0.01, [] {});
  arm("passed", begin - 1e6, [&] { alarms[2]->timeMinIs(begin + 0.012); });
  EXPECT_EQ(loop.run(), 4);
  EXPECT_EQ(log, (Log{"passed", "soon", "end"}));
  EXPECT_LT(Kel::now() - begin, 0.2);  // sd-event's own accuracy would add up to 0.25
  EXPECT_EQ(alarms[0]->timeMin(), 1e300);

  // It can be run again, and a stop that came first counts.
  alarms.clear();
  loop.stop(5);
  EXPECT_EQ(loop.run(), 5);
}

TEST(ClockDeathTest, refuses_a_time_that_is_no_number) {
  Kel::testing::SimulatedTime const time;
  auto const alarm = Kel::makePtr<Alarm>([] {});
  EXPECT_DEATH(alarm->timeMinIs(std::nan("")), "Clock.cc:[0-9]+: Assertion failed: !isnan\\(time\\)");
}

}  // namespace
