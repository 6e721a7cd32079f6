// zerotouch-dhclient, a shim in front of the stock DHCP client: drops the one argument that it refuses, ties
// its life to that of the host, and becomes it, so that the process id stays. Releases run as a child
// (Release.h).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "programs/zerotouch-dhclient/Parent.h"
#include "programs/zerotouch-dhclient/RealClient.h"
#include "programs/zerotouch-dhclient/Release.h"

namespace {

constexpr int cannotExecute = 127;

// The client does not start without the file of its leases. What is there already is left alone; a symbolic
// link, which could lead anywhere, is not followed.
void makeLeaseFile(char const* path) {
  int const descriptor =
      open(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
  if (descriptor >= 0) {
    close(descriptor);
  } else {
    std::fprintf(stderr, "zerotouch-dhclient: lease file %s: %s\n", path, std::strerror(errno));
  }
}

int notFound(std::vector<std::string> const& candidates) {
  std::string tried;
  for (auto const& path : candidates) tried.append(tried.empty() ? "" : ", ").append(path);
  std::fprintf(stderr, "zerotouch-dhclient: no DHCP client found (tried %s)\n", tried.c_str());
  return cannotExecute;
}

}  // namespace

int main(int argc, char** argv) {
  pid_t const parent = getppid();
  auto const candidates = clientCandidates();
  std::string client = findClient(candidates);
  if (client.empty()) return notFound(candidates);

  std::vector<char*> arguments = {client.data()};
  bool isRelease = false;
  char option[] = "-e";
  std::string leases = "ZEROTOUCH_LEASES=";
  for (int i = 1; i < argc; ++i) {
    std::string_view const argument = argv[i];
    if (argument == "--ignore-preinit") continue;
    isRelease = isRelease || argument == "-r";
    arguments.push_back(argv[i]);
    if (argument != "-lf" || i + 1 == argc) continue;
    makeLeaseFile(argv[i + 1]);
    leases += argv[i + 1];
  }
  // For the hook, which writes the lease down before anybody can stop the client.
  for (char* const argument : {option, leases.data()}) arguments.push_back(argument);
  arguments.push_back(nullptr);

  if (isRelease) return runRelease(arguments.data(), parent);
  dieWithParent(parent, SIGKILL);
  execv(client.c_str(), arguments.data());
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", client.c_str(), std::strerror(errno));
  return cannotExecute;
}
