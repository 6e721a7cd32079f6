// Words of the command line that name a time or a severity.
#pragma once

#include <string>

#include "platform/kel/Types.h"

namespace ZeroTouchCommand {

// Since 1970: a time span before `now` ("90", "90s", "10min", "2h", "1d"), a time of day that has passed
// ("14:03", "14:03:22"), or a local date with or without a time. Throws WrongUsage for anything else.
Kel::Seconds timeOf(std::string const& words, Kel::Seconds now);

// On the scale of syslog; 7 for "". Throws WrongUsage for what is neither a word nor a number of that scale.
double severityOf(std::string const& word);

}  // namespace ZeroTouchCommand
