#include "programs/zerotouch-dhclient-script/Complaints.h"

#include "programs/zerotouch-dhclient-script/Checks.h"

namespace Hook {

namespace {
constexpr std::size_t longestShown = 64;
}

std::string quoted(std::string_view text) {
  std::string shown(text.substr(0, longestShown));
  for (char& c : shown) {
    if (!isPrintable(c)) c = '?';
  }
  return '"' + shown + (text.size() > longestShown ? "...\"" : "\"");
}

void Complaints::drop(std::string_view option, std::string_view value, std::string_view reason) {
  add("dropped from option " + std::string(option) + ": " + quoted(value) + ": " + std::string(reason));
}

}  // namespace Hook
