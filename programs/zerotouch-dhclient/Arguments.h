// What the shim is started with: a command line of the ISC DHCP client (dhclient(8)).
#pragma once

#include <string>
#include <vector>

struct Arguments {
  Arguments(int argc, char** argv);

  std::vector<std::string> all;  // but for the program and what the client refuses
  bool isV6 = false;
  bool isStateless = false;
  bool isRelease = false;
  // Empty when they are not given.
  std::string script;
  std::string config;
  std::string leaseFile;
  std::string pidFile;
  std::vector<std::string> environment;  // for the script, NAME=value
  std::vector<std::string> devices;
};
