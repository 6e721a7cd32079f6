// The DHCPv4 servers whose answers named no boot file.
#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Shim.h"

namespace {

constexpr std::string_view passedOver = "passed-over";
constexpr std::size_t mostServers = 16;  // of one device; with more, all are heard again

struct Servers {
  std::set<std::string> before;  // passed over in the last query
  std::set<std::string> now;     // answered in it
};

// Lines of a device and a server's address; before those of "before" stands the word for it.
std::map<std::string, Servers> read(std::string const& text) {
  std::map<std::string, Servers> result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string device, server, more;
    if (!(words >> device >> server)) continue;
    if (words >> more) {
      if (device == passedOver) result[server].before.insert(more);
    } else {
      result[device].now.insert(server);
    }
  }
  return result;
}

// Nothing but an address and a device may get into the configuration.
bool isPlain(std::string const& device, std::string const& server) {
  return device.find_first_of("\"\\") == std::string::npos &&
         server.find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

std::string configFor(std::string const& configFile, std::string const& leaseFile,
                      std::span<std::string const> devices) {
  std::string const memory = leaseFile + ".nameless";
  std::string const known = readContents(memory);
  if (known.empty()) return configFile;
  std::string statements, remembered;
  for (auto const& [device, servers] : read(known)) {
    for (std::string const& server : servers.now)
      releaseWithoutAddress(leaseFile, configFile, device, server);
    if (servers.now.empty() || std::ranges::find(devices, device) == devices.end()) continue;
    auto all = servers.before;
    all.insert(servers.now.begin(), servers.now.end());
    if (all.size() > mostServers) continue;
    for (std::string const& server : all) {
      if (!isPlain(device, server)) continue;
      remembered.append(passedOver).append(" ").append(device).append(" ").append(server).append("\n");
      statements.append("interface \"").append(device).append("\" { reject ").append(server).append("; }\n");
    }
  }
  std::string const result = leaseFile + ".conf";
  bool const passes = writeFile(memory, remembered) && !statements.empty() &&
                      writeFile(result, readContents(configFile) + statements);
  return passes ? result : configFile;
}
