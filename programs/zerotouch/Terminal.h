// How things look on standard output: how wide that is, whether it shows colours, and tables and paragraphs
// that fit it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZeroTouchCommand {

bool onTerminal();

// How many columns the output may have: COLUMNS when that is set, else the width of the terminal. 0 means no
// limit, when standard output is no terminal.
std::size_t outputColumns();

enum class Style { heading, faint, warning, error };

// The text in that style when standard output is a terminal with colours and NO_COLOR is not set, else as it
// is.
std::string styled(Style style, std::string const& text);

// Severities, on the scale of syslog.
inline constexpr std::uint64_t severityWarning = 4;
std::string severityWord(std::uint64_t level);
// The text in the colour of that severity.
std::string styledSeverity(std::uint64_t level, std::string const& text);

// The functions below replace control characters in all texts.
using Rows = std::vector<std::vector<std::string>>;

// A table whose first row holds the headings. Each column is as wide as its widest cell, and two blanks apart
// from the next. When the table is too wide, cells are wrapped, first those of the last column; when that
// does not suffice, each row becomes a block of lines, one for each heading. Nothing is left out.
std::string table(Rows const& rows);

// A table of two columns without headings, of which the second is wrapped where it is too wide.
std::string facts(Rows const& rows);

// The text in lines of at most `width` columns, or in one line when that is 0. Lines are broken at blanks,
// and all but the first begin with `indent` blanks.
std::string paragraph(std::string const& text, std::size_t indent, std::size_t width);

}  // namespace ZeroTouchCommand
