// The DHCP clients that can stand behind the shim.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "programs/zerotouch-dhclient/Arguments.h"

// A client as its command line asks for it. Each waits until no other uses its leases any more
// (waitForRelease). `parent` is who started the shim; what a query runs ends together with it.
class Client {
 public:
  virtual ~Client() = default;

  // Asks on the devices, and goes on until the process is ended. The leases of earlier attempts count no
  // more: all servers are asked anew. Returns the exit code, if at all.
  virtual int query(Arguments const& asked, pid_t parent) = 0;
  // Hands the leases back, and returns the exit code. A request to stop does not keep it from that.
  virtual int release(Arguments const& asked, pid_t parent) = 0;
};

// The client that ZEROTOUCH_REAL_DHCLIENT names, or else the first one that is installed; null, after a
// complaint that names what was tried, when there is none. Which one a program is, its name says: dhcpcd, or
// else the ISC client.
std::unique_ptr<Client> findClient();
