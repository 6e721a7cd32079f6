// The files of the system that the adapter writes, and the commands that it runs.
#pragma once

#include "platform/linux/Command.h"

namespace Linux {

struct SystemConfig {
  Kel::String resolvConf = "/etc/resolv.conf";
  Kel::String logDropIn = "/etc/rsyslog.d/50-zerotouch.conf";
  CommandLine logReloadCommand = {"systemctl", "try-restart", "rsyslog.service"};
  CommandLine reloadCommand = {"systemctl", "reboot"};

  bool operator==(SystemConfig const&) const = default;
};

}  // namespace Linux
