// What the generated descriptions (EntityType.h) and accessors are made of.
#pragma once

#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/Codec.h"
#include "platform/kel/Collection.h"

namespace Kel {

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

// Reads `text` or `value`, then hands it to `use`; the result is the reason for a refusal, or what `use`
// returns.
template <typename K, typename Use>
std::string withKey(std::string_view text, Use&& use) {
  K key{};
  if (auto error = Codec<K>::fromText(text, key); !error.empty()) return error;
  return use(key);
}

template <typename T, typename Use>
std::string withValue(Value const& value, Use&& use) {
  T parsed{};
  if (auto error = Codec<T>::fromValue(value, parsed); !error.empty()) return error;
  return use(parsed);
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
