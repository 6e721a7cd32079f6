#include "programs/zerotouch/Nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace ZeroTouchCommand {

namespace {

std::string lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// How many characters have to be inserted, removed or replaced, or swapped with their neighbour.
std::size_t editDistance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> before, last, now(b.size() + 1);
  std::iota(now.begin(), now.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    before = std::exchange(last, now);
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      bool const same = a[i - 1] == b[j - 1];
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      bool const swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) now[j] = std::min(now[j], before[j - 2] + 1);
    }
  }
  return now.back();
}

}  // namespace

std::string nearest(std::string const& word, std::vector<std::string> const& candidates) {
  constexpr std::size_t longestWord = 64;
  if (word.empty() || word.size() > longestWord) return {};
  std::string const wanted = lower(word);
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (auto const& candidate : candidates) {
    std::string const other = lower(candidate);
    // A part of a name is as good as a name with one mistake.
    bool const isPart = wanted.size() >= 3 && other.find(wanted) != std::string::npos;
    std::size_t const distance = isPart ? 1 : editDistance(wanted, other);
    if (distance < bestDistance || (distance == bestDistance && isPart && other.size() < best.size())) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

std::string didYouMean(std::string const& word, std::vector<std::string> const& candidates) {
  std::string const meant = nearest(word, candidates);
  return meant.empty() ? "" : " (did you mean " + meant + "?)";
}

}  // namespace ZeroTouchCommand
