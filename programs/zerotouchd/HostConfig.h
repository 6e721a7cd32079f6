// What /etc/zerotouch/platform.toml says.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <stdexcept>

#include "platform/kel/Types.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/system/Commands.h"
#include "platform/linux/system/Inventory.h"

// What an operator gave us is wrong: the host says so and ends with exit code 2, before anything is touched.
class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct HostConfig {
  // [system]
  Kel::String systemName;          // name: handed to children as SYSNAME; "": the host name
  Kel::String cellType = "fixed";  // cell_type: "fixed", or anything else when a standby supervisor may exist
  // [host]
  Kel::String runDirectory = "/run/zerotouch";  // run_directory: socket and marks that vanish at a reboot
  Kel::String library;                          // library: the agent; by default the installed one
  bool linuxAdapter =
      true;  // adapter: "linux", or "none" when nothing is to follow and change this system's network
  Linux::SystemConfig system;  // reload_command, and [logging] reload_command: programs with their arguments
  // [ports]
  Linux::PortSelectionConfig
      ports;  // devices = ["et*"]; names = [{ device = "et(.*)", shown = "Ethernet\\1" }]
  // [inventory]
  Linux::InventoryConfig inventory;  // model_name, serial_num, hardware_rev, system_mac, eeprom
  // [dhcp]
  Kel::String dhcpClient;  // client: the DHCP client's path; by default dhclient where it usually is
  // [download]
  bool proxyFromEnvironment = false;  // proxy: "none", or "environment" for http_proxy and its like
  // [install]
  std::uint32_t installMode = 0600;  // mode: of a startup configuration that replaces none, in octal digits
  // [socket]
  Kel::String socketPath;            // path: by default statebase.sock in the run directory
  std::optional<gid_t> socketGroup;  // group: whose members may connect, besides root
  // [provisioning]
  std::uint32_t scriptExecTimeout = 3600;       // script_exec_timeout: seconds a configuration script may run
  Kel::Seconds maxRunTime = Kel::never;         // max_run_time: seconds, or "unlimited"
  std::uint32_t maxDownloadSize = 256U << 20U;  // max_download_size: bytes that a boot file may have

  bool operator==(HostConfig const&) const = default;
};

// Reads the file. A file that is absent gives the built-in values, unless `mustExist`. Throws BadInput: as
// "file: reason" for what is no regular file or is too large, and as "file:line: reason" for what does not
// parse, for unknown keys and for values of a wrong kind. The message is printable ASCII, whatever the file
// has.
HostConfig readHostConfig(Kel::String const& path, bool mustExist);

// Whether the path names a regular file that this process may execute.
bool isProgram(Kel::String const& path);
