// The ISC DHCP client (dhclient(8)): takes the command line as it is.
#pragma once

#include "programs/zerotouch-dhclient/Client.h"

class Dhclient : public Client {
 public:
  explicit Dhclient(std::string path) : path_(std::move(path)) {}

  // Becomes the client, so that the process id stays.
  int query(Arguments const& asked, pid_t parent) override;
  // Runs it as a child, which has 3 s to finish once it is told to stop.
  int release(Arguments const& asked, pid_t parent) override;

 private:
  std::vector<std::string> commandLine(Arguments const& asked) const;

  std::string path_;
};
