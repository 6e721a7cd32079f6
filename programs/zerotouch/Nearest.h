// What somebody who mistyped a word may have meant.
#pragma once

#include <string>
#include <vector>

namespace ZeroTouchCommand {

// The candidate closest to the word, whatever the case; empty when none is close.
std::string nearest(std::string const& word, std::vector<std::string> const& candidates);

// " (did you mean X?)", or nothing.
std::string didYouMean(std::string const& word, std::vector<std::string> const& candidates);

}  // namespace ZeroTouchCommand
