#include "programs/zerotouchd/DhcpClient.h"

#include <cstdlib>
#include <filesystem>

#include "platform/kel/Program.h"

namespace {

constexpr char const* agentsClient = "ZEROTOUCH_DHCLIENT";
constexpr char const* shimsClient = "ZEROTOUCH_REAL_DHCLIENT";

void checkProgram(char const* variable, Kel::String const& path) {
  if (!Kel::isProgram(path))
    throw BadInput(Kel::String(variable) + ": the DHCP client '" + path +
                   "' is no program that can be executed");
}

}  // namespace

void checkDhcpClient(HostConfig const& config) {
  // What platform.toml names was looked at when the file was read, where file and line could be said.
  if (char const* const client = std::getenv(agentsClient)) checkProgram(agentsClient, client);
  char const* const real = std::getenv(shimsClient);
  bool const counts = config.dhcpClient.empty() && real != nullptr && *real != '\0';
  if (counts) checkProgram(shimsClient, real);
}

std::vector<Kel::String> dhcpClients(HostConfig const& config) {
  if (!config.dhcpClient.empty()) return {config.dhcpClient};
  char const* const real = std::getenv(shimsClient);
  if (real != nullptr && *real != '\0') return {real};
  return {"/sbin/dhclient", "/usr/sbin/dhclient", "/usr/sbin/dhcpcd"};
}

Kel::String missingDhcpClient(HostConfig const& config) {
  Kel::String places;
  for (auto const& path : dhcpClients(config)) {
    if (Kel::isProgram(path)) return "";
    places += (places.empty() ? "" : " nor ") + path;
  }
  return "no DHCP client is installed: neither " + places;
}

void exportDhcpClient(HostConfig const& config) {
  if (!config.dhcpClient.empty()) setenv(shimsClient, config.dhcpClient.c_str(), 1);
  if (std::getenv(agentsClient) != nullptr) return;
  std::error_code error;
  auto const own = std::filesystem::read_symlink("/proc/self/exe", error);
  for (Kel::String const& shim :
       {(own.parent_path() / "zerotouch-dhclient").string(), Kel::String(INSTALLED_DHCLIENT)}) {
    if (!Kel::isProgram(shim)) continue;
    setenv(agentsClient, shim.c_str(), 1);
    return;
  }
}
