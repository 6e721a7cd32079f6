#include "programs/zerotouchd/DhcpClient.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "programs/zerotouch-dhclient/Shim.h"

namespace {

constexpr char const* agentsClient = "ZEROTOUCH_DHCLIENT";
constexpr char const* shimsClient = "ZEROTOUCH_REAL_DHCLIENT";

void checkProgram(char const* variable, Kel::String const& path) {
  if (!isProgram(path))
    throw BadInput(Kel::String(variable) + ": the DHCP client '" + path +
                   "' is no program that can be executed");
}

// The shim takes an empty name for none.
char const* namedToShim() {
  char const* const client = std::getenv(shimsClient);
  return client != nullptr && *client != '\0' ? client : nullptr;
}

}  // namespace

void checkDhcpClient(HostConfig const& config) {
  // What platform.toml names was looked at when the file was read, where file and line could be said.
  if (char const* const client = std::getenv(agentsClient)) checkProgram(agentsClient, client);
  char const* const real = namedToShim();
  if (config.dhcpClient.empty() && real != nullptr) checkProgram(shimsClient, real);
}

Kel::String missingDhcpClient(HostConfig const& config) {
  bool const named =
      !config.dhcpClient.empty() || namedToShim() != nullptr || std::getenv(agentsClient) != nullptr;
  if (named || std::ranges::any_of(usualClients, isProgram)) return "";
  Kel::String tried;
  for (char const* const path : usualClients) tried.append(tried.empty() ? "" : ", ").append(path);
  return "no DHCP client is installed, so no port can be asked for a boot file (tried " + tried + ")";
}

void exportDhcpClient(HostConfig const& config) {
  if (!config.dhcpClient.empty()) setenv(shimsClient, config.dhcpClient.c_str(), 1);
  if (std::getenv(agentsClient) != nullptr) return;
  std::error_code error;
  auto const own = std::filesystem::read_symlink("/proc/self/exe", error);
  for (Kel::String const& shim :
       {(own.parent_path() / "zerotouch-dhclient").string(), Kel::String(INSTALLED_DHCLIENT)}) {
    if (!isProgram(shim)) continue;
    setenv(agentsClient, shim.c_str(), 1);
    return;
  }
}
