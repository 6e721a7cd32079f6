#include "zerotouch/utils/ZeroTouchUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

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

// Makes a rename in `folder` last.
bool flushFolder(Kel::String const& folder) {
  int const fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool const flushed = fsync(fd) == 0;
  close(fd);
  return flushed;
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
  auto const failed = [&path](char const* step) {
    return Kel::String("cannot ") + step + " " + path + ": " + std::strerror(errno);
  };
  Kel::String temporary = path + ".XXXXXX";
  int const fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return failed("write beside");

  constexpr mode_t readableByAll = 0644;
  bool const written = writeAll(fd, content) && fchmod(fd, readableByAll) == 0 && fsync(fd) == 0;
  Kel::String const error = written ? "" : failed("write");
  close(fd);
  if (written && rename(temporary.c_str(), path.c_str()) == 0) {
    Kel::String const folder = std::filesystem::path(path).parent_path();
    return flushFolder(folder.empty() ? "." : folder) ? "" : failed("flush the folder of");
  }
  Kel::String const reason = written ? failed("replace") : error;
  unlink(temporary.c_str());
  return reason;
}

}  // namespace ZeroTouch
