#include "platform/linux/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/linux/Descriptor.h"

namespace Linux {

namespace {

// What `path` leads to, which need not exist.
Kel::String behindLinks(Kel::String const& path) {
  constexpr int maxLinks = 40;  // as in the kernel
  std::filesystem::path result = path;
  std::error_code error;
  for (int i = 0; i < maxLinks && std::filesystem::is_symlink(result, error); ++i) {
    // An absolute target replaces what stands before it.
    result = result.parent_path() / std::filesystem::read_symlink(result, error);
  }
  return result.string();
}

bool writeAll(int file, Kel::String const& contents) {
  for (std::size_t done = 0; done < contents.size();) {
    ssize_t const written = write(file, contents.data() + done, contents.size() - done);
    if (written <= 0) return false;
    done += static_cast<std::size_t>(written);
  }
  return true;
}

// 0 or the error number, as the following two.
int rewrite(Kel::String const& path, Kel::String const& contents) {
  Descriptor const file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  bool const done = file && writeAll(file.get(), contents) &&
                    ftruncate(file.get(), static_cast<off_t>(contents.size())) == 0;
  return done ? 0 : errno;
}

int writeAside(Kel::String const& aside, Kel::String const& contents, struct stat const* old, unsigned mode) {
  Descriptor const file(open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode));
  bool done = file && writeAll(file.get(), contents);
  if (done && old != nullptr) {
    done = fchown(file.get(), old->st_uid, old->st_gid) == 0 && fchmod(file.get(), old->st_mode & 07777) == 0;
  }
  return done && fsync(file.get()) == 0 ? 0 : errno;
}

int replace(Kel::String const& path, Kel::String const& contents, unsigned mode) {
  struct stat old {};
  bool const exists = stat(path.c_str(), &old) == 0;
  Kel::String const aside = path + ".zerotouch-new";
  int error = writeAside(aside, contents, exists ? &old : nullptr, mode);
  if (error == 0 && rename(aside.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) unlink(aside.c_str());
  bool const onlyInPlace = error == EBUSY || error == EROFS || error == EACCES || error == EPERM;
  return exists && onlyInPlace ? rewrite(path, contents) : error;
}

}  // namespace

std::optional<Kel::String> readWhole(Kel::String const& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

Kel::String replaceWhole(Kel::String const& path, std::optional<Kel::String> const& contents, unsigned mode) {
  Kel::String const target = behindLinks(path);
  int error = 0;
  if (contents) {
    error = replace(target, *contents, mode);
  } else if (unlink(target.c_str()) != 0 && errno != ENOENT) {
    error = errno;
  }
  return error == 0 ? "" : std::strerror(error);
}

}  // namespace Linux
