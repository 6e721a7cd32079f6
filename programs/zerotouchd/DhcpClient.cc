#include "programs/zerotouchd/DhcpClient.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

void exportDhcpClient(Kel::String const& client) {
  if (!client.empty()) setenv("ZEROTOUCH_REAL_DHCLIENT", client.c_str(), 1);
  if (std::getenv("ZEROTOUCH_DHCLIENT") != nullptr) return;
  std::error_code error;
  auto const own = std::filesystem::read_symlink("/proc/self/exe", error);
  for (Kel::String const& shim :
       {(own.parent_path() / "zerotouch-dhclient").string(), Kel::String(INSTALLED_DHCLIENT)}) {
    if (access(shim.c_str(), X_OK) != 0) continue;
    setenv("ZEROTOUCH_DHCLIENT", shim.c_str(), 1);
    return;
  }
}
