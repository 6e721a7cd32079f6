// Making interfaces routed and IPv6-capable, and taking that back.
#include <fstream>

#include "platform/kel/Format.h"
#include "zerotouch/intf/KelEthPhyIntfStatus.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

void ZeroTouchSm::doSetupInterfaces() {
  SM_TRACE(5, "");
  for (auto const& [intfId, port] : ethPhyIntfStatus_) port->handleRunStart();
  handleEthPhyIntfStatus();
  handleEthLagIntfStatus();
  lookAtSkippedIntfs();
}

// IPv4 addresses come later, with the DHCP answer.
void ZeroTouchSm::configureLayer3(Wire::IntfId const& intfId) {
  if (!ip6Config()->intf().contains(intfId)) createdIp6Config_.insert(intfId);
  if (!l3ConfigDir()->intfConfig().contains(intfId)) createdL3Config_.insert(intfId);
  auto const ip6 = ip6Config()->intfIs(intfId);
  auto const l3 = l3ConfigDir()->intfConfigIs(intfId);
  ip6->l3ConfigIs(l3);
  ip6->enableIs(true);
  doEnableOrDisableAcceptRa(intfId, true);
  doEnableOrDisableAcceptRaDefRtr(intfId, true);
}

void ZeroTouchSm::withdrawLayer3() {
  for (auto const& intfId : std::exchange(createdIpConfig_, {})) ipConfig()->ipIntfConfigDel(intfId);
  for (auto const& intfId : std::exchange(createdIp6Config_, {})) ip6Config()->intfDel(intfId);
  for (auto const& intfId : std::exchange(createdL3Config_, {})) l3ConfigDir()->intfConfigDel(intfId);
}

void ZeroTouchSm::doEnableOrDisableAcceptRa(Wire::IntfId intfId, bool enable) {
  SM_TRACE(5, " intf: " << intfId.stringValue() << " enable: " << enable);
  if (auto const ip6 = ip6Config()->intf(intfId)) {
    ip6->addrSourceIs(enable ? Ip6::AddrSource::routerAdvertisement : Ip6::AddrSource::configured);
  }
}

// Also when disabling: the default router stays accepted.
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
