#include "zerotouch/fetch/Interpreter.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "platform/kel/Format.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t longestLine = 256;  // as in the kernel
constexpr char const* defaultPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

bool isProgram(Kel::String const& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

// Whether one of the folders where programs are looked for has it.
bool isOnPath(Kel::String const& name) {
  if (name.find('/') != Kel::String::npos) return isProgram(name);
  char const* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : defaultPath);
  for (Kel::String folder; std::getline(folders, folder, ':');) {
    if (isProgram(folder.append("/").append(name))) return true;
  }
  return false;
}

}  // namespace

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
  if (!isProgram(interpreter)) return missing(interpreter);
  // "env NAME" looks for the interpreter itself.
  bool const looks = std::filesystem::path(interpreter).filename() == "env" && !argument.empty() &&
                     argument.find_first_of("-=") == Kel::String::npos;
  return looks && !isOnPath(argument) ? missing(argument) : Trouble{};
}

}  // namespace ZeroTouch
