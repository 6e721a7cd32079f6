#include "programs/zerotouchd/Events.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <sstream>

bool isInJournal() {
  // The variable names the device and the inode of the stream; children that have another one inherit it too.
  static bool const answer = [] {
    char const* const stream = std::getenv("JOURNAL_STREAM");
    struct stat error {};
    if (stream == nullptr || fstat(STDERR_FILENO, &error) != 0) return false;
    return stream == std::to_string(error.st_dev) + ":" + std::to_string(error.st_ino);
  }();
  return answer;
}

void say(std::string const& text, unsigned priority) {
  std::istringstream lines(text);
  std::string const prefix = isInJournal() ? "<" + std::to_string(priority) + ">" : "zerotouchd: ";
  for (std::string line; std::getline(lines, line);) std::cerr << prefix << line << std::endl;
}

void printEvent(Kel::LogEvent const& event) {
  auto const seconds = static_cast<std::time_t>(event.time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%F %T", &local);
  std::cerr << time.data() << " " << event.name << ": " << event.message << std::endl;
}

EventRing::EventRing() : sink_(Kel::logSinkIs([this](Kel::LogEvent const& event) { add(event); })) {}

EventRing::~EventRing() { Kel::logSinkDel(sink_); }

void EventRing::add(Kel::LogEvent const& event) {
  ring_->eventIs(++last_,
                 {event.time, event.name, event.severity, event.message, event.explanation, event.action});
  if (ring_->event().size() > capacity) ring_->eventDel(ring_->event().begin()->first);
}
