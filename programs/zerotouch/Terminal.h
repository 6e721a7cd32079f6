// How things look on standard output: how wide that is, whether it shows colours, and tables and paragraphs
// that fit it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZeroTouchCommand {

bool onTerminal();

// COLUMNS when that is set, else the terminal's width; 0 for no limit, when output is not for a terminal.
std::size_t outputColumns();

enum class Style { heading, faint, warning, error };

// In colour on a terminal that has any, unless NO_COLOR is set; else as it is.
std::string styled(Style style, std::string const& text);

// Severities, on the scale of syslog.
inline constexpr std::uint64_t severityWarning = 4;
std::string severityWord(std::uint64_t level);
// The text in the colour of that severity.
std::string styledSeverity(std::uint64_t level, std::string const& text);

// Tables and paragraphs make all texts printable.
using Rows = std::vector<std::vector<std::string>>;

// Columns as wide as their widest cell, two blanks apart, under the headings in the first row. Where they do
// not fit, cells are wrapped, the last column's first; where that is no good either, each row becomes a block
// of lines, one per heading. Nothing is left out.
std::string table(Rows const& rows);

// Two columns without headings: what it is about, and how it is, which is wrapped.
std::string facts(Rows const& rows);

// The text in lines of `width` (0: in one), broken at blanks, the later ones behind `indent` blanks.
std::string paragraph(std::string const& text, std::size_t indent, std::size_t width);

}  // namespace ZeroTouchCommand
