// Events in the form of CloudEvents 1.0 (cloudevents.io), in JSON.
#pragma once

#include <cstdint>

#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"

struct CloudEvent {
  Kel::String id;
  Kel::String source;  // the switch's serial number
  Kel::String type;    // such as "zerotouch.ZTP_INIT"
  Kel::Seconds time = 0;
  std::uint64_t sequence = 0;  // counts the events of a source; gaps are events that were dropped
  Kel::ValueMap data;
};

// On one line.
Kel::String jsonOf(CloudEvent const& event);

// The same as RFC 3339 has it, in UTC with milliseconds.
Kel::String timestamp(Kel::Seconds since1970);
