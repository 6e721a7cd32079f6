// dhcpcd (dhcpcd(8)), which asks and reports, and changes nothing: one process for all ports, in a room of
// its own (Room.h). It cannot hand a lease back once it has ended, so the shim sends that message by itself.
#pragma once

#include "programs/zerotouch-dhclient/Client.h"

class Dhcpcd : public Client {
 public:
  explicit Dhcpcd(std::string path) : path_(std::move(path)) {}

  int query(Arguments const& asked, pid_t parent) override;
  // Sends one message for each lease, and has the hook say that those of the devices are gone. Nobody waits
  // for an answer of the server: it takes as long as the hook does, and 1 s for what the kernel does not send
  // at once.
  int release(Arguments const& asked, pid_t parent) override;

 private:
  std::string path_;
};
