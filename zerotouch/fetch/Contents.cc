#include "zerotouch/fetch/Contents.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

#include "platform/kel/Format.h"
#include "platform/kel/Program.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t longestFirstLine = 256;  // as in the kernel

bool looksLikeWebPage(char const* path) {
  constexpr std::size_t enough = 256;
  auto const start = readStart(path, enough);
  if (!start) return false;
  Kel::String text =
      start->text.substr(std::min(start->text.find_first_not_of(" \t\r\n"), start->text.size()));
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text.starts_with("<!doctype html") || text.starts_with("<html");
}

}  // namespace

bool isScript(char const* path) {
  auto const start = readStart(path, 2);
  return start && start->text == "#!";
}

Trouble doubtsAbout(char const* path, Trouble const& answer) {
  if (answer.problem != Problem::none) return {answer.problem, answer.text + ", whose body this is"};
  return looksLikeWebPage(path) ? Trouble{Problem::webPage, "it is a web page"} : Trouble{};
}

Trouble interpreterTrouble(char const* path) {
  auto const start = readStart(path, longestFirstLine);
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
