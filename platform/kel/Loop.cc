// The loop, the descriptors that it watches, and the manager that holds its clock.
#include "platform/kel/Loop.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <systemd/sd-daemon.h>

#include <cmath>
#include <csignal>
#include <ctime>
#include <utility>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"

namespace Kel {

Ptr<ActivityManager> const& activityManager() {
  static Ptr<ActivityManager> const manager = makePtr<ActivityManager>();
  return manager;
}

namespace {

// sd-event lets timers slip by 250 ms unless told otherwise.
constexpr std::uint64_t timerAccuracyMicroseconds = 1000;

// A time that no timer reaches (some thirty thousand years on) and that still fits into microseconds.
constexpr Seconds farthest = 1e12;

Seconds read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
}

Clock const& clock() { return *activityManager()->config()->clock(); }

void block(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int onTimer(sd_event_source*, std::uint64_t, void*) {
  clock().fire(now());
  return 0;
}

int onLateReady(sd_event_source*, int, std::uint32_t, void* late) {
  sd_event_run(static_cast<sd_event*>(late), 0);
  return 0;
}

int onSignalSource(sd_event_source*, signalfd_siginfo const*, void* handler) {
  (*static_cast<std::function<void()>*>(handler))();
  return 0;
}

}  // namespace

Seconds now() { return Loop::instance().now(); }

Loop& Loop::instance() {
  static Loop loop;
  return loop;
}

Loop::Loop() : wallAtStart_(read(CLOCK_REALTIME)), monotonicAtStart_(read(CLOCK_MONOTONIC)) {
  block(SIGCHLD);
  [[maybe_unused]] int const created = sd_event_new(&event_);
  KEL_ASSERT(created >= 0, "sd_event_new");
  int const added = sd_event_add_time(event_, &timer_, CLOCK_MONOTONIC, UINT64_MAX, timerAccuracyMicroseconds,
                                      onTimer, nullptr);
  KEL_ASSERT(added >= 0, "sd_event_add_time");
  sd_event_source_set_enabled(timer_, SD_EVENT_OFF);
  [[maybe_unused]] int const lateCreated = sd_event_new(&lateEvent_);
  KEL_ASSERT(lateCreated >= 0, "sd_event_new");
  int const watched =
      sd_event_add_io(event_, &lateReady_, sd_event_get_fd(lateEvent_), EPOLLIN, onLateReady, lateEvent_);
  KEL_ASSERT(watched >= 0, "sd_event_add_io");
  sd_event_source_set_priority(lateReady_, SD_EVENT_PRIORITY_IDLE);
}

Loop::~Loop() {
  sd_event_source_unref(timer_);
  sd_event_source_unref(lateReady_);
  sd_event_unref(lateEvent_);
  sd_event_unref(event_);
}

Seconds Loop::now() const {
  return simulated_ ? simulatedNow_ : wallAtStart_ + (read(CLOCK_MONOTONIC) - monotonicAtStart_);
}

void Loop::arm() {
  Seconds const next = clock().nextTime();
  if (next == armedFor_) return;
  armedFor_ = next;
  if (next >= farthest) {
    sd_event_source_set_enabled(timer_, SD_EVENT_OFF);
    return;
  }
  Seconds const monotonic = std::max(next - wallAtStart_ + monotonicAtStart_, 0.0);
  // Rounded up, so that the time has come when the timer fires.
  sd_event_source_set_time(timer_, static_cast<std::uint64_t>(std::ceil(monotonic * 1e6)) + 1);
  sd_event_source_set_enabled(timer_, SD_EVENT_ONESHOT);
}

// Waits for one event, at most so long, and handles it. Positive when there was one.
int Loop::runOne(std::uint64_t microseconds) {
  if (++passes_ >= passesWithoutLate) {
    passes_ = 0;
    if (int const ran = sd_event_run(lateEvent_, 0); ran != 0) return ran;
  }
  return sd_event_run(event_, microseconds);
}

void Loop::pass(Seconds limit) {
  arm();
  int const ran = runOne(limit == never ? UINT64_MAX : static_cast<std::uint64_t>(limit * 1e6));
  KEL_ASSERT(ran >= 0, "sd_event_run");
  // A one-shot source is off once it has fired.
  int enabled = SD_EVENT_OFF;
  sd_event_source_get_enabled(timer_, &enabled);
  if (enabled == SD_EVENT_OFF) armedFor_ = never;
}

int Loop::run() {
  KEL_ASSERT(!simulated_, "!simulated()");
  while (!exitCode_) pass(never);
  return *std::exchange(exitCode_, std::nullopt);
}

bool Loop::runUntil(std::function<bool()> const& done, Seconds limit) {
  KEL_ASSERT(!simulated_, "!simulated()");
  Seconds const end = now() + limit;
  while (!done()) {
    Seconds const left = end - now();
    if (left <= 0) return false;
    pass(left);
  }
  return true;
}

void Loop::onSignal(int signal, std::function<void()> handler) {
  block(signal);
  // The source floats: it belongs to the loop, and so does the handler.
  auto* owned = new std::function<void()>(std::move(handler));
  sd_event_source* source = nullptr;
  int const added = sd_event_add_signal(event_, &source, signal, onSignalSource, owned);
  KEL_ASSERT(added >= 0, "sd_event_add_signal");
  sd_event_source_set_destroy_callback(source,
                                       [](void* data) { delete static_cast<std::function<void()>*>(data); });
  sd_event_source_set_floating(source, 1);
  sd_event_source_unref(source);
}

void Loop::watchdogIs(bool on) { sd_event_set_watchdog(event_, on ? 1 : 0); }

void Loop::signOfLife() const {
  if (sd_event_get_watchdog(event_) > 0) sd_notify(0, "WATCHDOG=1");
}

void Loop::simulate(Seconds start) {
  sd_event_source_set_enabled(timer_, SD_EVENT_OFF);
  armedFor_ = never;
  simulated_ = true;
  simulatedNow_ = start;
}

void Loop::endSimulation() { simulated_ = false; }

bool Loop::drain() {
  // Handles one source at a time: a descriptor that is always ready must starve neither the clocks nor the
  // condition of advanceUntil().
  bool any = sources_ > 0 && runOne(0) > 0;
  if (clock().nextTime() <= simulatedNow_) {
    clock().fire(simulatedNow_);
    any = true;
  }
  return any;
}

bool Loop::jump(Seconds limit) {
  Seconds const next = clock().nextTime();
  if (next > limit || next == never) return false;
  simulatedNow_ = std::max(simulatedNow_, next);
  return true;
}

void Loop::advance(Seconds duration) {
  KEL_ASSERT(simulated_, "simulated()");
  Seconds const end = simulatedNow_ + duration;
  do {
    while (drain()) {
    }
  } while (jump(end));
  simulatedNow_ = end;
}

bool Loop::advanceUntil(std::function<bool()> const& done, Seconds limit) {
  KEL_ASSERT(simulated_, "simulated()");
  Seconds const end = simulatedNow_ + limit;
  while (!done()) {
    if (!drain() && !jump(end)) return false;
  }
  return true;
}

FileDescriptor::~FileDescriptor() { unwatch(); }

void FileDescriptor::descriptorIs(int descriptor) {
  if (descriptor == descriptor_) return;
  unwatch();
  descriptor_ = descriptor;
  if (nonBlocking_) nonBlockingIs(true);
  watch();
}

void FileDescriptor::nonBlockingIs(bool on) {
  nonBlocking_ = on;
  if (descriptor_ < 0) return;
  int const flags = fcntl(descriptor_, F_GETFL);
  fcntl(descriptor_, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

void FileDescriptor::notifyOnReadableIs(bool on) {
  notifyOnReadable_ = on;
  watch();
}

void FileDescriptor::notifyOnWritableIs(bool on) {
  notifyOnWritable_ = on;
  watch();
}

void FileDescriptor::watch() {
  std::uint32_t const events = (notifyOnReadable_ ? EPOLLIN : 0U) | (notifyOnWritable_ ? EPOLLOUT : 0U);
  // Registered anew each time: a number can have been closed and opened again since, which the kernel
  // forgets.
  unwatch();
  if (descriptor_ < 0 || events == 0) return;
  Loop const& loop = Loop::instance();
  sd_event* const event = late_ ? loop.lateEvent() : loop.event();
  if (sd_event_add_io(event, &source_, descriptor_, events, onReady, this) < 0) return;
  Loop::instance().sourceAdded();
}

void FileDescriptor::unwatch() {
  if (source_ == nullptr) return;
  sd_event_source_disable_unref(source_);
  source_ = nullptr;
  Loop::instance().sourceRemoved();
}

int FileDescriptor::onReady(sd_event_source* source, int, std::uint32_t events, void* self) {
  Ptr<FileDescriptor> const hold(static_cast<FileDescriptor*>(self));
  bool const broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
  if (hold->notifyOnReadable_ && (broken || (events & EPOLLIN) != 0)) {
    hold->readableCount_.set(*hold, 1, "readableCount", hold->readableCount() + 1,
                             &NotifieeConst::onReadableCount);
  }
  // The first handler may have changed the watch; what was ready says nothing about another descriptor.
  if (hold->source_ != source) return 0;
  if (hold->notifyOnWritable_ && (broken || (events & EPOLLOUT) != 0)) {
    hold->writableCount_.set(*hold, 1, "writableCount", hold->writableCount() + 1,
                             &NotifieeConst::onWritableCount);
  }
  return 0;
}

}  // namespace Kel
