#include "programs/zerotouchd/Events.h"

#include <array>
#include <ctime>
#include <iostream>

void say(std::string const& text) { std::cerr << "zerotouchd: " << text << std::endl; }

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
