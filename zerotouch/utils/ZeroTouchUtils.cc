#include "zerotouch/utils/ZeroTouchUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace ZeroTouch {

namespace {

ssize_t readSome(int fd, char* buffer, std::size_t size) {
  ssize_t got = 0;
  do {
    got = read(fd, buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

// A regular file for reading; -1 and errno otherwise. O_NONBLOCK: opening a named pipe must not wait.
int openRegular(Kel::String const& path, int flags) {
  int const fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags);
  struct stat file {};
  if (fd < 0 || (fstat(fd, &file) == 0 && S_ISREG(file.st_mode))) return fd;
  close(fd);
  errno = EINVAL;
  return -1;
}

constexpr mode_t outputMode = 0644;

int openOutput(char const* path) {
  return path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, outputMode);
}

}  // namespace

Kel::String filePathFromFSRoot(Kel::String const& path) {
  char const* const root = std::getenv("FILESYSTEM_ROOT");
  return (root != nullptr && *root != '\0' ? Kel::String(root) : "/mnt") + path;
}

Kel::String argvToString(char const* const* argv) {
  Kel::String result;
  for (; *argv != nullptr; ++argv) result += Kel::String(*argv) + " ";
  return result;
}

std::optional<FileStart> readStart(Kel::String const& path, std::size_t limit) {
  int const fd = openRegular(path, 0);
  if (fd < 0) return std::nullopt;
  FileStart result;
  result.text.resize(limit + 1);
  std::size_t length = 0;
  for (ssize_t part = 1; part > 0 && length <= limit; length += static_cast<std::size_t>(part)) {
    part = readSome(fd, result.text.data() + length, result.text.size() - length);
    if (part < 0) break;
  }
  close(fd);
  result.cut = length > limit;
  result.text.resize(std::min(length, limit));
  return result;
}

Kel::Ptr<Kel::ChildSiginfo> runCmd(char** argv, char const* stdoutPath, char const* stderrPath) {
  int const out = openOutput(stdoutPath);
  int const err = openOutput(stderrPath);
  bool const contained = stdoutPath != nullptr || stderrPath != nullptr;
  auto child = contained ? Kel::runContained(argv, -1, out, err) : Kel::run(argv, -1, out, err, -1);
  if (out >= 0) close(out);
  if (err >= 0) close(err);
  return child;
}

}  // namespace ZeroTouch
