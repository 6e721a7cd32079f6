// What the runs before this boot came to, as the host has left it on the flash: nobody else tells it once the
// switch has reloaded, whether it is provisioned now or not.
#pragma once

#include <optional>

#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"

struct Outcome {
  bool provisioned = false;
  Kel::String serial;
  Kel::Seconds started = 0, ended = 0;
  Kel::ValueMap data;
};

// Of the last run that has ended; nothing when there is none, or when it was reported already.
std::optional<Outcome> lastOutcome();

// Remembers on the flash that it was reported, so that later boots do not report it again. Returns "" or what
// failed.
Kel::String outcomeReported(Outcome const& outcome);
