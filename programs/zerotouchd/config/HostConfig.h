// What /etc/zerotouch/platform.toml says.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "platform/kel/Types.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/system/Commands.h"
#include "platform/linux/system/Inventory.h"
#include "platform/model/policy.h"
#include "programs/zerotouchd/config/ReporterSection.h"
#include "programs/zerotouchd/config/Toml.h"

// The agent's policy. It is an entity, which the host shows in the state tree and the agent reads; two are
// equal when all of their attributes are.
struct PolicyConfig {
  Kel::Ptr<ZeroTouch::Policy> entity = Kel::makePtr<ZeroTouch::Policy>();
  bool operator==(PolicyConfig const& other) const;
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
  bool keepsHistory = true;    // history: whether the flash has a file that tells the last runs
  Linux::SystemConfig system;  // reload_command, and [logging] reload_command: programs with their arguments
  // [ports]
  Linux::PortSelectionConfig
      ports;  // devices = ["et*"]; names = [{ device = "et(.*)", shown = "Ethernet\\1" }]
  // [inventory]
  Linux::InventoryConfig inventory;  // model_name, serial_num, hardware_rev, system_mac, eeprom
  // [dhcp]
  Kel::String
      dhcpClient;  // client: the DHCP client's path; by default dhclient, or else dhcpcd, where it usually is
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
  ReporterConfig reporter;  // [reporter]: of zerotouch-reporter; the host has no use for it
  // [authenticity], [pacing] and more keys of [download] and [dhcp] (PolicySections.h)
  PolicyConfig policy;

  bool operator==(HostConfig const&) const = default;
};

// Reads the file and its drop-ins. A file that is absent gives the built-in values, unless `mustExist`.
// `files`, when given, is set to what was read. Throws BadInput (Toml.h).
HostConfig readHostConfig(Kel::String const& path, bool mustExist, TomlFiles* files = nullptr);
