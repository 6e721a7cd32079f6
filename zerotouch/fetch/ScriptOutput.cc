#include "zerotouch/fetch/ScriptOutput.h"

#include <sstream>

#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t maxOutputBytes = 4'096;

// A line for an event: what a terminal or a log would take for more than text is made harmless.
Kel::String printable(Kel::String line) {
  unsigned before = 0;
  for (char& byte : line) {
    auto const now = static_cast<unsigned char>(byte);
    // The second set of control characters, bare or in UTF-8.
    bool const isC1 = now >= 0x80 && now < 0xa0 && (before < 0x80 || before == 0xc2);
    if (isControl(byte) || isC1) byte = byte == '\t' ? ' ' : '?';
    // As it stands now: one that has been replaced does not begin anything.
    before = static_cast<unsigned char>(byte);
  }
  return line;
}

}  // namespace

Kel::String scriptOutput(char const* path) {
  auto const output = readStart(path, maxOutputBytes);
  if (!output) return "";
  Kel::String result;
  std::istringstream lines(output->text);
  for (Kel::String line; std::getline(lines, line);) result += printable(std::move(line)) + ". ";
  return output->cut ? result + "[output cut] " : result;
}

}  // namespace ZeroTouch
