// The kinds of settings that a device has: those that go through rtnetlink and /proc/sys, and its speed.
#pragma once

#include "platform/linux/links/LinkModes.h"
#include "platform/linux/links/Netlink.h"
#include "platform/linux/settings/DeviceSettings.h"
#include "platform/model/interface.h"

namespace Linux {

inline constexpr char linkUpItem[] = "up";        // 0, 1
inline constexpr char mtuItem[] = "mtu";          // bytes
inline constexpr char addressItem[] = "address";  // argument: address with mask; absent, present
// The values of the kernel's sysctl of the same name (ip-sysctl).
inline constexpr char disableIpv6Item[] = "disable_ipv6";
inline constexpr char acceptRaItem[] = "accept_ra";
inline constexpr char acceptRaDefRtrItem[] = "accept_ra_defrtr";
inline constexpr char routerSolicitationsItem[] = "router_solicitations";

inline constexpr char linkModeItem[] = "link_mode";  // see LinkModeSetting

// Adds all of the above but the speed; `netlink` outlives `settings`.
void kernelSettingsAre(DeviceSettings& settings, Netlink& netlink);

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
  // `ports` gives the names for messages.
  explicit LinkModeSetting(Kel::Ptr<Ports const> ports) : ports_(std::move(ports)) {}

  std::optional<Kel::String> read(int ifIndex, Kel::String const& argument) override;
  // A driver that accepts a setting and does not report it back gets a warning; that counts as done, since
  // something may have changed.
  Kel::String write(int ifIndex, Kel::String const& argument, Kel::String const& value) override;

 private:
  Kel::Ptr<Ports const> ports_;
};

// What `value` asks for, starting from what the device has. Returns "" and changes `settings`, or what is
// wrong.
Kel::String applyLinkModeText(Kel::String const& value, LinkSettings& settings);

// Whether a device that reports `now` may be said to have been set to `wanted`.
bool linkModeTaken(LinkSettings const& wanted, LinkSettings const& now);

}  // namespace Linux
