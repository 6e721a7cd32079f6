#include "programs/zerotouch-dhclient/Client.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "programs/zerotouch-dhclient/dhclient/Dhclient.h"
#include "programs/zerotouch-dhclient/dhcpcd/Dhcpcd.h"

namespace {

bool isOurselves(struct stat const& file) {
  struct stat own {};
  return stat("/proc/self/exe", &own) == 0 && own.st_dev == file.st_dev && own.st_ino == file.st_ino;
}

// Where a client may be, in the order in which the places are tried. The host knows them too
// (programs/zerotouchd/DhcpClient.cc).
std::vector<std::string> candidates() {
  char const* const configured = std::getenv("ZEROTOUCH_REAL_DHCLIENT");
  if (configured != nullptr && *configured != '\0') return {configured};
  return {"/sbin/dhclient", "/usr/sbin/dhclient", "/usr/sbin/dhcpcd"};
}

// Whether the client can be executed and is not this program itself.
bool isClient(std::string const& path) {
  struct stat file {};
  return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && access(path.c_str(), X_OK) == 0 &&
         !isOurselves(file);
}

}  // namespace

std::unique_ptr<Client> findClient() {
  std::string tried;
  for (auto const& path : candidates()) {
    if (!isClient(path)) {
      tried.append(tried.empty() ? "" : ", ").append(path);
    } else if (std::filesystem::path(path).filename() == "dhcpcd") {
      return std::make_unique<Dhcpcd>(path);
    } else {
      return std::make_unique<Dhclient>(path);
    }
  }
  std::fprintf(stderr, "zerotouch-dhclient: no DHCP client found (tried %s)\n", tried.c_str());
  return nullptr;
}
