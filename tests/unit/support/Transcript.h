// What is asked and what is answered, from files in tests/unit/expected.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

// The cases of a file in expected/: what is asked, in a line behind "$ ", and the lines of the answer.
inline std::vector<std::pair<std::string, std::string>> transcript(std::string const& name) {
  std::vector<std::pair<std::string, std::string>> cases;
  std::ifstream file(PROJECT_FOLDER "/tests/unit/expected/" + name);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("$ ")) {
      cases.emplace_back(line.substr(2), "");
    } else if (!line.starts_with("# ")) {
      cases.back().second += line + "\n";
    }
  }
  EXPECT_FALSE(cases.empty()) << name;
  return cases;
}
