// DHCP results: as they come and go, what a boot-file name and a failure lead to, and whether what came is
// enough to fetch the configuration.
#include "zerotouch/dhcp/Results.h"

#include <cstdlib>

#include "platform/kel/Child.h"
#include "platform/kel/Reactor.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

char const* text(bool value) { return value ? "true" : "false"; }

// Whether all three hold: a boot-file name, an address, and the time that the identity had to settle.
bool readyWith(ZeroTouchSm const& sm, bool bootFile, char const* addrLabel, bool addrConfigured) {
  bool const settled = sm.systemIdentitySetupTimerExpired();
  bool const ready = bootFile && addrConfigured && settled;
  SM_TRACE(5, (ready ? "" : " - NOT")
                  << " Ready to fetch config -"
                  << " bootFile=" << text(bootFile) << " " << addrLabel << "=" << text(addrConfigured)
                  << " systemIdentitySetupTimerExpired=" << text(settled));
  return ready;
}

// Runs the hook as a client would, which tells it the reason in its environment.
void runCleanup(char const* reason) {
  setenv("reason", reason, 1);
  int const status = Kel::runAndWait(dhclientScriptFilePath, -1, -1, -1, -1);
  unsetenv("reason");
  KEL_TRACE(traceZeroTouchSm, status == 0 ? 5 : 1,
            "ZeroTouchSm::doCleanupDhclientState - " << reason << " exit status=" << status);
}

}  // namespace

void ZeroTouchSm::doCleanupDhclientState() {
  if (std::getenv("ZEROTOUCH_IGNORE_DHCLIENTCLEANUP") != nullptr) return;
  runCleanup("CLEANUP");
  runCleanup("CLEANUP6");
}

void ZeroTouchSm::intfDhcpStatusIs(Kel::Name const& name) {
  Kel::follow(
      dhcpResults_->intfDhcpStatus, name, dhcpStatus()->intfDhcpStatus(name),
      [this](auto const& result) { return Kel::makePtr<DhcpResults::KelIntfDhcpStatus>(result, *this); });
}

void ZeroTouchSm::intfDhcp6StatusIs(Kel::Name const& name) {
  Kel::follow(
      dhcpResults_->intfDhcp6Status, name, dhcpStatus()->intfDhcp6Status(name),
      [this](auto const& result) { return Kel::makePtr<DhcpResults::KelIntfDhcp6Status>(result, *this); });
}

void ZeroTouchSm::intfDhcpStatusDel(Kel::Name const& name) { dhcpResults_->intfDhcpStatus.erase(name); }

void ZeroTouchSm::intfDhcp6StatusDel(Kel::Name const& name) { dhcpResults_->intfDhcp6Status.erase(name); }

void ZeroTouchSm::handleIntfDhcpStatus(Kel::Name const& name) {
  if (dhcpStatus()->intfDhcpStatus(name)) {
    intfDhcpStatusIs(name);
  } else {
    intfDhcpStatusDel(name);
  }
  resumeAfterDhcpCleanup();
}

void ZeroTouchSm::handleIntfDhcpStatus() {
  for (auto const& name : dhcpStatus()->intfDhcpStatus().keys()) handleIntfDhcpStatus(name);
}

void ZeroTouchSm::handleIntfDhcp6Status(Kel::Name const& name) {
  if (dhcpStatus()->intfDhcp6Status(name)) {
    intfDhcp6StatusIs(name);
  } else {
    intfDhcp6StatusDel(name);
  }
  resumeAfterDhcpCleanup();
}

void ZeroTouchSm::DhcpResults::KelIntfDhcpResult::handleBootFileName() {
  Kel::String const& bootFileName = notifier().bootFileName();
  Kel::String const& device = notifier().intfName();
  KEL_TRACE(traceZeroTouchSm, 5, "KelIntfDhcpStatus::" << __func__ << " bootFileName: " << bootFileName);
  if (bootFileName.empty() || !sm_.mayActIn(stateDhcpQuery() | stateStatelessDhcpQuery())) return;
  KEL_TRACE(traceZeroTouchSm, 5,
            "KelIntfDhcpStatus::" << __func__ << " - DHCP bootfile-name= " << bootFileName << " learnt for "
                                  << device);
  Kel::Ptr<IntfStatus> intf;
  sm_.findIntfStatusForKernelIntf(device, intf);
  if (!intf) return;
  if (sm_.choosenIntf()) {
    KEL_TRACE(traceZeroTouchSm, 5, "Return " << __func__ << " - BootFileName is already received ");
    return;
  }
  sm_.doStopDhclient();
  sm_.doStopDhclient6();
  sm_.doStopDhclient6Stateless();
  sm_.choosenIntfIs(intf);
  sm_.doStateTransition(stateDhcpQuery() | stateStatelessDhcpQuery(), stateSetupSystemIdentity());
}

void ZeroTouchSm::DhcpResults::KelIntfDhcpStatus::handleIntfDhcpReason() {
  KEL_TRACE(traceZeroTouchSm, 5, "KelIntfDhcpStatus::" << __func__ << " reason: " << notifier().reason());
  if (!sm_.mayMoveOnFrom(stateDhcpQuery()) || !sm_.allInterfacesFailedDhcp()) return;
  ZTP_DHCPv4_QUERY_FAIL.log();
  sm_.doStopDhclient();
}

bool ZeroTouchSm::allInterfacesFailedDhcp() const {
  for (auto const& [intfId, intf] : intfStatus()) {
    auto const result = dhcpStatus()->intfDhcpStatus(intf->kernelIntfName());
    if (!result) {
      SM_TRACE(5, " - Still waiting for DHCP v4 status for interface " << intf->intfName());
      return false;
    }
    if (result->reason() != "FAIL" && result->reason() != "TIMEOUT") return false;
    SM_TRACE(5,
             " - Dhclient's v4 \"reason\" for interface " << intf->intfName() << " is: " << result->reason());
  }
  SM_TRACE(5, " - All interfaces failed to get a dhcp response");
  return true;
}

// The same choice of family as for the identity and the download: DHCPv4 if it brought a boot file, else
// DHCPv6. A DHCPv4 record that only says that the query failed decides nothing.
bool ZeroTouchSm::readyToFetchConfig() const {
  if (!choosenIntf()) return false;
  auto const v4 = dhcpStatus()->intfDhcpStatus(choosenIntf()->kernelIntfName());
  if (v4 && !v4->bootFileName().empty()) return readyToFetchConfigV4();
  return dhcpStatus()->intfDhcp6Status(choosenIntf()->kernelIntfName()) && readyToFetchConfigV6();
}

bool ZeroTouchSm::readyToFetchConfigV4() const {
  if (!choosenIntf()) return false;
  auto const answer = dhcpStatus()->intfDhcpStatus(choosenIntf()->kernelIntfName());
  auto const ip = ipStatus()->ipIntfStatus(choosenIntf()->intfId());
  return readyWith(*this, answer && !answer->bootFileName().empty(), "ipv4AddrConfigured",
                   ip && ip->activeAddrWithMask() != Wire::IpAddrWithMask{});
}

bool ZeroTouchSm::readyToFetchConfigV6() const {
  if (!choosenIntf()) return false;
  auto const answer = dhcpStatus()->intfDhcp6Status(choosenIntf()->kernelIntfName());
  auto const ip = ip6Status()->intf(choosenIntf()->intfId());
  return readyWith(*this, answer && !answer->bootFileName().empty(), "ipv6AddrConfigured",
                   ip && !ip->addr().empty());
}

}  // namespace ZeroTouch
