// zerotouch-dhclient, a shim in front of the DHCP client: it is started as the ISC client would be, and
// drives the client that there is (Client.h).
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string_view>

#include "programs/zerotouch-dhclient/Client.h"
#include "programs/zerotouch-dhclient/Process.h"

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::puts("zerotouch-dhclient " ZEROTOUCH_VERSION);
    return 0;
  }
  pid_t const parent = getppid();
  auto const client = findClient();
  if (!client) return cannotExecute;

  Arguments const asked(argc, argv);
  if (!asked.isRelease) dieWithParent(parent, SIGKILL);
  return asked.isRelease ? client->release(asked, parent) : client->query(asked, parent);
}
