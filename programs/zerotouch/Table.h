// Tables and paragraphs that fit the terminal. All texts are made printable.
#pragma once

#include <string>
#include <vector>

namespace ZeroTouchCommand {

using Rows = std::vector<std::vector<std::string>>;

// Columns as wide as their widest cell, two blanks apart, under the headings in the first row. Where they do
// not fit, cells are wrapped, the last column's first; where that is no good either, each row becomes a block
// of lines, one per heading. Nothing is left out.
std::string table(Rows const& rows);

// Without headings: what, and how it is, which is wrapped.
std::string facts(Rows const& rows);

// The text in lines of `width` (0: in one), broken at blanks, the later ones behind `indent` blanks.
std::string paragraph(std::string const& text, std::size_t indent, std::size_t width);

// As wide as people see it.
std::size_t displayWidth(std::string const& text);

// Lines no wider than `width`, broken at blanks where there are any; at least one.
std::vector<std::string> wrapped(std::string const& text, std::size_t width);

}  // namespace ZeroTouchCommand
