// The speed of a port as a setting of its device, and what speeds it can run at.
#pragma once

#include "platform/linux/DeviceSettings.h"
#include "platform/linux/LinkSettings.h"
#include "platform/model/interface.h"

namespace Linux {

inline constexpr char linkModeItem[] = "link_mode";

// What is wanted, as the text of the setting: "forced 25g", "auto 25g 50g", "auto" for any speed; empty for
// the speed that was found.
Kel::String linkModeText(Interface::EthPhyIntfConfig const& config);

// The kernel's call takes a speed and no number of lanes, so that forced 50g and 50g-1 (100g and 100g-2) are
// one to it.
//
// Reads what the device is set to as "was autoneg on advertising 6 31 32", or "was autoneg off speed 10000
// duplex 1 advertising ..." (numbers of link modes), and writes that as well as what linkModeText gives.
class LinkModeSetting : public DeviceSetting {
 public:
  std::optional<Kel::String> read(int ifIndex, Kel::String const& argument) override;
  // A driver that accepts a setting and does not report it back gets a warning; that counts as done, since
  // something may have changed.
  Kel::String write(int ifIndex, Kel::String const& argument, Kel::String const& value) override;
};

// What `value` asks for, starting from what the device has. Returns "" and changes `settings`, or what is
// wrong.
Kel::String applyLinkModeText(Kel::String const& value, LinkSettings& settings);

// Whether a device that reports `now` may be said to have been set to `wanted`.
bool linkModeTaken(LinkSettings const& wanted, LinkSettings const& now);

// Sets the attributes of a port's record that tell what it can run at; a device without such settings can do
// nothing.
void readLinkModes(Kel::String const& deviceName, Interface::EthPhyIntfStatus& status);

}  // namespace Linux
