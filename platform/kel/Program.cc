#include "platform/kel/Program.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace Kel {

bool isProgram(String const& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

bool isCommand(String const& name) {
  if (name.find('/') != String::npos) return isProgram(name);
  char const* const path = std::getenv("PATH");
  std::istringstream folders(
      path != nullptr ? path : "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
  for (String folder; std::getline(folders, folder, ':');) {
    if (isProgram(folder.append("/").append(name))) return true;
  }
  return false;
}

}  // namespace Kel
