// Severities, on the scale of syslog.
#pragma once

#include <cstdint>
#include <string>

#include "programs/zerotouch/Terminal.h"

namespace ZeroTouchCommand {

inline constexpr std::uint64_t severityError = 3;
inline constexpr std::uint64_t severityWarning = 4;

inline std::string severityWord(std::uint64_t level) {
  static constexpr char const* words[] = {"emergency", "alert",  "critical", "error",
                                          "warning",   "notice", "info",     "debug"};
  return level < std::size(words) ? words[level] : std::to_string(level);
}

inline std::string styledSeverity(std::uint64_t level, std::string const& text) {
  if (level > severityWarning) return text;
  return styled(level == severityWarning ? Style::warning : Style::error, text);
}

}  // namespace ZeroTouchCommand
