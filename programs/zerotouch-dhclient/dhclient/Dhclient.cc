#include "programs/zerotouch-dhclient/dhclient/Dhclient.h"

#include <algorithm>

#include "programs/zerotouch-dhclient/Process.h"
#include "programs/zerotouch-dhclient/Shim.h"
#include "programs/zerotouch-dhclient/dhclient/Release.h"

std::vector<std::string> Dhclient::commandLine(Arguments const& asked) const {
  std::vector<std::string> result = {path_};
  result.insert(result.end(), asked.all.begin(), asked.all.end());
  // A client without an identifier makes one: of an address, and not of the time as well.
  if (asked.isV6) result.insert(result.end(), {"-D", "LL"});
  // The hook needs the lease file: it writes the lease there before anybody can stop the client.
  result.insert(result.end(), {"-e", "ZEROTOUCH_LEASES=" + asked.leaseFile});
  return result;
}

// A client that finds a lease of an earlier attempt asks for that address again. A DHCPv4 client then hears
// no other server; a DHCPv6 client takes everything else from that lease, so it would not learn of a boot
// file that the server names by now.
int Dhclient::query(Arguments const& asked, pid_t) {
  Arguments passed = asked;
  if (!asked.leaseFile.empty()) {
    waitForRelease(asked.leaseFile, false);
    // Before the leases of servers that are passed over are forgotten, they are handed back.
    if (!asked.isV6 && !asked.config.empty())
      std::ranges::replace(passed.all, asked.config, configFor(asked.config, asked.leaseFile, asked.devices));
    forgetLeases(asked.leaseFile, asked.isV6 ? identifierOf(asked.config) : std::string());
  }
  become(commandLine(passed));
  return cannotExecute;
}

// What other ports have a lease of is handed back too.
int Dhclient::release(Arguments const& asked, pid_t parent) {
  Arguments passed = asked;
  if (!asked.leaseFile.empty()) {
    waitForRelease(asked.leaseFile, true);
    makeLeaseFile(asked.leaseFile);
    if (asked.isV6) {
      auto const others = otherDevices(asked.leaseFile, asked.devices);
      passed.all.insert(passed.all.end(), others.begin(), others.end());
    } else {
      releaseWithoutAddress(asked.leaseFile, asked.config);
    }
  }
  return runRelease(commandLine(passed), parent);
}
