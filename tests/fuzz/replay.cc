// Without libFuzzer: runs a target once with each file of its corpus, whose folder is the argument.
#include <iostream>
#include <set>

#include "tests/fuzz/Fuzz.h"

int main(int argc, char* argv[]) {
  if (argc != 2) return 2;
  std::set<std::filesystem::path> files;
  for (auto const& entry : std::filesystem::directory_iterator(argv[1])) files.insert(entry.path());
  for (auto const& file : files) {
    std::cout << file.filename().string() << std::endl;  // the last one that is named has failed
    fuzz(Kel::readFile(file.string()).value());
  }
  return files.empty() ? 1 : 0;
}
