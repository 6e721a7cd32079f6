// Environment variables for the length of a test.
#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

class Environment {
 public:
  Environment() = default;
  Environment(Environment const&) = delete;
  Environment& operator=(Environment const&) = delete;
  ~Environment() {
    for (auto const& [name, value] : before_) {
      if (value) {
        setenv(name.c_str(), value->c_str(), 1);
      } else {
        unsetenv(name.c_str());
      }
    }
  }

  void set(std::string const& name, std::string const& value) {
    remember(name);
    setenv(name.c_str(), value.c_str(), 1);
  }
  void unset(std::string const& name) {
    remember(name);
    unsetenv(name.c_str());
  }

 private:
  void remember(std::string const& name) {
    char const* const value = std::getenv(name.c_str());
    before_.try_emplace(name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
  }

  std::map<std::string, std::optional<std::string>> before_;
};
