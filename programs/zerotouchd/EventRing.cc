#include "programs/zerotouchd/EventRing.h"

EventRing::EventRing() : sink_(Kel::logSinkIs([this](Kel::LogEvent const& event) { add(event); })) {}

EventRing::~EventRing() { Kel::logSinkDel(sink_); }

void EventRing::add(Kel::LogEvent const& event) {
  ring_->eventIs(++last_,
                 {event.time, event.name, event.severity, event.message, event.explanation, event.action});
  if (ring_->event().size() > capacity) ring_->eventDel(ring_->event().begin()->first);
}
