#include "platform/kel/Format.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "platform/kel/Assert.h"

namespace Kel {

namespace {

// "%" and the flags, width and precision that follow; `position` is left at the conversion character.
std::string_view directive(std::string_view format, std::size_t& position) {
  std::size_t const start = position++;
  while (position < format.size() &&
         (std::string_view("-+ #0.").find(format[position]) != std::string_view::npos ||
          std::isdigit(static_cast<unsigned char>(format[position])) != 0)) {
    ++position;
  }
  return format.substr(start, position - start);
}

template <typename T>
String print(String const& directive, T value) {
  int const length = std::snprintf(nullptr, 0, directive.c_str(), value);
  KEL_ASSERT(length >= 0, "format: a placeholder that printf refuses");
  String result(static_cast<std::size_t>(length) + 1, '\0');
  std::snprintf(result.data(), result.size(), directive.c_str(), value);
  result.pop_back();  // the terminator
  return result;
}

String shortest(double value) {
  std::array<char, 64> buffer{};
  auto const [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  return error == std::errc() ? String(buffer.data(), end) : print("%g", value);
}

String convert(String const& directive, char conversion, std::string_view text) {
  KEL_ASSERT(std::string_view("sdiuxXfge").find(conversion) != std::string_view::npos,
             "format: an unknown placeholder");
  return directive == "%" ? String(text) : print(directive + "s", String(text).c_str());
}

// With `T` the widest type of its kind, and `natural` the conversion that shows it as it is.
template <typename T>
String convertNumber(String const& directive, char conversion, T value, char const* natural) {
  switch (conversion) {
    case 'f':
    case 'g':
    case 'e':
      return print(directive + conversion, static_cast<double>(value));
    case 'x':
    case 'X':
      return print(directive + "ll" + conversion, static_cast<unsigned long long>(value));
    case 's':
    case 'd':
    case 'i':
    case 'u':
      return print(directive + natural, value);
    default:
      assertionFailed(__FILE__, __LINE__, "format: an unknown placeholder");
  }
}

String convert(String const& directive, char conversion, std::int64_t number) {
  return convertNumber(directive, conversion, static_cast<long long>(number), "lld");
}

String convert(String const& directive, char conversion, std::uint64_t number) {
  return convertNumber(directive, conversion, static_cast<unsigned long long>(number), "llu");
}

// Whole numbers print as such, whatever their type.
String convert(String const& directive, char conversion, double number) {
  constexpr double exactlyWhole = 9007199254740992;  // 2^53
  if (std::trunc(number) == number && std::abs(number) <= exactlyWhole) {
    return convert(directive, conversion, static_cast<std::int64_t>(number));
  }
  bool const floating = conversion == 'f' || conversion == 'g' || conversion == 'e';
  return floating ? print(directive + conversion, number) : convert(directive, 's', shortest(number));
}

}  // namespace

String formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  String result;
  auto const* next = arguments.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      result += format[i];
      continue;
    }
    String const spec(directive(format, i));
    if (i < format.size() && format[i] == '%') {
      result += '%';
      continue;
    }
    KEL_ASSERT(i < format.size() && next != arguments.end(), "format: a placeholder without an argument");
    result += std::visit([&](auto const& value) { return convert(spec, format[i], value); }, next->value);
    ++next;
  }
  KEL_ASSERT(next == arguments.end(), "format: an argument without a placeholder");
  return result;
}

String printable(std::string_view text, std::size_t maxShown) {
  String result(text.substr(0, maxShown));
  unsigned before = 0;
  for (char& byte : result) {
    auto const now = static_cast<unsigned char>(byte);
    bool const isControl = now < 0x20 || now == 0x7f;
    // A byte of the second set is part of a longer character when it follows one of its bytes.
    bool const isC1 = now >= 0x80 && now < 0xa0 && (before < 0x80 || before == 0xc2);
    if (isControl || isC1) byte = now == '\t' ? ' ' : '?';
    // A byte that was replaced begins no character.
    before = static_cast<unsigned char>(byte);
  }
  return text.size() > maxShown ? result + "..." : result;
}

}  // namespace Kel
