#include "programs/zerotouch/past/Words.h"

#include <charconv>
#include <ctime>
#include <optional>

#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr std::uint64_t lowest = 7;  // severity: debug

// A number and a unit: seconds.
std::optional<Kel::Seconds> spanOf(std::string const& words) {
  static constexpr std::pair<char const*, double> units[] = {{"", 1},     {"s", 1},    {"m", 60},
                                                             {"min", 60}, {"h", 3600}, {"d", 86400}};
  double amount = 0;
  auto const [end, error] = std::from_chars(words.data(), words.data() + words.size(), amount);
  std::string unit(end, words.data() + words.size());
  unit.erase(0, unit.find_first_not_of(' '));
  if (error != std::errc() || !(amount >= 0 && amount < 1e9)) return std::nullopt;
  for (auto const& [name, seconds] : units) {
    if (unit == name) return amount * seconds;
  }
  return std::nullopt;
}

std::optional<Kel::Seconds> pointOf(std::string const& words, Kel::Seconds now) {
  auto const today = static_cast<std::time_t>(now);
  for (char const* const form : {"%H:%M:%S", "%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
    std::tm local{};
    localtime_r(&today, &local);
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    char const* const end = strptime(words.c_str(), form, &local);
    if (end == nullptr || *end != '\0') continue;
    local.tm_isdst = -1;
    auto const time = static_cast<Kel::Seconds>(std::mktime(&local));
    constexpr Kel::Seconds day = 86400;
    return form[1] == 'H' && time > now ? time - day : time;
  }
  return std::nullopt;
}

}  // namespace

Kel::Seconds timeOf(std::string const& words, Kel::Seconds now) {
  if (auto const span = spanOf(words)) return now - *span;
  if (auto const point = pointOf(words, now)) return *point;
  throw WrongUsage("--since: '" + words + "' is no time (as 10min, 2h, 14:03 or '2026-03-01 14:03')");
}

double severityOf(std::string const& word) {
  if (word.empty()) return lowest;
  std::vector<std::string> words;
  for (std::uint64_t level = 0; level <= lowest; ++level) {
    words.push_back(severityWord(level));
    if (word == words.back() || word == std::to_string(level)) return static_cast<double>(level);
  }
  throw WrongUsage("--severity: there is no severity '" + word + "'" + didYouMean(word, words));
}

}  // namespace ZeroTouchCommand
