// What zerotouch-reporter says of itself, in a file beside the run directory.
#pragma once

#include <string>

#include "platform/kel/EntityType.h"

namespace ZeroTouchCommand {

// {url, delivered, waiting, dropped, failure, hostIsRunning, nextTry?} of the reporter that goes with this
// socket; null when none has run in this boot.
Kel::Value reporterStatus(std::string const& socketPath);

// The same on one line.
std::string reporterInWords(Kel::Value const& status);

}  // namespace ZeroTouchCommand
