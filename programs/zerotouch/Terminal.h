// What standard output is: how wide, and whether it shows colours.
#pragma once

#include <cstddef>
#include <string>

namespace ZeroTouchCommand {

bool onTerminal();

// COLUMNS when that is set, else the terminal's width; 0 for no limit, when output is not for a terminal.
std::size_t outputColumns();

enum class Style { heading, faint, warning, error };

// In colour on a terminal that has any, unless NO_COLOR is set; else as it is.
std::string styled(Style style, std::string const& text);

}  // namespace ZeroTouchCommand
