#include "zerotouch/fetch/Interpreter.h"

#include <filesystem>
#include <sstream>

#include "platform/kel/Format.h"
#include "platform/kel/Program.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

static constexpr std::size_t longestLine = 256;  // as in the kernel

Trouble interpreterTrouble(char const* path) {
  auto const start = readStart(path, longestLine);
  if (!start || !start->text.starts_with("#!")) return {};
  Kel::String const line = start->text.substr(2, start->text.find('\n') - 2);
  if (line.ends_with('\r')) return {Problem::scriptLineEnds, "its lines end as on Windows (CR LF)"};
  std::istringstream words(line);
  Kel::String interpreter, argument;
  words >> interpreter >> argument;
  auto const missing = [](Kel::String const& program) {
    return Trouble{Problem::interpreterMissing, "its interpreter " + Kel::printable(program) + " is missing"};
  };
  if (!Kel::isProgram(interpreter)) return missing(interpreter);
  // "env NAME" looks for the interpreter itself.
  bool const looks = std::filesystem::path(interpreter).filename() == "env" && !argument.empty() &&
                     argument.find_first_of("-=") == Kel::String::npos;
  return looks && !Kel::isCommand(argument) ? missing(argument) : Trouble{};
}

}  // namespace ZeroTouch
