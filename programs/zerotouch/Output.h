// How values are shown to people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"

namespace ZeroTouchCommand {

// Control characters become "?": texts from the network must not steer a terminal.
std::string printable(std::string text);

// "45 s", "2 min 5 s", "1 h 0 min", "3 d 4 h"; "unlimited".
std::string duration(Kel::Seconds seconds);
// "0.35 s" below ten seconds, then as duration() has it.
std::string preciseDuration(Kel::Seconds seconds);
// Local date and time.
std::string dateAndTime(Kel::Seconds since1970);

// The member at a path of names; null when any of them is missing.
Kel::Value const& at(Kel::Value const& object, std::vector<std::string> const& names);
// As a plain text: strings without quotes, everything else as JSON.
std::string text(Kel::Value const& value);
// 0 for what is no number, Kel::never for "unlimited".
double number(Kel::Value const& value);
// The text of a member; empty when it is missing.
std::string memberText(Kel::Value const& object, std::string const& name);
// Whether a list of names has that one.
bool contains(Kel::Value const& list, std::string const& name);
bool isTrue(Kel::Value const& value);

// To standard output.
void print(std::string const& text);
void printJson(Kel::Value const& value);
// What that prints.
std::string jsonText(Kel::Value const& value);
// On one line, for values that follow each other.
void printJsonLine(Kel::Value const& value);
// Hands over what was printed so far; why that, or a print before, has failed, else 0.
int flushOutput();

}  // namespace ZeroTouchCommand
