// Reading platform.toml: a table of sections and keys, each with what takes its value.
#pragma once

#include <functional>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/kel/Types.h"
#include "programs/zerotouchd/config/TomlLibrary.h"

// What an operator gave us is wrong: the host says so and ends with exit code 2, before anything is touched.
class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes the value of a key, or calls fail().
using Setter = std::function<void(toml::node const&)>;
using Section = std::map<std::string, Setter, std::less<>>;
using Sections = std::map<std::string, Section, std::less<>>;

// What was read, for people.
struct TomlFiles {
  std::vector<Kel::String> files;             // in the order in which they count
  std::map<std::string, std::string> places;  // by "[section] key": where its value stands, as "file:line"
};

// Reads the file and its drop-ins, the files PATH.d/*.toml in the order of their names. Of a key that
// several of them have, the last one counts; its value is handed to the key's setter. A file that is absent
// changes nothing, unless `mustExist`. Throws BadInput with a line for everything that is wrong: as
// "file: reason" for what is no regular file or is too large, and as "file:line: reason" for what does not
// parse, for unknown keys and for values of a wrong kind, whose key is named too. The lines are printable
// ASCII, whatever the files have.
TomlFiles readToml(Kel::String const& path, bool mustExist, Sections const& sections);

// Refuses the value at `where`. Only setters may call this.
[[noreturn]] void fail(toml::source_region const& where, std::string const& reason);

// Reads a table within a value. `where` names it in messages.
void readSection(toml::table const& table, std::string const& where, Section const& keys);

// The setters. What they write to must outlive the reading.

// A string that is not empty and has no control characters.
Setter text(Kel::String& target);
Setter text(std::function<void(Kel::String const&)> take);
Setter absolutePath(Kel::String& target);
// The absolute path of a program that may be executed.
Setter program(Kel::String& target);
Setter flag(std::function<void(bool)> take);
// Hands each entry of a list to `add`.
Setter listOf(std::function<void(toml::node const&)> add);
// A number from `least` on.
Setter number(std::function<void(double)> take, double least = 0);
// Bytes: a whole number from 1 on.
Setter bytes(std::uint32_t& target);
// One of the words.
template <typename T>
Setter oneOf(std::vector<std::pair<std::string, T>> words, std::function<void(T)> take);
// Seconds from 0 on or, where that is allowed, the word "unlimited".
template <typename T>
Setter seconds(T& target, bool unlimited);

// Bodies of the templates.

template <typename T>
Setter oneOf(std::vector<std::pair<std::string, T>> words, std::function<void(T)> take) {
  return [words = std::move(words), take = std::move(take)](toml::node const& node) {
    auto const given = node.value_exact<std::string>();
    std::string known;
    for (auto const& [word, meaning] : words) {
      if (given == word) return take(meaning);
      known += (known.empty() ? "\"" : word == words.back().first ? " or \"" : ", \"") + word + "\"";
    }
    fail(node.source(), "expected " + known);
  };
}

template <typename T>
Setter seconds(T& target, bool unlimited) {
  return [&target, unlimited](toml::node const& node) {
    if (unlimited && node.value_exact<std::string>() == "unlimited") {
      target = std::numeric_limits<T>::infinity();
      return;
    }
    auto const value = node.value<double>();
    bool const fits = std::is_floating_point_v<T> || node.is_integer();
    if (!value || !fits || !(*value >= 0 && *value <= static_cast<double>(std::numeric_limits<T>::max()))) {
      fail(node.source(),
           std::string("expected seconds (a number from 0 on)") + (unlimited ? " or \"unlimited\"" : ""));
    }
    target = static_cast<T>(*value);
  };
}
