// What the fuzz targets share. Each target is one file, which defines fuzz(): whatever bytes an outside
// program could send go through the code that takes them, and what comes out of it is held against what is
// promised.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/WholeFile.h"
#include "tests/unit/support/TemporaryFolder.h"

using namespace std::literals;

void fuzz(std::string_view input);

// Removes the text before the first `end` from the rest, with that `end`, and returns it; all of the rest
// when there is none.
inline std::string_view take(std::string_view& rest, std::string_view end = "\n") {
  std::string_view const taken = rest.substr(0, rest.find(end));
  rest.remove_prefix(std::min(rest.size(), taken.size() + end.size()));
  return taken;
}

inline bool isPrintable(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// A file in a folder of its own.
class ScratchFile {
 public:
  explicit ScratchFile(std::string const& name = "file") : path_(folder_.path("/" + name)) {}

  std::string const& path() const { return path_; }
  void write(std::string_view content) const {
    int const file = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    KEL_ASSERT(::write(file, content.data(), content.size()) == ssize_t(content.size()), "room for the file");
    close(file);
  }
  std::string read() const { return Kel::readFile(path_).value_or("(absent)"); }

 private:
  TemporaryFolder folder_;
  std::string path_;
};
