#include "programs/zerotouch-dhclient-script/Lists.h"

#include <algorithm>

namespace Hook {

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> result;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.empty()) return result;
    result.push_back(text.substr(0, text.find(' ')));
    text.remove_prefix(result.back().size());
  }
}

}  // namespace Hook
