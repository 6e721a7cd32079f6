// zerotouch-dhclient, a shim in front of the stock DHCP client: drops the one argument that it refuses, ties
// its life to that of the host, and becomes it, so that the process id stays. Releases run as a child
// (runRelease).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "programs/zerotouch-dhclient/Shim.h"

namespace {

constexpr int cannotExecute = 127;

bool isOurselves(struct stat const& file) {
  struct stat own {};
  return stat("/proc/self/exe", &own) == 0 && own.st_dev == file.st_dev && own.st_ino == file.st_ino;
}

// Where the real client may be, in the order in which the places are tried: only the one that
// ZEROTOUCH_REAL_DHCLIENT names, or else the usual ones.
std::vector<std::string> clientCandidates() {
  char const* const configured = std::getenv("ZEROTOUCH_REAL_DHCLIENT");
  if (configured != nullptr && *configured != '\0') return {configured};
  return {"/sbin/dhclient", "/usr/sbin/dhclient"};
}

// The first candidate that can be executed and is not this program itself; empty when there is none.
std::string findClient(std::vector<std::string> const& candidates) {
  for (auto const& path : candidates) {
    struct stat file {};
    bool const isProgram =
        stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && access(path.c_str(), X_OK) == 0;
    if (isProgram && !isOurselves(file)) return path;
  }
  return {};
}

int notFound(std::vector<std::string> const& candidates) {
  std::string tried;
  for (auto const& path : candidates) tried.append(tried.empty() ? "" : ", ").append(path);
  std::fprintf(stderr, "zerotouch-dhclient: no DHCP client found (tried %s)\n", tried.c_str());
  return cannotExecute;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::puts("zerotouch-dhclient " ZEROTOUCH_VERSION);
    return 0;
  }
  pid_t const parent = getppid();
  auto const candidates = clientCandidates();
  std::string client = findClient(candidates);
  if (client.empty()) return notFound(candidates);

  std::vector<char*> arguments = {client.data()};
  bool isRelease = false;
  bool isV6 = false;
  char const* leaseFile = nullptr;
  char option[] = "-e";
  std::string leases = "ZEROTOUCH_LEASES=";
  for (int i = 1; i < argc; ++i) {
    std::string_view const argument = argv[i];
    if (argument == "--ignore-preinit") continue;
    isRelease = isRelease || argument == "-r";
    isV6 = isV6 || argument == "-6";
    arguments.push_back(argv[i]);
    if (argument == "-lf" && i + 1 < argc) leaseFile = argv[i + 1];
  }
  if (!isRelease) dieWithParent(parent, SIGKILL);
  if (leaseFile != nullptr) {
    leases += leaseFile;
    waitForRelease(leaseFile, isRelease);
    // With a DHCPv6 lease of an earlier attempt, the client only asks the server to confirm the address and
    // takes everything else from that lease, so it would not learn of a boot file that the server names by
    // now.
    (isV6 && !isRelease ? forgetLeases : makeLeaseFile)(leaseFile);
  }
  // The hook needs the lease file: it writes the lease there before anybody can stop the client.
  for (char* const argument : {option, leases.data()}) arguments.push_back(argument);
  arguments.push_back(nullptr);

  if (isRelease) return runRelease(arguments.data(), parent);
  execv(client.c_str(), arguments.data());
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", client.c_str(), std::strerror(errno));
  return cannotExecute;
}
