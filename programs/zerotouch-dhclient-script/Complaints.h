// What is wrong with what the hook was given, for people.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Hook {

// A text from outside in a form that is safe to show, and short.
std::string quoted(std::string_view text);

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

}  // namespace Hook
