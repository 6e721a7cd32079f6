// Clocks, under simulated time and on the real timer.
#include <gtest/gtest.h>

#include <functional>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Format.h"
#include "platform/kel/testing/SimulatedTime.h"

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
  time.advance(3600);
  EXPECT_EQ(taken(), (Log{"b@2.50", "c@2.50", "a@5.00"}));
  EXPECT_DOUBLE_EQ(Kel::now(), start + 3602.4);
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
  a->timeMinIs(start - 100);  // a time passed means the next pass, never the call itself
  b->timeMinIs(start);
  EXPECT_EQ(taken(), Log{});
  time.settle();
  EXPECT_EQ(taken(), (Log{"a@0.00", "b@0.00", "c@0.00", "a@0.00", "c@0.00", "a@0.00", "c@0.00"}));
}

TEST_F(Clocks, may_be_parked_moved_or_ended_by_handlers) {
  Kel::Ptr<Alarm> a, b, f;
  auto const c = named("c"), d = named("d"), e = named("e"), g = named("g");
  a = named("a", [&] {
    b = nullptr;
    c->timeMinIs(Kel::never);
    d->timeMinIs(start + 9);
    e->hasNotificationActiveIs(false);
    a->timeMinIs(start + 1);
    a->atEnd = [&] { f = nullptr; };
    a = nullptr;  // the last handle but that of the firing clock
  });
  b = named("b");
  f = named("f");
  for (auto const& one : {a, b, c, d, e, f, g}) one->timeMinIs(start + 1);
  time.advance(60);
  EXPECT_EQ(taken(), (Log{"a@1.00", "g@1.00", "d@9.00"}));
}

TEST_F(Clocks, alarms_call_a_function_once_and_may_end_in_it) {
  auto const note = [this](std::string const& what) { log.push_back(what); };
  std::unique_ptr<Kel::Alarm> ending;
  Kel::Alarm once([&] { note("once"); }), cancelled([&] { note("cancelled"); });
  ending = std::make_unique<Kel::Alarm>([&] {
    ending = nullptr;
    note("ended");
  });
  once.in(2);
  once.in(1);  // has no effect
  EXPECT_EQ(once.time(), start + 2);
  cancelled.in(1);
  cancelled.cancel();
  EXPECT_FALSE(cancelled.isSet());
  ending->at(start + 5);
  ending->at(start + 1);
  time.advance(60);
  EXPECT_EQ(taken(), (Log{"ended", "once"}));
}

TEST(RealTime, fires_clocks_at_most_a_few_milliseconds_late) {
  Kel::Loop& loop = Kel::Loop::instance();
  Log log;
  Kel::Seconds const begin = Kel::now();
  // Far times are parked, whatever they are; times passed fire at once; the rest no earlier than asked.
  std::vector<Kel::Ptr<Alarm>> alarms;
  auto const arm = [&](std::string const& name, Kel::Seconds due, std::function<void()> act = {}) {
    alarms.push_back(Kel::makePtr<Alarm>([&log, name, due, act] {
      EXPECT_GE(Kel::now(), due) << name;
      log.push_back(name);
      if (act) act();
    }));
    alarms.back()->timeMinIs(due);
  };
  arm("far", 1e300);
  arm("end", begin + 0.03, [&] { loop.stop(4); });
  arm("soon", begin + 0.01);
  arm("passed", begin - 1e6, [&] { alarms[2]->timeMinIs(begin + 0.012); });
  EXPECT_EQ(loop.run(), 4);
  EXPECT_EQ(log, (Log{"passed", "soon", "end"}));
  EXPECT_LT(Kel::now() - begin, 0.2);  // sd-event's own accuracy would add up to 0.25
}

}  // namespace
