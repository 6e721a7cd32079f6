#include "zerotouch/fetch/Contents.h"

#include <algorithm>
#include <cctype>

#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

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

}  // namespace ZeroTouch
