#include "platform/kel/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string_view>
#include <utility>

namespace Kel {

namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    int const error = errno;
    if (fd_ >= 0) close(fd_);
    errno = error;
  }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

// Writes the contents to a descriptor. Returns 0 or the error's number, as every function here that returns
// int.
using Fill = std::function<int(int fd)>;

String failed(char const* what, String const& path, int error) {
  return String("cannot ") + what + " " + path + ": " + std::strerror(error);
}

int writeAll(int fd, std::string_view rest) {
  while (!rest.empty()) {
    ssize_t const written = write(fd, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

ssize_t readSome(int fd, String& piece) {
  ssize_t got = 0;
  do {
    got = read(fd, piece.data(), piece.size());
  } while (got < 0 && errno == EINTR);
  return got;
}

constexpr std::size_t bufferBytes = 262'144;
// Of a file that is copied: 30 s on a disk that takes 140 KB/s.
constexpr std::size_t pieceBytes = 16 * bufferBytes;

// A regular file for reading; -1 with errno set when there is none. O_NONBLOCK keeps a named pipe from making
// us wait.
int openRegular(String const& path, int flags) {
  int const fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags);
  struct stat file {};
  if (fd < 0 || (fstat(fd, &file) == 0 && S_ISREG(file.st_mode))) return fd;
  close(fd);
  errno = EINVAL;
  return -1;
}

// What `path` leads to, which need not exist.
String behindLinks(String const& path) {
  constexpr int maxLinks = 40;  // as in the kernel
  std::filesystem::path result = path;
  std::error_code error;
  for (int i = 0; i < maxLinks && std::filesystem::is_symlink(result, error); ++i) {
    // An absolute target replaces what stands before it.
    result = result.parent_path() / std::filesystem::read_symlink(result, error);
  }
  return result.string();
}

// `old`, if it is given, is the file whose mode and owner the new one takes.
int writeAside(String const& aside, Fill const& fill, unsigned mode, struct stat const* old, bool flushed) {
  unlink(aside.c_str());
  constexpr mode_t private_ = 0600;  // until its contents and its owner are right
  Descriptor const file(open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, private_));
  if (!file) return errno;
  if (int const error = fill(file.get()); error != 0) return error;
  if (old != nullptr && fchown(file.get(), old->st_uid, old->st_gid) != 0) return errno;
  mode_t const wanted = old != nullptr ? old->st_mode & 07777 : mode;
  return fchmod(file.get(), wanted) == 0 && (!flushed || fsync(file.get()) == 0) ? 0 : errno;
}

// How many bytes the file system of the descriptor lacks for so many more; 0 when they fit, or when it does
// not tell.
std::uint64_t missingRoom(int fd, std::uint64_t bytes) {
  struct statvfs room {};
  if (fstatvfs(fd, &room) != 0 || room.f_blocks == 0) return 0;
  std::uint64_t const available = (geteuid() == 0 ? room.f_bfree : room.f_bavail) * room.f_frsize;
  return bytes > available ? bytes - available : 0;
}

// Copies to the end of `from`; each piece is on the disk before the next one is begun. `readError` is set
// when it was the reading that failed.
int copyPieces(int from, int to, std::function<void()> const& betweenPieces, int& readError) {
  String buffer(bufferBytes, '\0');
  betweenPieces();
  std::size_t unflushed = 0;
  while (ssize_t const got = readSome(from, buffer)) {
    if (got < 0) return readError = errno;
    auto const size = static_cast<std::size_t>(got);
    if (int const error = writeAll(to, std::string_view(buffer).substr(0, size)); error != 0) return error;
    unflushed += size;
    if (unflushed < pieceBytes) continue;
    unflushed = 0;
    if (fdatasync(to) != 0) return errno;
    betweenPieces();
  }
  return 0;
}

// Where the new contents of a file are written.
String besides(String const& path) { return path + ".zerotouch-new"; }

// Makes a rename in the folder of `path` last.
int flushFolder(String const& path) {
  String const folder = std::filesystem::path(path).parent_path();
  Descriptor const opened(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened && fsync(opened.get()) == 0 ? 0 : errno;
}

int replace(String const& path, Fill const& fill, unsigned mode, struct stat const* old, bool flushed) {
  String const aside = besides(path);
  int error = writeAside(aside, fill, mode, old, flushed);
  if (error == 0 && rename(aside.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return flushed ? flushFolder(path) : 0;
  unlink(aside.c_str());
  return error;
}

int rewrite(String const& path, String const& contents) {
  Descriptor const file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!file) return errno;
  if (int const error = writeAll(file.get(), contents); error != 0) return error;
  return ftruncate(file.get(), static_cast<off_t>(contents.size())) == 0 ? 0 : errno;
}

String outcome(String const& path, int error, std::uint64_t missing = 0) {
  if (error == 0) return "";
  String const result = failed("write", path, error);
  return missing > 0 ? result + ", " + std::to_string(missing) + " bytes are missing" : result;
}

}  // namespace

std::optional<String> readFile(String const& path, String* failure, std::size_t most) {
  auto const refuse = [&](int error) {
    if (failure != nullptr && error != ENOENT) *failure = failed("read", path, error);
    return std::nullopt;
  };
  if (failure != nullptr) failure->clear();
  Descriptor const file(openRegular(path, 0));
  if (!file) return refuse(errno);
  String contents, piece(bufferBytes, '\0');
  while (contents.size() < most) {
    ssize_t const got = readSome(file.get(), piece);
    if (got < 0) return refuse(errno);
    if (got == 0) break;
    contents.append(piece, 0, std::min(static_cast<std::size_t>(got), most - contents.size()));
  }
  return contents;
}

String replaceFile(String const& path, String const& contents, unsigned mode, bool outlivesPower) {
  std::uint64_t missing = 0;
  auto const fill = [&](int fd) {
    int const error = writeAll(fd, contents);
    if (error == ENOSPC) missing = std::max(missingRoom(fd, contents.size()), std::uint64_t{1});
    return error;
  };
  int const error = replace(path, fill, mode, nullptr, outlivesPower);
  return outcome(path, error, missing);
}

String replaceFileByCopy(String const& path, String const& source, unsigned mode,
                         std::function<void()> const& betweenPieces, int* errorNumber) {
  Descriptor const from(openRegular(source, O_NOFOLLOW));
  struct stat wanted {};
  if (!from || fstat(from.get(), &wanted) != 0) return failed("read", source, errno);
  struct stat old {};
  bool const keepsMode = lstat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  std::uint64_t missing = 0;
  int readError = 0;
  auto const copy = [&](int to) {
    missing = missingRoom(to, static_cast<std::uint64_t>(wanted.st_size));
    return missing > 0 ? ENOSPC : copyPieces(from.get(), to, betweenPieces, readError);
  };
  int const error = replace(path, copy, mode, keepsMode ? &old : nullptr, true);
  if (readError != 0) return failed("read", source, readError);
  if (errorNumber != nullptr) *errorNumber = error;
  return outcome(path, error, missing);
}

void removeUnfinished(String const& path) { unlink(besides(path).c_str()); }

String changeFile(String const& path, String const& contents, unsigned mode) {
  String const target = behindLinks(path);
  struct stat old {};
  bool const exists = stat(target.c_str(), &old) == 0;
  auto const fill = [&](int fd) { return writeAll(fd, contents); };
  int error = replace(target, fill, mode, exists ? &old : nullptr, false);
  bool const onlyInPlace = error == EBUSY || error == EROFS || error == EACCES || error == EPERM;
  if (exists && onlyInPlace) error = rewrite(target, contents);
  return outcome(path, error);
}

String removeFile(String const& path) {
  bool const removed = unlink(behindLinks(path).c_str()) == 0 || errno == ENOENT;
  return removed ? "" : failed("remove", path, errno);
}

}  // namespace Kel
