#include "platform/kel/Format.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>

#include "platform/kel/Assert.h"

namespace Kel {

namespace {

// "%" and the flags, width and precision that follow; `position` is left at the conversion character.
std::string_view specification(std::string_view format, std::size_t& position) {
  std::size_t const start = position++;
  while (position < format.size() &&
         (std::string_view("-+ #0.").find(format[position]) != std::string_view::npos ||
          std::isdigit(static_cast<unsigned char>(format[position])) != 0)) {
    ++position;
  }
  return format.substr(start, position - start);
}

template <typename T>
String print(String const& specification, T value) {
  std::array<char, 512> buffer{};
  int const length = std::snprintf(buffer.data(), buffer.size(), specification.c_str(), value);
  return {buffer.data(), std::min<std::size_t>(static_cast<std::size_t>(length), buffer.size() - 1)};
}

String shortest(double value) {
  std::array<char, 64> buffer{};
  auto const [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  return error == std::errc() ? String(buffer.data(), end) : print("%g", value);
}

String convert(String specification, char conversion, FormatArgument const& argument) {
  if (auto const* text = std::get_if<std::string_view>(&argument.value)) {
    if (specification == "%") return String(*text);
    return print(specification + "s", String(*text).c_str());
  }
  if (auto const* number = std::get_if<double>(&argument.value)) {
    bool const floating = conversion == 'f' || conversion == 'g' || conversion == 'e';
    return floating ? print(specification + conversion, *number) : shortest(*number);
  }
  bool const hexadecimal = conversion == 'x' || conversion == 'X';
  if (auto const* number = std::get_if<std::int64_t>(&argument.value); number != nullptr && !hexadecimal) {
    return print(specification + "lld", static_cast<long long>(*number));
  }
  auto const* number = std::get_if<std::uint64_t>(&argument.value);
  auto const value = static_cast<unsigned long long>(
      number != nullptr ? *number : static_cast<std::uint64_t>(std::get<std::int64_t>(argument.value)));
  return print(specification + "ll" + (hexadecimal ? conversion : 'u'), value);
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
    String const spec(specification(format, i));
    if (i < format.size() && format[i] == '%') {
      result += '%';
      continue;
    }
    KEL_ASSERT(i < format.size() && next != arguments.end(), "format: a placeholder without an argument");
    result += convert(spec, format[i], *next++);
  }
  KEL_ASSERT(next == arguments.end(), "format: an argument without a placeholder");
  return result;
}

}  // namespace Kel
