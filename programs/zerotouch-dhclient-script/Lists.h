// Options that hold a list.
#pragma once

#include <vector>

#include "programs/zerotouch-dhclient-script/Checks.h"
#include "programs/zerotouch-dhclient-script/Complaints.h"
#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

inline constexpr std::size_t mostAddresses = 8;

std::vector<std::string_view> words(std::string_view text);

// Keeps the first `most`.
template <typename T>
void limit(std::vector<T>& list, std::size_t most, std::string_view option, Complaints& complaints) {
  if (list.size() <= most) return;
  complaints.add("option " + std::string(option) + " has " + std::to_string(list.size()) +
                 " entries: only the first " + std::to_string(most) + " are used");
  list.erase(list.begin() + static_cast<std::ptrdiff_t>(most), list.end());
}

// The usable ones of an option's addresses.
template <typename Addr>
std::vector<Addr> addresses(Environment const& environment, std::string_view option, Complaints& complaints) {
  std::vector<Addr> result;
  for (std::string_view const word : words(plainOption(environment, option))) {
    auto const address = Addr::fromString(word);
    std::string const wrong = address ? wrongWith(*address) : "no " + std::string(Addr::typeName);
    if (wrong.empty()) {
      result.push_back(*address);
    } else {
      complaints.drop(option, word, wrong);
    }
  }
  limit(result, mostAddresses, option, complaints);
  return result;
}

}  // namespace Hook
