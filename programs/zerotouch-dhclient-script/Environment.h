// What the hook is given, and its complaints about it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Hook {

// The variables that the DHCP client hands to its script: "reason", "interface", and one for each option of
// the answer, whose name is the option's with "new_" before it and underscores for dashes and dots.
using Environment = std::map<std::string, std::string, std::less<>>;

// Takes a null-terminated array of NAME=value.
Environment environmentOf(char const* const* variables);

// The value as the client wrote it; empty when there is none.
std::string_view variable(Environment const& environment, std::string_view name);

// The bytes that a text option had on the wire, without the NULs that some servers put at its end. The client
// writes a backslash before what a shell could take for its own, and other bytes as a backslash and three
// octal digits.
std::string unescaped(std::string_view text);

// A text option's bytes; empty when the answer had none.
std::string textOption(Environment const& environment, std::string_view option);
// Any other option, as the client wrote it.
std::string_view plainOption(Environment const& environment, std::string_view option);

// The words of a list, which blanks separate.
std::vector<std::string_view> words(std::string_view text);

// The number that is the whole text, when it is from `least` to `most`.
std::optional<std::uint32_t> number(std::string_view text, std::uint32_t least, std::uint32_t most);

// What is wrong with what the hook was given, for people.
class Complaints {
 public:
  // The port that all of the following is about.
  void deviceIs(std::string_view device) { prefix_ = std::string(device) + ": "; }

  void add(std::string const& text) { lines_.push_back(prefix_ + text); }
  // A value of an option that is not used.
  void drop(std::string_view option, std::string_view value, std::string_view reason);

  std::vector<std::string> const& lines() const { return lines_; }

 private:
  std::string prefix_;
  std::vector<std::string> lines_;
};

// A text from outside between quotation marks, in a form that is safe to show, and short.
std::string inQuotes(std::string_view text);

}  // namespace Hook
