#include "platform/linux/Names.h"

#include <algorithm>

#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

// Not those of <cctype>, which ask the locale.
bool isAlphanumeric(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isLabel(std::string_view label) {
  constexpr std::size_t maxLength = 63;
  return !label.empty() && label.size() <= maxLength && label.front() != '-' && label.back() != '-' &&
         std::ranges::all_of(label, [](char c) { return isAlphanumeric(c) || c == '-'; });
}

}  // namespace

Kel::String hostNameFault(std::string_view name, std::size_t maxLength) {
  if (name.size() > maxLength) return "longer than " + std::to_string(maxLength) + " bytes";
  for (std::size_t start = 0, dot = 0; dot != std::string_view::npos; start = dot + 1) {
    dot = name.find('.', start);
    if (!isLabel(name.substr(start, dot == std::string_view::npos ? dot : dot - start))) return "not a name";
  }
  return "";
}

Kel::String printable(std::string_view text) {
  constexpr std::size_t maxShown = 80;
  Kel::String result(text.substr(0, maxShown));
  std::ranges::replace_if(
      result, [](char c) { return c < ' ' || c > '~'; }, '?');
  return text.size() > maxShown ? result + "..." : result;
}

void Dropped::add(char const* what, std::string_view value, std::string_view fault) {
  Kel::String const key = Kel::String(what) + " " + Kel::String(value);
  if (now_.insert(key).second && !before_.contains(key)) valueDropped.log(what, printable(value), fault);
}

}  // namespace Linux
