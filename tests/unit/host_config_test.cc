// What the host makes of platform.toml: of the installed one, in which everything is commented out, and of
// bad ones.
#include "programs/zerotouchd/config/HostConfig.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>

#include "tests/unit/support/TemporaryFolder.h"
#include "tests/unit/support/Transcript.h"

namespace {

class InstalledConfigTest : public ::testing::Test {
 protected:
  InstalledConfigTest() {
    std::ifstream file(PLATFORM_TOML);
    std::string section;
    bool example = false;
    for (std::string line; std::getline(file, line);) {
      if (line.empty()) example = false;
      if (line.ends_with("For example:") || line.ends_with("Recommended:")) example = true;
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
  // What the host says of a file that it refuses, without its path.
  std::string refused(std::string const& text) const {
    try {
      read(text);
    } catch (BadInput const& error) {
      return std::string(error.what()).substr(folder_.path("/platform.toml").size());
    }
    return "accepted";
  }
  // What the host says that it knows, when it is given something else.
  std::string known(std::string const& text) const {
    std::string const message = refused(text);
    std::size_t const begin = message.find("(known: ") + 8;
    return message.substr(begin, message.find(')', begin) - begin);
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

TEST_F(InstalledConfigTest, RefusesWhatWouldHangOverflowOrReachATerminal) {
  auto const chain = [](int keys) {
    std::string text = "[system]\n";
    for (int i = 0; i < keys; ++i) text += "a.";
    return text + "a = 1\n";
  };
  auto cases = transcript("host_config.txt");
  cases.insert(cases.end(), {{": larger than 262144 bytes", chain(250'000)},
                             {":2: more than 4096 dots", chain(4'097)},
                             {":2: unknown key 'a'", chain(4'096)}});
  for (auto const& [expected, text] : cases)
    EXPECT_TRUE(refused(text).starts_with(expected)) << text.substr(0, 80) << "\n" << refused(text);
  EXPECT_EQ(refused("[install]\nmode = 8\n[a]\n"),
            ":3: unknown section [a] (known: " + known("[a]") + ")\n" + folder_.path("/platform.toml") +
                ":2: [install] mode: expected a mode in octal digits, as \"0600\"")
      << "all mistakes are told at once";
  EXPECT_EQ(read("[system]\nname = \"Zürich\"\n").systemName, "Zürich");
  EXPECT_THROW(readHostConfig(folder_.path(""), true), BadInput) << "which is a folder";
}

TEST_F(InstalledConfigTest, DropInsCountKeyByKeyInTheOrderOfTheirNames) {
  folder_.write("/platform.toml.d/20-site.toml", "[ports]\ndevices = [\"et*\"]\n");
  folder_.write("/platform.toml.d/10-model.toml", "[ports]\ndevices = [\"swp*\"]\n[system]\nname = \"b\"\n");
  folder_.write("/platform.toml.d/30-old.toml.bak", "[nonsense]\n");
  auto const config =
      read("[system]\nname = \"a\"\ncell_type = \"modular\"\n[ports]\ndevices = [\"eth*\"]\n");
  EXPECT_EQ(config.systemName, "b");
  EXPECT_EQ(config.cellType, "modular");
  EXPECT_EQ(config.ports.devices, std::vector<Kel::String>{"et*"});
  EXPECT_EQ(readHostConfig(folder_.path("/platform.toml"), true).ports, config.ports);

  folder_.write("/platform.toml.d/20-site.toml", "\n[ports]\ndevices = 1\n");
  EXPECT_EQ(refused(""), ".d/20-site.toml:3: [ports] devices: expected a list");
}

// What people copy: the indented lines from [ports] on, up to the next empty one.
TEST_F(InstalledConfigTest, TheSamplesOfTheDocumentsWorkWhenTheyAreCopied) {
  for (char const* const document : {"README.md", "docs/operating.md"}) {
    std::ifstream file(std::string(PROJECT_FOLDER "/") + document);
    std::string sample, line;
    while (std::getline(file, line) && line != "    [ports]") {
    }
    for (; line.starts_with("    "); std::getline(file, line)) sample += line + "\n";
    EXPECT_FALSE(read(sample).ports.names.empty()) << document << "\n" << sample;
  }
}

}  // namespace
