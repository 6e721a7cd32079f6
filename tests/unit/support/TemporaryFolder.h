// A folder of the test's own, removed afterwards.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zerotouch-test.XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }

  std::string path(std::string const& below = "") const { return path_ + below; }

  void write(std::string const& below, std::string const& content) const {
    std::filesystem::create_directories(std::filesystem::path(path(below)).parent_path());
    std::ofstream(path(below), std::ios::binary) << content;
  }
  // "(absent)" when there is no such file.
  std::string read(std::string const& below) const { return contentOf(path(below)); }
  static std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "(absent)";
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
  }

 private:
  std::string path_;
};
