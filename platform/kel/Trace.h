// Trace lines for developers: per facility, levels 0 to 9, off by default, one branch when off.
#pragma once

#include <functional>
#include <sstream>
#include <string_view>

#include "platform/kel/Types.h"

namespace Kel {

// One per subject, with static storage duration.
class TraceFacility {
 public:
  explicit TraceFacility(char const* name);
  ~TraceFacility();
  TraceFacility(TraceFacility const&) = delete;
  TraceFacility& operator=(TraceFacility const&) = delete;

  char const* name() const { return name_; }
  bool enabled(int level) const { return level <= level_; }
  void levelIs(int level) { level_ = level; }
  void write(int level, String const& text) const;

 private:
  char const* name_;
  int level_ = -1;
};

// Sets levels for the facilities there are and those that come (a library loaded later): "Sm=9,Dhcp=5", "*=3"
// for all. Returns "" or what is wrong with the setting, which is then not applied.
String traceIs(String const& setting);

// Where lines go; by default standard error, with a time stamp.
using TraceSink = std::function<void(TraceFacility const&, int level, String const& text)>;
void traceSinkIs(TraceSink sink);

}  // namespace Kel

#define KEL_TRACE(facility, level, text)           \
  do {                                             \
    if ((facility).enabled(level)) [[unlikely]] {  \
      std::ostringstream kelTraceText;             \
      kelTraceText << text;                        \
      (facility).write(level, kelTraceText.str()); \
    }                                              \
  } while (false)
