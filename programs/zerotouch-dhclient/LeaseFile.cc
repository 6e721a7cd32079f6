#include "programs/zerotouch-dhclient/Shim.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view identifier = "default-duid ";

void complain(char const* path) {
  std::fprintf(stderr, "zerotouch-dhclient: lease file %s: %s\n", path, std::strerror(errno));
}

// Opens the file or makes it. A symbolic link is not followed, since it could lead to any file.
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

// The line with the identifier. The client writes it in one line, and of several the last one counts.
std::string identifierIn(std::string const& text) {
  std::string result;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t const end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    if (text.compare(begin, identifier.size(), identifier) == 0) result = text.substr(begin, end - begin);
    begin = end;
  }
  return result;
}

}  // namespace

void makeLeaseFile(char const* path) {
  if (int const file = openFile(path); file >= 0) close(file);
}

void forgetLeases(char const* path) {
  int const file = openFile(path);
  if (file < 0) return;
  std::string const kept = identifierIn(contents(file));
  bool const written = pwrite(file, kept.data(), kept.size(), 0) == ssize_t(kept.size()) &&
                       ftruncate(file, static_cast<off_t>(kept.size())) == 0;
  if (!written) complain(path);
  close(file);
}
