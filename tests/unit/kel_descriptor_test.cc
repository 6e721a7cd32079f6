// Descriptors and signals on the loop.
#include "platform/kel/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>

#include "platform/kel/testing/SimulatedTime.h"

namespace {

struct Counter : Kel::FileDescriptor::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onReadableCount() override {
    ++readable;
    if (act) act();
  }
  void onWritableCount() override { ++writable; }

  int readable = 0, writable = 0;
  std::function<void()> act;
};

class Descriptors : public testing::Test {
 protected:
  void SetUp() override { pair(ends); }
  void TearDown() override {
    if (watch) watch->descriptorIs(-1);
    for (int const fd : ends) close(fd);
  }
  static void pair(std::array<int, 2>& out) {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, out.data()), 0);
  }
  void send() const { ASSERT_EQ(write(ends[1], "x", 1), 1); }
  void receive() const {
    char byte = 0;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
  }

  Kel::testing::SimulatedTime time;
  std::array<int, 2> ends{};
  Kel::Ptr<Kel::FileDescriptor> watch = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Ptr<Counter> counter = Kel::makePtr<Counter>(watch);
};

TEST_F(Descriptors, count_readiness_in_the_directions_that_are_watched) {
  watch->descriptorIs(ends[0]);
  send();
  time.settle();
  EXPECT_EQ(watch->readableCount(), 0U);  // nothing is watched yet

  counter->act = [&] { receive(); };
  watch->notifyOnReadableIs(true);
  time.settle();
  EXPECT_EQ(counter->readable, 1);

  // A hang-up is readiness, pass after pass, until the watch ends.
  close(ends[1]);
  counter->act = [&] {
    if (watch->readableCount() == 4) watch->notifyOnReadableIs(false);
  };
  time.settle();
  EXPECT_EQ(watch->readableCount(), 4U);
  EXPECT_EQ(counter->writable, 0);
  ends[1] = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST_F(Descriptors, let_go_of_by_the_readable_handler_are_not_reported_writable) {
  send();
  watch->descriptorIs(ends[0]);
  counter->act = [&] { watch->descriptorIs(-1); };
  watch->notifyOnReadableIs(true);
  watch->notifyOnWritableIs(true);
  time.settle();
  EXPECT_EQ(counter->readable, 1);
  EXPECT_EQ(counter->writable, 0);
  watch->descriptorIs(ends[0]);
  counter->act = [&] { watch = nullptr, counter = nullptr; };
  watch->notifyOnReadableIs(true);
  time.settle();
  EXPECT_EQ(watch, nullptr);
}

TEST(RealLoopEvents, signals_arrive_on_the_loop) {
  int signals = 0;
  Kel::Loop::instance().onSignal(SIGUSR2, [&] { ++signals; });
  ASSERT_EQ(kill(getpid(), SIGUSR2), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_TRUE(Kel::Loop::instance().runUntil([&] { return signals == 1; }, 10));
}

}  // namespace
