// printf-style formatting that knows the types of its arguments.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <variant>

#include "platform/kel/Types.h"

namespace Kel {

class FormatArgument {
 public:
  template <std::signed_integral T>
  FormatArgument(T v) : value(std::int64_t{v}) {}
  template <std::unsigned_integral T>
  FormatArgument(T v) : value(std::uint64_t{v}) {}
  FormatArgument(double v) : value(v) {}
  FormatArgument(char const* v) : value(std::string_view(v)) {}
  FormatArgument(String const& v) : value(std::string_view(v)) {}
  FormatArgument(std::string_view v) : value(v) {}

  std::variant<std::int64_t, std::uint64_t, double, std::string_view> value;
};

// Understands %s %d %i %u %x %X %f %g %e: flags, width and precision as in printf(3), and %%. The argument's
// own type decides: a string given to %d prints as a string, and a double given to %d or %u prints without a
// trailing ".0" (90 seconds as 90, 0.5 as 0.5). It is a programming error when the placeholders are not as
// many as the arguments, or of another conversion.
String formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments);

template <typename... Args>
String format(std::string_view text, Args const&... args) {
  return formatArguments(text, {FormatArgument(args)...});
}

}  // namespace Kel
