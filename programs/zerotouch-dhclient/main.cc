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
      std::string const argument = argv[i];
      if (argument == "--ignore-preinit") continue;
      isV6 = isV6 || argument == "-6";
      passed.push_back(argument);
      if (argument == "-r") releaseAt = passed.size();
      if (i + 1 == argc) break;
      if (argument == "-lf") leaseFile = argv[i + 1];
      if (argument == "-cf") configAt = passed.size();
    }
  }

  bool isRelease() const { return releaseAt != 0; }
  std::string config() const { return configAt == 0 ? "" : passed[configAt]; }

  std::vector<std::string> passed;  // to the client
  bool isV6 = false;
  char const* leaseFile = nullptr;
  std::size_t configAt = 0;   // where in `passed` the configuration's path is; 0: nowhere
  std::size_t releaseAt = 0;  // where in `passed` the devices of a release begin; 0: it is none
};

// What a client is run with, as execv(3) takes it; points into `arguments`.
std::vector<char*> argvOf(std::vector<std::string>& arguments) {
  std::vector<char*> result;
  for (std::string& argument : arguments) result.push_back(argument.data());
  result.push_back(nullptr);
  return result;
}

// A client that finds a lease of an earlier attempt asks for that address again. A DHCPv4 client then hears
// no other server; a DHCPv6 client takes everything else from that lease, so it would not learn of a boot
// file that the server names by now.
void prepareQuery(Arguments& asked) {
  std::string const config = asked.config();
  // Before the leases of servers that are passed over are forgotten, they are handed back.
  if (!asked.isV6 && asked.configAt != 0)
    asked.passed[asked.configAt] = configFor(config, asked.leaseFile, asked.passed);
  forgetLeases(asked.leaseFile, asked.isV6 ? identifierOf(config) : std::string());
}

// What other ports have a lease of is handed back too.
void prepareRelease(Arguments& asked) {
  if (!asked.isV6) return releaseWithoutAddress(asked.leaseFile, asked.config());
  std::vector<std::string> const devices(asked.passed.begin() + static_cast<std::ptrdiff_t>(asked.releaseAt),
                                         asked.passed.end());
  auto const others = otherDevices(asked.leaseFile, devices);
  asked.passed.insert(asked.passed.end(), others.begin(), others.end());
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
  if (!asked.isRelease()) dieWithParent(parent, SIGKILL);
  if (asked.leaseFile != nullptr) {
    waitForRelease(asked.leaseFile, asked.isRelease());
    if (asked.isRelease()) {
      makeLeaseFile(asked.leaseFile);
      prepareRelease(asked);
    } else {
      prepareQuery(asked);
    }
  }
  std::vector<std::string> more;
  // A client without an identifier makes one: of an address, and not of the time as well.
  if (asked.isV6) more = {"-D", "LL"};
  // The hook needs the lease file: it writes the lease there before anybody can stop the client.
  more.insert(more.end(),
              {"-e", std::string("ZEROTOUCH_LEASES=") + (asked.leaseFile != nullptr ? asked.leaseFile : "")});

  auto arguments = asked.passed;
  arguments.insert(arguments.begin(), client);
  arguments.insert(arguments.end(), more.begin(), more.end());
  auto const argvToRun = argvOf(arguments);
  if (asked.isRelease()) return runRelease(argvToRun.data(), parent);
  execv(client.c_str(), argvToRun.data());
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", client.c_str(), std::strerror(errno));
  return cannotExecute;
}
