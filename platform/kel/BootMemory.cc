#include "platform/kel/BootMemory.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/kel/WholeFile.h"

namespace Kel {

String BootMemory::inNamespace(char const* kind) {
  String boot = readFile("/proc/sys/kernel/random/boot_id").value_or("");
  boot.erase(boot.find_last_not_of('\n') + 1);
  std::error_code error;
  auto const space = std::filesystem::read_symlink(String("/proc/self/ns/") + kind, error);
  return "boot " + boot + " namespace " + space.string();
}

std::optional<String> BootMemory::contents(String* failure) const {
  auto const file = readFile(path_, failure);
  if (!file || !file->starts_with(about_)) return std::nullopt;
  return file->substr(about_.size());
}

String BootMemory::keep(String const& contents) const {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), error);
  return replaceFile(path_, about_ + contents, 0600, false);
}

String BootMemory::forget() const {
  bool const gone = unlink(path_.c_str()) == 0 || errno == ENOENT;
  return gone ? "" : "cannot remove " + path_ + ": " + std::strerror(errno);
}

}  // namespace Kel
