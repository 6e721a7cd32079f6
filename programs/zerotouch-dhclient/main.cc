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

// What the shim is started with.
struct Arguments {
  Arguments(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      std::string_view const argument = argv[i];
      if (argument == "--ignore-preinit") continue;
      isRelease = isRelease || argument == "-r";
      isV6 = isV6 || argument == "-6";
      passed.push_back(argv[i]);
      if (i + 1 == argc) break;
      if (argument == "-lf") leaseFile = argv[i + 1];
      if (argument == "-cf") configAt = passed.size();
    }
  }

  char const* config() const { return configAt == 0 ? "" : passed[configAt]; }

  std::vector<char*> passed;  // to the client
  bool isRelease = false;
  bool isV6 = false;
  char const* leaseFile = nullptr;
  std::size_t configAt = 0;  // where in `passed` the configuration's path is; 0: nowhere
};

// A client that finds a lease of an earlier attempt asks for that address again. A DHCPv4 client then hears no
// other server; a DHCPv6 client takes everything else from that lease, so it would not learn of a boot file
// that the server names by now. Returns the configuration to use.
std::string prepareQuery(Arguments const& asked) {
  std::string const config = asked.config();
  forgetLeases(asked.leaseFile, asked.isV6 ? identifierOf(config.c_str()) : std::string());
  return asked.isV6 ? config : configFor(config, asked.leaseFile, asked.passed);
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

  Arguments asked(argc, argv);
  if (!asked.isRelease) dieWithParent(parent, SIGKILL);
  std::string config;
  if (asked.leaseFile != nullptr) {
    waitForRelease(asked.leaseFile, asked.isRelease);
    if (asked.isRelease) {
      makeLeaseFile(asked.leaseFile);
    } else {
      config = prepareQuery(asked);
      if (asked.configAt != 0) asked.passed[asked.configAt] = config.data();
    }
  }
  std::vector<char*> arguments = asked.passed;
  arguments.insert(arguments.begin(), client.data());
  // A client without an identifier makes one: of an address, and not of the time as well.
  char identifierOption[] = "-D", identifierKind[] = "LL";
  if (asked.isV6) arguments.insert(arguments.end(), {identifierOption, identifierKind});
  // The hook needs the lease file: it writes the lease there before anybody can stop the client.
  char variableOption[] = "-e";
  std::string leases = "ZEROTOUCH_LEASES=";
  if (asked.leaseFile != nullptr) leases += asked.leaseFile;
  arguments.insert(arguments.end(), {variableOption, leases.data(), nullptr});

  if (asked.isRelease) return runRelease(arguments.data(), parent);
  execv(client.c_str(), arguments.data());
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", client.c_str(), std::strerror(errno));
  return cannotExecute;
}
