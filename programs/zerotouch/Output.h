// How values are shown to people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"
#include "platform/statebase/Json.h"

namespace ZeroTouchCommand {

// Two units at most, as in "45 s", "2 min 5 s", "1 h 0 min" and "3 d 4 h"; "unlimited" for Kel::never.
std::string duration(Kel::Seconds seconds);
// As "0.35 s" below ten seconds, and like duration() from there on.
std::string preciseDuration(Kel::Seconds seconds);
// The local date and time, as in "2026-03-01 14:03:22".
std::string dateAndTime(Kel::Seconds since1970);

using Statebase::at;
using Statebase::number;
// The value as text: a string without quotes, everything else as JSON.
std::string text(Kel::Value const& value);
// The text of a member, or "" when there is none.
std::string memberText(Kel::Value const& object, std::string const& name);
// Whether the list of names holds `name`.
bool contains(Kel::Value const& list, std::string const& name);
bool isTrue(Kel::Value const& value);

// These write to standard output; flushOutput() tells whether that has worked.
void print(std::string const& text);
void printJson(Kel::Value const& value);
// The text that printJson() prints.
std::string jsonText(Kel::Value const& value);
// Prints the value on one line, for values that follow each other.
void printJsonLine(Kel::Value const& value);
// Hands over what was printed so far. Returns 0, or the errno of the first failure, of this or an earlier
// print.
int flushOutput();

}  // namespace ZeroTouchCommand
