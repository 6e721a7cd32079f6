// Which network devices the adapter may touch, and the names that people see for them.
#pragma once

#include <regex>
#include <vector>

#include "platform/model/values/Wire.h"

namespace Linux {

// What the configuration says; the defaults take every device that is backed by hardware under its own name.
struct PortSelectionConfig {
  struct NameRule {
    Kel::String device;  // regular expression (ECMAScript) for a whole device name, as "eth(.*)"
    Kel::String shown;   // what it is called, with \1 to \9 for the groups, as "Ethernet\1"

    bool operator==(NameRule const&) const = default;
  };

  std::vector<Kel::String>
      devices;                  // glob(7) patterns; empty: the devices that have /sys/class/net/NAME/device
  std::vector<NameRule> names;  // the first that fits counts; none fits: the device's own name
  Kel::String sysClassNet = "/sys/class/net";

  bool operator==(PortSelectionConfig const&) const = default;
};

class PortSelection {
 public:
  // Throws std::invalid_argument, with a text that names the rule, when a regular expression cannot be
  // understood.
  explicit PortSelection(PortSelectionConfig config);

  // By name alone; what kind of device it is, the link watcher judges.
  bool selects(Kel::String const& deviceName) const;
  // The id, which is the name shown. Empty when the rules make a name that is empty or longer than 64 bytes.
  Wire::IntfId intfId(Kel::String const& deviceName) const;

 private:
  PortSelectionConfig config_;
  std::vector<std::regex> rules_;  // one per config_.names
};

}  // namespace Linux
