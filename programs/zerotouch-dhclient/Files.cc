#include "programs/zerotouch-dhclient/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

void complain(char const* path) {
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", path, std::strerror(errno));
}

int openFile(char const* path) {
  int const file = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
  if (file < 0) complain(path);
  return file;
}

std::string contents(int file) {
  std::string result;
  std::array<char, 4096> buffer;
  for (ssize_t size; (size = read(file, buffer.data(), buffer.size())) > 0;)
    result.append(buffer.data(), static_cast<std::size_t>(size));
  return result;
}

std::string readContents(std::string const& path) {
  int const file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) return {};
  std::string result = contents(file);
  close(file);
  return result;
}

bool replaceContents(int file, std::string const& text) {
  return pwrite(file, text.data(), text.size(), 0) == ssize_t(text.size()) &&
         ftruncate(file, static_cast<off_t>(text.size())) == 0;
}

bool writeFile(std::string const& path, std::string const& text) {
  int const file = openFile(path.c_str());
  if (file < 0) return false;
  bool const written = replaceContents(file, text);
  if (!written) complain(path.c_str());
  close(file);
  return written;
}

std::string lineWith(std::string_view keyword, std::string const& text) {
  std::string result;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t const end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    if (text.compare(begin, keyword.size(), keyword) == 0) result = text.substr(begin, end - begin);
    begin = end;
  }
  return result;
}

std::string valueOf(std::string const& line, std::string_view keyword) {
  std::size_t const begin = line.find_first_not_of(" \t");
  if (begin == line.npos || line.compare(begin, keyword.size(), keyword) != 0) return {};
  std::string result = line.substr(begin + keyword.size());
  std::erase_if(result, [](char c) { return c == ';' || c == '"' || c == ' '; });
  return result;
}
