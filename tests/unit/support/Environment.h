// Environment variables for the length of a test.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

class Environment {
 public:
  Environment() {
    for (char** variable = environ; *variable != nullptr; ++variable) before_.emplace_back(*variable);
  }
  Environment(Environment const&) = delete;
  Environment& operator=(Environment const&) = delete;
  ~Environment() {
    clearenv();
    for (auto const& variable : before_)
      set(variable.substr(0, variable.find('=')), variable.substr(variable.find('=') + 1));
  }

  static void set(std::string const& name, std::string const& value) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  static void unset(std::string const& name) { unsetenv(name.c_str()); }

 private:
  std::vector<std::string> before_;
};
