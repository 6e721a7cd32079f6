#include "platform/linux/Place.h"

#include <filesystem>
#include <fstream>

namespace Linux {

Kel::String thisPlace(char const* kind) {
  Kel::String boot;
  std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
  std::error_code error;
  auto const space = std::filesystem::read_symlink(Kel::String("/proc/self/ns/") + kind, error);
  return "boot " + boot + " namespace " + space.string();
}

}  // namespace Linux
