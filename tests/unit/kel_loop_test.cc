// What the loop runs: clocks, under simulated time and on the real timer, and descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Format.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/testing/SimulatedTime.h"

namespace {

using Log = std::vector<std::string>;
using Alarm = std::unique_ptr<Kel::Alarm>;
constexpr Kel::Seconds start = 1'700'000'000;

class Clocks : public testing::Test {
 protected:
  // Notes its name and the time since the start, then runs `act`.
  Alarm named(std::string const& name, std::function<void()> act = {}) {
    return std::make_unique<Kel::Alarm>([this, name, act = std::move(act)] {
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
  a->in(5);
  a->in(1);  // has no effect: it is set already
  c->at(start + 2.5);
  b->at(start + 2.5);
  c->at(start + 2.5);  // armed again: now behind b
  d->at(start + 1);
  parked->at(start + 1);
  parked->cancel();
  EXPECT_FALSE(parked->isSet());
  time.advance(2.4);
  EXPECT_EQ(taken(), (Log{"d@1.00"}));
  time.advance(3600);
  EXPECT_EQ(taken(), (Log{"b@2.50", "c@2.50", "a@5.00"}));
  EXPECT_DOUBLE_EQ(Kel::now(), start + 3602.4);
}

TEST_F(Clocks, armed_by_a_handler_for_now_fire_behind_all_that_were_due) {
  Alarm a, b, c;
  int rounds = 0;
  a = named("a", [&] {
    EXPECT_FALSE(a->isSet());  // parked before the handler runs
    if (++rounds < 3) a->at(start);
    c->at(start - 1);  // earlier than what is firing, but armed later
  });
  b = named("b");
  c = named("c");
  a->at(start - 100);  // a time passed means the next pass, never the call itself
  b->at(start);
  EXPECT_EQ(taken(), Log{});
  time.settle();
  EXPECT_EQ(taken(), (Log{"a@0.00", "b@0.00", "c@0.00", "a@0.00", "c@0.00", "a@0.00", "c@0.00"}));
}

TEST_F(Clocks, may_be_parked_moved_or_ended_by_handlers) {
  struct Silent : Kel::Clock::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onTime() override { ADD_FAILURE() << "is not active"; }
  };
  auto const silent = Kel::makePtr<Silent>(Kel::activityManager()->config()->clock());
  Alarm a, b, f;
  auto const c = named("c"), d = named("d"), g = named("g");
  std::shared_ptr<void> atEnd(nullptr, [&](void*) { f = nullptr; });
  a = named("a", [&, held = std::exchange(atEnd, nullptr)] {
    b = nullptr;
    c->cancel();
    d->at(start + 9);
    silent->hasNotificationActiveIs(false);
    a->at(start + 1);
    a = nullptr;  // what it calls lives until it returns, and then takes f with it
  });
  b = named("b");
  f = named("f");
  for (auto* one : {a.get(), b.get(), c.get(), d.get(), f.get(), g.get()}) one->at(start + 1);
  silent->timeMinIs(start + 1);
  time.advance(60);
  EXPECT_EQ(taken(), (Log{"a@1.00", "g@1.00", "d@9.00"}));
}

TEST(RealTime, fires_clocks_at_most_a_few_milliseconds_late) {
  Kel::Loop& loop = Kel::Loop::instance();
  Log log;
  Kel::Seconds const begin = Kel::now();
  // Far times are parked, whatever they are; times passed fire at once; the rest no earlier than asked.
  std::vector<Alarm> alarms;
  auto const arm = [&](std::string const& name, Kel::Seconds due, std::function<void()> act = {}) {
    alarms.push_back(std::make_unique<Kel::Alarm>([&log, name, due, act] {
      EXPECT_GE(Kel::now(), due) << name;
      log.push_back(name);
      if (act) act();
    }));
    alarms.back()->at(due);
  };
  arm("far", 1e300);
  arm("end", begin + 0.03, [&] { loop.stop(4); });
  arm("soon", begin + 0.01);
  arm("passed", begin - 1e6, [&] { alarms[2]->at(begin + 0.012); });
  EXPECT_EQ(loop.run(), 4);
  EXPECT_EQ(log, (Log{"passed", "soon", "end"}));
  EXPECT_LT(Kel::now() - begin, 0.2);  // sd-event's own accuracy would add up to 0.25
}

class Descriptors : public testing::Test {
 protected:
  using Hooks = Kel::FileDescriptor::NotifieeConst;

  Descriptors() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    EXPECT_EQ(write(ends[1], "x", 1), 1);
  }
  ~Descriptors() override {
    if (watch) watch->descriptorIs(-1);
    for (int const fd : ends) close(fd);
  }

  Kel::testing::SimulatedTime time;
  std::array<int, 2> ends{};
  int reads = 0, writes = 0;
  std::function<void()> act;
  Kel::Ptr<Kel::FileDescriptor> watch = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor readable{watch, &Hooks::onReadableCount, [this] { ++reads, act(); }};
  Kel::Reactor writable{watch, &Hooks::onWritableCount, [this] { ++writes; }};
};

TEST_F(Descriptors, count_readiness_in_the_directions_that_are_watched) {
  watch->descriptorIs(ends[0]);
  time.settle();
  EXPECT_EQ(watch->readableCount(), 0U);  // nothing is watched yet
  char byte = 0;
  act = [&] { EXPECT_EQ(read(ends[0], &byte, 1), 1); };
  watch->notifyOnReadableIs(true);
  time.settle();
  EXPECT_EQ(reads, 1);

  // A hang-up is readiness, pass after pass, until the watch ends.
  close(ends[1]);
  act = [&] { watch->notifyOnReadableIs(reads < 4); };
  time.settle();
  EXPECT_EQ(watch->readableCount(), 4U);
  EXPECT_EQ(writes, 0);
  ends[1] = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST_F(Descriptors, that_are_late_have_a_turn_although_another_is_always_ready) {
  auto const late = Kel::makePtr<Kel::FileDescriptor>();
  late->descriptorIs(ends[1]);
  late->lateIs(true);
  late->notifyOnWritableIs(true);
  act = [] {};
  watch->descriptorIs(ends[0]);
  watch->notifyOnReadableIs(true);
  time.advanceUntil([&] { return late->writableCount() == 2 || reads == 100; }, 0);
  EXPECT_EQ(late->writableCount(), 2U);
  EXPECT_GE(reads, Kel::Loop::passesWithoutLate - 1);  // between the two turns
  late->descriptorIs(-1);
}

TEST_F(Descriptors, let_go_of_by_the_readable_handler_are_not_reported_writable) {
  watch->descriptorIs(ends[0]);
  act = [&] { watch->descriptorIs(-1); };
  watch->notifyOnReadableIs(true);
  watch->notifyOnWritableIs(true);
  time.settle();
  EXPECT_EQ(reads, 1);
  EXPECT_EQ(writes, 0);
  watch->descriptorIs(ends[0]);
  act = [&] { watch = nullptr, readable = {}, writable = {}; };
  watch->notifyOnReadableIs(true);
  time.settle();
  EXPECT_EQ(reads, 2);
}

}  // namespace
