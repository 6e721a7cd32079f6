#include "zerotouch/utils/ZeroTouchUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string_view>

namespace ZeroTouch {

namespace {

bool writeAll(int fd, std::string_view rest) {
  while (!rest.empty()) {
    ssize_t const written = write(fd, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// "cannot <step> <path>: " and the error's text.
Kel::String failed(char const* step, Kel::String const& path) {
  return Kel::String("cannot ") + step + " " + path + ": " + std::strerror(errno);
}

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

Kel::String copyAll(int from, Kel::String const& source, int to, Kel::String const& target) {
  constexpr std::size_t pieceBytes = 262'144;
  Kel::String piece(pieceBytes, '\0');
  while (true) {
    ssize_t const got = readSome(from, piece.data(), piece.size());
    if (got < 0) return failed("read", source);
    if (got == 0) return "";
    if (!writeAll(to, std::string_view(piece).substr(0, static_cast<std::size_t>(got))))
      return failed("write", target);
  }
}

// Makes a rename in `folder` last.
bool flushFolder(Kel::String const& folder) {
  int const fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool const flushed = fsync(fd) == 0;
  close(fd);
  return flushed;
}

// As replaceFile; `fill` writes the content and returns "" or the reason of its failure.
Kel::String replaceWith(Kel::String const& path, std::function<Kel::String(int fd)> const& fill) {
  Kel::String temporary = path + ".XXXXXX";
  int const fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return failed("write beside", path);

  constexpr mode_t readableByAll = 0644;
  Kel::String error = fill(fd);
  if (error.empty() && (fchmod(fd, readableByAll) != 0 || fsync(fd) != 0)) error = failed("write", path);
  close(fd);
  if (error.empty() && rename(temporary.c_str(), path.c_str()) != 0) error = failed("replace", path);
  if (!error.empty()) {
    unlink(temporary.c_str());
    return error;
  }
  Kel::String const folder = std::filesystem::path(path).parent_path();
  return flushFolder(folder.empty() ? "." : folder) ? "" : failed("flush the folder of", path);
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

Kel::String replaceFile(Kel::String const& path, Kel::String const& content) {
  return replaceWith(path, [&](int fd) { return writeAll(fd, content) ? "" : failed("write", path); });
}

Kel::String replaceFileByCopy(Kel::String const& path, Kel::String const& source) {
  int const from = openRegular(source, O_NOFOLLOW);
  if (from < 0) return failed("read", source);
  Kel::String const error = replaceWith(path, [&](int fd) { return copyAll(from, source, fd, path); });
  close(from);
  return error;
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

}  // namespace ZeroTouch
