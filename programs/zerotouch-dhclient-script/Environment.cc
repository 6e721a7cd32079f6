#include "programs/zerotouch-dhclient-script/Environment.h"

#include <algorithm>
#include <charconv>

#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"

namespace Hook {

namespace {

constexpr std::size_t octalDigits = 3;

// The byte that the three octal digits stand for; -1 when they are none.
int octalByte(std::string_view digits) {
  bool const isOctal = digits.size() == octalDigits && digits[0] <= '3' &&
                       std::ranges::all_of(digits, [](char digit) { return digit >= '0' && digit <= '7'; });
  return isOctal ? (digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0') : -1;
}

}  // namespace

Environment environmentOf(char const* const* variables) {
  Environment result;
  for (; *variables != nullptr; ++variables) {
    std::string_view const pair = *variables;
    if (auto const equals = pair.find('='); equals != std::string_view::npos)
      result.emplace(pair.substr(0, equals), pair.substr(equals + 1));
  }
  return result;
}

std::string_view variable(Environment const& environment, std::string_view name) {
  auto const found = environment.find(name);
  return found != environment.end() ? std::string_view(found->second) : std::string_view();
}

std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      result += text[i];
    } else if (int const byte = octalByte(text.substr(i + 1, octalDigits)); byte >= 0) {
      result += static_cast<char>(byte);
      i += octalDigits;
    } else {
      result += text[++i];
    }
  }
  result.erase(result.find_last_not_of('\0') + 1);
  return result;
}

std::string_view plainOption(Environment const& environment, std::string_view option) {
  std::string name = "new_" + std::string(option);
  std::ranges::replace_if(
      name, [](char c) { return c == '-' || c == '.'; }, '_');
  return variable(environment, name);
}

std::string textOption(Environment const& environment, std::string_view option) {
  return unescaped(plainOption(environment, option));
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> result;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.empty()) return result;
    result.push_back(text.substr(0, text.find(' ')));
    text.remove_prefix(result.back().size());
  }
}

std::optional<std::uint32_t> number(std::string_view text, std::uint32_t least, std::uint32_t most) {
  std::uint32_t result = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
  bool const isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber && result >= least && result <= most ? std::optional(result) : std::nullopt;
}

void Complaints::drop(std::string_view option, std::string_view value, std::string_view reason) {
  add("dropped from option " + std::string(option) + ": " +
      inQuotes(Grammar::withoutPasswords(std::string(value))) + ": " + std::string(reason));
}

std::string inQuotes(std::string_view text) {
  constexpr std::size_t longestQuoted = 64;  // bytes
  return '"' + Kel::printable(text, longestQuoted) + '"';
}

}  // namespace Hook
