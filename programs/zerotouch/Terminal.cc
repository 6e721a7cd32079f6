#include "programs/zerotouch/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <numeric>
#include <string_view>

#include "platform/kel/Format.h"
#include "programs/zerotouch/Output.h"

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

constexpr std::size_t gap = 2;
constexpr std::size_t leastText = 16;

using Widths = std::vector<std::size_t>;

// Whether the byte begins a character: in UTF-8, the bytes that continue one take no room.
bool startsCharacter(char c) { return (c & 0xc0) != 0x80; }

// How many columns the text takes.
std::size_t displayWidth(std::string const& text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, startsCharacter));
}

// The text in lines that are at most `width` wide, broken at blanks where there are any. There is at least
// one line.
std::vector<std::string> wrapped(std::string const& text, std::size_t width) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  std::size_t blank = std::string::npos;
  std::size_t shown = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ' ' && i > start) blank = i;
    if (!startsCharacter(text[i]) || ++shown <= width) continue;
    std::size_t const end = blank != std::string::npos ? blank : i;
    lines.push_back(text.substr(start, end - start));
    start = blank != std::string::npos ? blank + 1 : i;
    shown = displayWidth(text.substr(start, i + 1 - start));
    blank = std::string::npos;
  }
  lines.push_back(text.substr(start));
  return lines;
}

Widths naturalWidths(Rows const& rows) {
  Widths widths;
  for (auto const& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
  }
  return widths;
}

std::size_t total(Widths const& widths) {
  return std::accumulate(widths.begin(), widths.end(), std::size_t{0}) + gap * (widths.size() - 1);
}

// How wide a column has to be for the words of the text. A URL may be broken anywhere, since it can be longer
// than any terminal is wide.
std::size_t longestWord(std::string const& text) {
  std::size_t longest = 0;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t const end = std::min(text.find(' ', start), text.size());
    std::string const word = text.substr(start, end - start);
    bool const isUrl = word.find("://") != std::string::npos;
    longest = std::max(longest, isUrl ? std::min(displayWidth(word), leastText) : displayWidth(word));
    start = end + 1;
  }
  return longest;
}

// The least widths of the columns: words stay whole, except in the last column, which stays readable.
Widths leastWidths(Rows const& rows, Widths const& natural) {
  Widths least(natural.size());
  for (auto const& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) least[i] = std::max(least[i], longestWord(row[i]));
  }
  least.back() = std::min(natural.back(), leastText);
  return least;
}

// Makes the widest column that can be narrower so, until the table fits. Returns false when it cannot.
bool narrow(Widths& widths, Widths const& least, std::size_t limit) {
  while (total(widths) > limit) {
    std::size_t widest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i) {
      bool const wider = widest == widths.size() || widths[i] >= widths[widest];
      if (widths[i] > least[i] && wider) widest = i;
    }
    if (widest == widths.size()) return false;
    --widths[widest];
  }
  return true;
}

std::string line(std::vector<std::string> const& cells, Widths const& widths, bool heading) {
  std::string result;
  std::size_t const filled = static_cast<std::size_t>(
      std::ranges::find_if(cells.rbegin(), cells.rend(), [](auto const& cell) { return !cell.empty(); })
          .base() -
      cells.begin());
  // Blanks fill a cell up only when another one follows that is not empty, so that no line ends with blanks.
  for (std::size_t i = 0; i < filled; ++i) {
    result += heading ? styled(Style::heading, cells[i]) : cells[i];
    if (i + 1 < filled) result.append(widths[i] - displayWidth(cells[i]) + gap, ' ');
  }
  return result + '\n';
}

std::string laidOut(Rows const& rows, Widths const& widths, bool headings) {
  std::string result;
  for (auto const& row : rows) {
    std::vector<std::vector<std::string>> pieces;
    std::size_t height = 1;
    for (std::size_t i = 0; i < row.size(); ++i) {
      pieces.push_back(wrapped(Kel::printable(row[i]), widths[i]));
      height = std::max(height, pieces.back().size());
    }
    for (std::size_t i = 0; i < height; ++i) {
      std::vector<std::string> cells;
      for (auto const& cell : pieces) cells.push_back(i < cell.size() ? cell[i] : "");
      result += line(cells, widths, headings && &row == &rows.front());
    }
  }
  return result;
}

// Each row as a block of lines, for narrow terminals.
std::string stacked(Rows const& rows, std::size_t limit) {
  std::string result;
  std::size_t label = 0;
  for (auto const& heading : rows.front()) label = std::max(label, displayWidth(heading) + gap);
  for (std::size_t i = 1; i < rows.size(); ++i) {
    if (i > 1) result += '\n';
    for (std::size_t column = 0; column < rows[i].size(); ++column) {
      std::string const& heading = rows.front()[column];
      result += styled(Style::heading, heading) + std::string(label - displayWidth(heading), ' ') +
                paragraph(rows[i][column], label, limit);
    }
  }
  return result;
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

std::string severityWord(std::uint64_t level) {
  static constexpr char const* words[] = {"emergency", "alert",  "critical", "error",
                                          "warning",   "notice", "info",     "debug"};
  return level < std::size(words) ? words[level] : std::to_string(level);
}

std::string styledSeverity(std::uint64_t level, std::string const& text) {
  if (level > severityWarning) return text;
  return styled(level == severityWarning ? Style::warning : Style::error, text);
}

std::string table(Rows const& rows) {
  Widths widths = naturalWidths(rows);
  std::size_t const limit = outputColumns();
  if (limit > 0 && !narrow(widths, leastWidths(rows, widths), limit)) return stacked(rows, limit);
  return laidOut(rows, widths, true);
}

std::string facts(Rows const& rows) {
  Widths widths = naturalWidths(rows);
  std::size_t const limit = outputColumns();
  if (limit > 0 && total(widths) > limit) {
    widths.back() = std::max(leastText, limit - std::min(limit, widths.front() + gap));
  }
  return laidOut(rows, widths, false);
}

std::string paragraph(std::string const& text, std::size_t indent, std::size_t width) {
  std::string const shown = Kel::printable(text);
  if (width == 0) return shown + '\n';
  std::string result;
  for (auto const& piece : wrapped(shown, std::max(leastText, width - std::min(width, indent)))) {
    if (!result.empty()) result.append(indent, ' ');
    result += piece + '\n';
  }
  return result;
}

}  // namespace ZeroTouchCommand
