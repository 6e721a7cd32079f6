#include "programs/zerotouch-dhclient-script/Complaints.h"

#include "programs/zerotouch-dhclient-script/Checks.h"

namespace Hook {

namespace {
constexpr std::size_t longestShown = 64;
}

void Complaints::drop(std::string_view option, std::string_view value, std::string_view reason) {
  std::string shown(value.substr(0, longestShown));
  for (char& c : shown) {
    if (!isPrintable(c)) c = '?';
  }
  if (value.size() > longestShown) shown += "...";
  add("dropped from option " + std::string(option) + ": \"" + shown + "\": " + std::string(reason));
}

}  // namespace Hook
