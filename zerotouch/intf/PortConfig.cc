// What a run configures on interfaces: layer 3, router advertisements, speeds.
#include <fstream>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

using Interface::EthLinkMode;

Kel::Ptr<L3::Intf::Config> ZeroTouchSm::PortConfig::l3IntfConfigIs(Wire::IntfId const& intfId) {
  if (!sm_.l3ConfigDir()->intfConfig().contains(intfId)) l3Made_.insert(intfId);
  return sm_.l3ConfigDir()->intfConfigIs(intfId);
}

Kel::Ptr<Ip::IpIntfConfig> ZeroTouchSm::PortConfig::ipIntfConfigIs(Wire::IntfId const& intfId) {
  if (!sm_.ipConfig()->ipIntfConfig().contains(intfId)) ipMade_.insert(intfId);
  auto const ip = sm_.ipConfig()->ipIntfConfigIs(intfId);
  ip->l3ConfigIs(l3IntfConfigIs(intfId));
  return ip;
}

Kel::Ptr<Ip6::IntfConfig> ZeroTouchSm::PortConfig::ip6IntfConfigIs(Wire::IntfId const& intfId) {
  if (!sm_.ip6Config()->intf().contains(intfId)) ip6Made_.insert(intfId);
  auto const ip6 = sm_.ip6Config()->intfIs(intfId);
  ip6->l3ConfigIs(l3IntfConfigIs(intfId));
  return ip6;
}

void ZeroTouchSm::PortConfig::layer3Is(Wire::IntfId const& intfId) {
  ip6IntfConfigIs(intfId)->enableIs(true);
  sm_.doEnableOrDisableAcceptRa(intfId, true);
  sm_.doEnableOrDisableAcceptRaDefRtr(intfId, true);
}

bool ZeroTouchSm::PortConfig::layer3Del(Wire::IntfId const& intfId) {
  if (intfId == sm_.identityIntf_) return false;
  if (ipMade_.erase(intfId) != 0) sm_.ipConfig()->ipIntfConfigDel(intfId);
  if (ip6Made_.erase(intfId) != 0) sm_.ip6Config()->intfDel(intfId);
  if (l3Made_.erase(intfId) != 0) sm_.l3ConfigDir()->intfConfigDel(intfId);
  return true;
}

void ZeroTouchSm::PortConfig::layer3DelAll() {
  for (auto const& intfId : std::exchange(ipMade_, {})) sm_.ipConfig()->ipIntfConfigDel(intfId);
  for (auto const& intfId : std::exchange(ip6Made_, {})) sm_.ip6Config()->intfDel(intfId);
  for (auto const& intfId : std::exchange(l3Made_, {})) sm_.l3ConfigDir()->intfConfigDel(intfId);
}

void ZeroTouchSm::PortConfig::linkModeIs(Wire::IntfId const& intfId, EthLinkMode mode, bool autoneg) {
  bool const made = !sm_.epicd()->intfConfig().contains(intfId);
  auto const config = sm_.epicd()->intfConfigIs(intfId);
  speedSet_.try_emplace(intfId, made);
  if (!autoneg) {
    config->linkModeLocalIs(mode);
  } else if (mode == EthLinkMode::linkMode40G) {
    config->linkModeLocalIs(EthLinkMode::linkModeAutoneg40G);
  } else {
    config->linkModeLocalIs(EthLinkMode::linkModeAutoneg);
    sm_.updateAdvertisedModes(config, mode);
  }
}

void ZeroTouchSm::PortConfig::linkModeDelAll() {
  for (auto const& [intfId, made] : std::exchange(speedSet_, {})) {
    if (auto const config = sm_.epicd()->intfConfig(intfId)) {
      config->linkModeLocalIs(EthLinkMode::linkModeDefault);
      config->advertisedModesConfiguredLocalIs(false);
      if (made) sm_.epicd()->intfConfigDel(intfId);
    }
  }
}

void ZeroTouchSm::updateAdvertisedModes(Kel::Ptr<Interface::EthPhyIntfConfig> const& config,
                                        EthLinkMode mode) {
  Interface::EthLinkModeSet advertised;
  switch (mode) {
    case EthLinkMode::linkMode25G:
      advertised.mode25G = true;
      break;
    case EthLinkMode::linkMode50G:
      advertised.mode50G = true;
      break;
    case EthLinkMode::linkMode100G:
      advertised.mode100G = true;
      break;
    default:
      KEL_ASSERT(0 && "autoneg for linkMode not supported", "0 && \"autoneg for linkMode not supported\"");
  }
  config->advertisedModesLocalIs(advertised);
  config->advertisedModesConfiguredLocalIs(true);
  config->advertisedModesConfiguredForSfp1000BaseTIs(false);
}

void ZeroTouchSm::doEnableOrDisableAcceptRa(Wire::IntfId intfId, bool enable) {
  SM_TRACE(5, " intf: " << intfId.stringValue() << " enable: " << enable);
  if (auto const ip6 = ip6Config()->intf(intfId)) {
    ip6->addrSourceIs(enable ? Ip6::AddrSource::routerAdvertisement : Ip6::AddrSource::configured);
  }
}

// Disabling leaves the default router accepted too, unlike the addresses above.
void ZeroTouchSm::doEnableOrDisableAcceptRaDefRtr(Wire::IntfId intfId, bool enable) {
  SM_TRACE(5, " intf: " << intfId.stringValue() << " enable: " << enable);
  if (auto const ip6 = ip6Config()->intf(intfId)) ip6->acceptRaDefRtrIs(true);
}

bool isIpv6Enabled(Kel::String const& kernelIntfName) {
  Kel::String const path = Kel::format("/proc/sys/net/ipv6/conf/%s/disable_ipv6", kernelIntfName);
  std::ifstream file(path);
  if (!file) KEL_TRACE(traceZeroTouchSm, 1, "isIpv6Enabled Unable to open " << path);
  unsigned disabled = 1;
  return file >> disabled && disabled == 0;
}

}  // namespace ZeroTouch
