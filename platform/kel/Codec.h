// How each attribute type is written as a Kel::Value and as the text of a collection's key, and read back,
// checked.
//
// `fromValue` and `fromText` give an empty string, or the reason why the input is refused (and leave `out` as
// it was). Value types of the model qualify by having `stringValue()` and a static `fromString()`;
// enumerations and structures get their codec generated.
#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "platform/kel/Format.h"
#include "platform/kel/Types.h"
#include "platform/kel/Value.h"

namespace Kel {

template <typename T>
struct Codec;

template <typename T>
concept TextValue = requires(T const& value, std::string_view text) {
  { value.stringValue() } -> std::convertible_to<std::string>;
  { T::fromString(text) } -> std::same_as<std::optional<T>>;
  { T::typeName } -> std::convertible_to<std::string_view>;
};

template <TextValue T>
struct Codec<T> {
  static Value toValue(T const& value) { return value.stringValue(); }
  static std::string toText(T const& value) { return value.stringValue(); }
  static std::string fromText(std::string_view text, T& out) {
    std::optional<T> parsed = T::fromString(text);
    if (!parsed) return format("'%s' is no %s", text, T::typeName);
    out = *std::move(parsed);
    return {};
  }
  static std::string fromValue(Value const& value, T& out) {
    auto const* text = value.as<std::string>();
    if (text == nullptr) return format("expected a string holding a %s", T::typeName);
    return fromText(*text, out);
  }
};

template <>
struct Codec<std::string> {
  static Value toValue(std::string const& value) { return value; }
  static std::string toText(std::string const& value) { return value; }
  static std::string fromText(std::string_view text, std::string& out) {
    out = text;
    return {};
  }
  static std::string fromValue(Value const& value, std::string& out) {
    auto const* text = value.as<std::string>();
    if (text == nullptr) return "expected a string";
    out = *text;
    return {};
  }
};

template <>
struct Codec<bool> {
  static Value toValue(bool value) { return value; }
  static std::string toText(bool value) { return value ? "true" : "false"; }
  static std::string fromValue(Value const& value, bool& out) {
    auto const* flag = value.as<bool>();
    if (flag == nullptr) return "expected true or false";
    out = *flag;
    return {};
  }
};

// The number in `value`, if it is a whole one from 0 on, whichever type the reader of the input gave it.
inline std::optional<std::uint64_t> wholeNumber(Value const& value) {
  if (auto const* number = value.as<std::uint64_t>()) return *number;
  if (auto const* number = value.as<std::int64_t>(); number != nullptr && *number >= 0) {
    return static_cast<std::uint64_t>(*number);
  }
  return std::nullopt;
}

template <std::unsigned_integral T>
struct Codec<T> {
  static Value toValue(T value) { return std::uint64_t{value}; }
  static std::string toText(T value) { return std::to_string(value); }
  static std::string fromText(std::string_view text, T& out) {
    T parsed{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    // One text per number: a key has one name only.
    bool const padded = text.size() > 1 && text.front() == '0';
    if (error != std::errc() || end != text.data() + text.size() || padded) {
      return format("'%s': %s", text, range());
    }
    out = parsed;
    return {};
  }
  static std::string fromValue(Value const& value, T& out) {
    auto const number = wholeNumber(value);
    if (!number || *number > std::numeric_limits<T>::max()) return range();
    out = static_cast<T>(*number);
    return {};
  }

 private:
  static std::string range() {
    return "expected a whole number from 0 to " + std::to_string(std::numeric_limits<T>::max());
  }
};

// Kel::Seconds: a number that is not negative, or "unlimited" for Kel::never.
template <>
struct Codec<double> {
  static Value toValue(double value) { return std::isinf(value) ? Value("unlimited") : Value(value); }
  static std::string toText(double value) {
    return std::isinf(value) ? "unlimited" : formatArguments("%s", {value});
  }
  static std::string fromValue(Value const& value, double& out) {
    double parsed = -1;
    if (auto const* number = value.as<double>()) parsed = *number;
    if (auto const number = wholeNumber(value)) parsed = static_cast<double>(*number);
    if (auto const* text = value.as<std::string>(); text != nullptr && *text == "unlimited") parsed = never;
    if (!(parsed >= 0)) return "expected seconds (a number from 0 on) or \"unlimited\"";
    out = parsed;
    return {};
  }
};

}  // namespace Kel
