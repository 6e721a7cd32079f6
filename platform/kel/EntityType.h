// How generic code (the state socket, the command line, the settings of the host) reads and writes entities
// without knowing their types: neutral values, the codecs that turn attributes into values and back, and the
// descriptions of the types, which the generator writes.
#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/kel/Entity.h"
#include "platform/kel/Format.h"
#include "platform/kel/Types.h"

namespace Kel {

// A value of any type. Close to JSON, but kept free of any JSON library.
class Value;
using ValueList = std::vector<Value>;
// In the order in which the members were written: attributes are set in that order.
using ValueMap = std::vector<std::pair<std::string, Value>>;

class Value {
 public:
  using Variant = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string,
                               ValueList, ValueMap>;

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool v) : variant_(v) {}
  Value(std::int64_t v) : variant_(v) {}
  Value(std::uint64_t v) : variant_(v) {}
  Value(std::uint32_t v) : variant_(std::uint64_t{v}) {}
  Value(double v) : variant_(v) {}
  Value(std::string v) : variant_(std::move(v)) {}
  Value(std::string_view v) : variant_(std::string(v)) {}
  Value(char const* v) : variant_(std::string(v)) {}
  Value(ValueList v) : variant_(std::move(v)) {}
  Value(ValueMap v) : variant_(std::move(v)) {}

  Variant const& variant() const { return variant_; }

  template <typename T>
  T const* as() const {
    return std::get_if<T>(&variant_);
  }

  bool operator==(Value const&) const = default;

 private:
  Variant variant_ = nullptr;
};

// How each attribute type is written as a Value and as the text of a collection's key, and read back,
// checked.
//
// `fromValue` and `fromText` give an empty string, or the reason why the input is refused (and leave `out` as
// it was). Value types of the model qualify by having `stringValue()` and a static `fromString()`;
// enumerations and structures get their codec generated.
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

// The number in `value` if it is whole and not negative, whichever of the two types it is held as.
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
    // Leading zeros are refused, so that each key has one text only.
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

enum class AttributeKind {
  value,      // one value
  values,     // a collection of values by key
  keys,       // a set of keys
  entity,     // one entity, which may be absent
  entities,   // a collection of entities by key
  reference,  // a handle to an entity that lives elsewhere; shown by its key, never walked
};

// Plain data and function pointers; the functions are handed an entity of the described type.
struct AttributeType {
  char const* name;
  AttributeKind kind;
  char const* keyType;  // of a collection, else ""
  char const* type;
  char const* unit;
  char const* documentation;
  // The type of the entities held (for entity, entities and reference), else nullptr.
  EntityType const* childType;

  // The attribute's value, or that of the entry `key`; null when there is no such entry. For value, values
  // and keys; of a reference the key of its entity, nullptr when the type has none.
  Value (*get)(Entity const& entity, std::string_view key);
  // The keys of a collection.
  std::vector<std::string> (*keys)(Entity const& entity);
  // The entity held (under `key`); nullptr when there is none. For entity and entities.
  Entity* (*child)(Entity const& entity, std::string_view key);

  // Writing gives "" or the reason why the input is refused. With a null entity the input is only checked.
  std::string (*set)(Entity* entity, std::string_view key, Value const& value);
  // Creates the entity (under `key`) when it is absent. With a null entity the key is only checked.
  std::string (*create)(Entity* entity, std::string_view key);
  // Removes the entry `key`, or the entity held; nothing happens when there is none.
  std::string (*del)(Entity* entity, std::string_view key);
};

struct EntityType {
  char const* name;
  char const* documentation;
  EntityType const* base;
  std::span<AttributeType const> own;
  // Looks through the base types too; nullptr when there is no such attribute.
  AttributeType const* attribute(std::string_view attributeName) const;
  // Base types first, in the order of the schema.
  std::vector<AttributeType const*> attributes() const;
};

// What follows is used by the generated code.

// A record is created again under a key that is in use, with another value of an attribute that is fixed for
// its life.
class NameInUseError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// How a constructor attribute is shown in a NameInUseError: handles by address.
template <typename T>
std::string shown(T const& value) {
  return Codec<T>::toText(value);
}
template <typename T>
std::string shown(Ptr<T> const& value) {
  std::ostringstream text;
  text << static_cast<void const*>(value.get());
  return text.str();
}

template <typename T>
void checkSame(char const* attribute, T const& wanted, T const& current) {
  if (wanted == current) return;
  throw NameInUseError("Reinstantiating the pointer interface where constructor parameter attribute _" +
                       std::string(attribute) + " has a different value of " + shown(wanted) +
                       " than the current value of " + shown(current) + " not allowed");
}

// These read a key from `text` or a value from `value`, and hand both to `use` with the entity. With a null
// entity the input is only checked. They return the reason for a refusal, or "". `check` does the same for a
// value that was read. The functions are plain pointers, so that each of these is compiled once for each
// type.
template <typename K>
std::string withKey(Entity* entity, std::string_view text, void (*use)(Entity&, K const&)) {
  K key{};
  if (auto error = Codec<K>::fromText(text, key); !error.empty()) return error;
  if (entity != nullptr) use(*entity, key);
  return {};
}

template <typename V>
std::string withValue(Entity* entity, Value const& value, void (*use)(Entity&, V const&),
                      std::string (*check)(V const&) = nullptr) {
  V parsed{};
  if (auto error = Codec<V>::fromValue(value, parsed); !error.empty()) return error;
  if (check != nullptr) {
    if (auto error = check(parsed); !error.empty()) return error;
  }
  if (entity != nullptr) use(*entity, parsed);
  return {};
}

template <typename K, typename V>
std::string withKeyAndValue(Entity* entity, std::string_view text, Value const& value,
                            void (*use)(Entity&, K const&, V const&)) {
  K key{};
  if (auto error = Codec<K>::fromText(text, key); !error.empty()) return error;
  V parsed{};
  if (auto error = Codec<V>::fromValue(value, parsed); !error.empty()) return error;
  if (entity != nullptr) use(*entity, key, parsed);
  return {};
}

template <typename K, typename V>
std::vector<std::string> keyTexts(Collection<K, V> const& collection) {
  std::vector<std::string> result;
  for (auto const& [key, value] : collection) result.push_back(Codec<K>::toText(key));
  return result;
}

template <typename K, typename V>
V const* entry(Collection<K, V> const& collection, std::string_view text) {
  K key{};
  if (!Codec<K>::fromText(text, key).empty() || !collection.contains(key)) return nullptr;
  return &collection.get(key);
}

template <typename K, typename V>
Value entryValue(Collection<K, V> const& collection, std::string_view text) {
  V const* const found = entry(collection, text);
  return found != nullptr ? Codec<V>::toValue(*found) : Value();
}

template <typename K, typename V>
Value entryPresent(Collection<K, V> const& collection, std::string_view text) {
  return entry(collection, text) != nullptr ? Value(true) : Value();
}

template <typename K, typename V>
Entity* entryChild(Collection<K, Ptr<V>> const& collection, std::string_view text) {
  Ptr<V> const* const found = entry(collection, text);
  return found != nullptr ? found->get() : nullptr;
}

}  // namespace Kel
