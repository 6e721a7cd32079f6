// What the adapter tells operators about.
#pragma once

#include <set>
#include <string_view>

#include "platform/kel/Log.h"
#include "platform/kel/Types.h"

namespace Linux {

extern Kel::LogHandle portSettingFailed;           // setting, port, value, reason
extern Kel::LogHandle undoJournalFailed;           // what failed
extern Kel::LogHandle leftoversUndone;             // how many settings, as "1 setting"
extern Kel::LogHandle portNameInUse;               // device, name, the device that has it
extern Kel::LogHandle portNameInvalid;             // device
extern Kel::LogHandle linkModeIgnored;             // port, value
extern Kel::LogHandle packetSocketFailed;          // port, reason
extern Kel::LogHandle routerAdvertisementsFailed;  // reason
extern Kel::LogHandle eepromInvalid;               // path, reason
extern Kel::LogHandle valueDropped;                // what, value, reason
extern Kel::LogHandle routeNotInUse;               // prefix, next hops with reasons
extern Kel::LogHandle routesTakeOver;              // port, what they take
extern Kel::LogHandle hostNameFailed;              // name, reason
extern Kel::LogHandle systemFileFailed;            // what failed
extern Kel::LogHandle logReloadFailed;             // command, reason
extern Kel::LogHandle reloadFailed;                // command, reason, seconds until the next attempt

// Warns of values that are of no use, and hence dropped: of each once for as long as it is there.
class Dropped {
 public:
  // Around a look at all the values there are.
  void begin() { before_.swap(now_), now_.clear(); }
  // `what` it is, as "host name".
  void add(char const* what, std::string_view value, std::string_view fault);

 private:
  std::set<Kel::String> before_;
  std::set<Kel::String> now_;
};

}  // namespace Linux
