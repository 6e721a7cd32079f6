// Starting the DHCP clients.
#include <cstring>

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Warnings.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void ZeroTouchSm::doStartDhcpQuery() {
  queryFailureReported_ = false;
  doCompleteDhclientConfigFiles();
  if (char** const cmdLine = allocDhclientAcquireCommandline()) {
    dhclientReleasesIs(false);
    dhclientChildProcessIs(execClient(cmdLine, __func__));
    for (auto const& device : dhcpDevices()) dhclientIntfIs(device);
  } else {
    SM_TRACE(5, " - Failed to alloc dhclient command line");
  }
  selectIntfs6();
  if (char** const cmdLine = allocDhclient6AcquireCommandline()) {
    dhclient6ReleasesIs(false);
    dhclient6ChildProcessIs(execClient(cmdLine, __func__));
    for (auto const& [intfId, intf] : intfStatus6()) dhclient6IntfIs(intf->kernelIntfName());
  } else {
    SM_TRACE(5, " - Failed to alloc dhclient6 command line");
  }
}

void ZeroTouchSm::reportQueryFailure(Kel::LogHandle& event) {
  event.log();
  queryFailureReported_ = true;
}

Kel::String ZeroTouchSm::whyNobodyIsAsked() const {
  if (intfStatus().empty()) return "no port takes part";
  if (dhcpDevices().empty() && intfStatus6().empty()) return "no port has a link";
  return "the DHCP clients have ended by themselves";
}

// Router advertisements tell how each network hands out its addresses.
void ZeroTouchSm::selectIntfs6() {
  intfStatus6DelAll();
  intfStatus6StatelessDelAll();
  for (auto const& [intfId, advertisement] : raPacketStatus()->raPacket()) {
    auto const intf = intfStatus(intfId);
    if (!intf || !isIpv6Enabled(intf->kernelIntfName())) continue;
    if (advertisement->managed()) {
      intfStatus6Is(intf);
    } else {
      intfStatus6StatelessIs(intf);
    }
  }
}

void ZeroTouchSm::doStartStatelessDhcpQuery() {
  if (intfStatus6Stateless().empty()) {
    SM_TRACE(5, "No interfaces need stateless dhclient");
  } else if (askNextStatelessIntf()) {
    return;
  }
  if (queryFailureReported_) {
    doStateTransition(stateStatelessDhcpQuery(), stateRetry(), TransitionCause::noBootFile);
    return;
  }
  Kel::String const reason = whyNobodyIsAsked();
  dhcpNotAsked.log(reason);
  doStateTransition(stateStatelessDhcpQuery(), stateRetry(), {TransitionCause::noPortAsked, reason});
}

bool ZeroTouchSm::askNextStatelessIntf() {
  std::uint32_t idx = 0;
  char** const cmdLine6Stateless = allocDhclient6StatelessAcquireCommandline(&idx);
  if (cmdLine6Stateless == nullptr) {
    SM_TRACE(5, " - Failed to alloc dhclient6Statelss command line");
    return false;
  }
  auto const intf = intfStatus6Stateless().begin()->second;
  cmdLine6Stateless[idx] = strdup(intf->kernelIntfName().c_str());
  KEL_ASSERT(cmdLine6Stateless[idx] != nullptr, "*( ( char** )cmdLine6Stateless + idx )");
  dhclient6StatelessChildProcessIs(execClient(cmdLine6Stateless, __func__));
  dhclient6StatelessIntfIs(intf->kernelIntfName());
  intfStatus6StatelessDel(intf->intfId());
  doStartStatelessDhclientQueryTimer();
  return true;
}

}  // namespace ZeroTouch
