#include "programs/zerotouch/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace ZeroTouchCommand {

namespace {

constexpr std::size_t usualWidth = 80;
constexpr std::size_t leastWidth = 10;

std::string_view variable(char const* name) {
  char const* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

bool inColour() {
  static bool const answer =
      onTerminal() && variable("NO_COLOR").empty() && variable("TERM") != "dumb" && !variable("TERM").empty();
  return answer;
}

}  // namespace

bool onTerminal() { return isatty(STDOUT_FILENO) == 1; }

std::size_t outputColumns() {
  std::string_view const wanted = variable("COLUMNS");
  std::size_t columns = 0;
  auto const [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), columns);
  if (error == std::errc() && end == wanted.data() + wanted.size() && columns > 0) {
    return std::max(columns, leastWidth);
  }
  if (!onTerminal()) return 0;
  winsize size{};
  bool const known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? std::max<std::size_t>(size.ws_col, leastWidth) : usualWidth;
}

std::string styled(Style style, std::string const& text) {
  if (!inColour() || text.empty()) return text;
  static constexpr char const* codes[] = {"1", "2", "33", "31"};
  return std::string("\x1b[") + codes[static_cast<std::size_t>(style)] + "m" + text + "\x1b[0m";
}

}  // namespace ZeroTouchCommand
