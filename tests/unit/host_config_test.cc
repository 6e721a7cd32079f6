// The installed platform.toml, in which everything is commented out, against what the host makes of it.
#include "programs/zerotouchd/HostConfig.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>

#include "tests/unit/support/TemporaryFolder.h"

namespace {

class InstalledConfigTest : public ::testing::Test {
 protected:
  InstalledConfigTest() {
    std::ifstream file(PLATFORM_TOML);
    std::string section;
    bool example = false;
    for (std::string line; std::getline(file, line);) {
      if (line.empty()) example = false;
      if (line.ends_with("For example:")) example = true;
      if (line.starts_with('[')) section = line.substr(1, line.find(']') - 1);
      bool const isKey = line.size() > 1 && line[0] == '#' && std::islower(line[1]) != 0;
      if (isKey) keys_[section].insert(line.substr(1, line.find(' ') - 1));
      everything_ += line.substr(isKey ? 1 : 0) + "\n";
      defaults_ += line.substr(isKey && !example ? 1 : 0) + "\n";
    }
  }

  HostConfig read(std::string const& text) const {
    folder_.write("/platform.toml", text);
    return readHostConfig(folder_.path("/platform.toml"), true);
  }
  // What the host says that it knows, when it is given something else.
  std::string known(std::string const& text) const {
    try {
      read(text);
    } catch (BadInput const& error) {
      std::string const message = error.what();
      std::size_t const begin = message.find("(known: ") + 8;
      return message.substr(begin, message.find(')', begin) - begin);
    }
    return "accepted";
  }
  static std::string listOf(auto const& names, auto nameOf) {
    std::string result;
    for (auto const& name : names) result.append(result.empty() ? "" : ", ").append(nameOf(name));
    return result;
  }

  TemporaryFolder folder_;
  std::map<std::string, std::set<std::string>> keys_;  // by section
  std::string everything_;
  std::string defaults_;
};

TEST_F(InstalledConfigTest, namesEveryKeyAndItsDefault) {
  EXPECT_EQ(known("[nonsense]"), listOf(keys_, [](auto const& section) { return section.first; }));
  for (auto const& [section, keys] : keys_)
    EXPECT_EQ(known("[" + section + "]\nnonsense = 1"), listOf(keys, [](auto const& key) { return key; }));

  HostConfig const builtIn = readHostConfig(folder_.path("/none"), false);
  EXPECT_EQ(builtIn, readHostConfig(PLATFORM_TOML, true)) << "something is not commented out";
  EXPECT_EQ(builtIn, read(defaults_));
  EXPECT_NE(builtIn, read(everything_)) << "which is accepted";
}

}  // namespace
