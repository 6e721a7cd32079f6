// DHCP results: as they come and go, what a boot-file name and a failure lead to, and whether what came is
// enough to fetch the configuration.
#include "zerotouch/dhcp/Results.h"

#include <cstdlib>

#include "platform/kel/Child.h"
#include "platform/kel/Reactor.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/Offers.h"
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
  KEL_TRACE(
      traceZeroTouchSm, 5,
      "KelIntfDhcpStatus::" << __func__ << " bootFileName: " << Grammar::withoutPasswords(bootFileName));
  if (bootFileName.empty() || !sm_.mayActIn(stateDhcpQuery() | stateStatelessDhcpQuery())) return;
  KEL_TRACE(traceZeroTouchSm, 5,
            "KelIntfDhcpStatus::" << __func__ << " - DHCP bootfile-name= "
                                  << Grammar::withoutPasswords(bootFileName) << " learnt for " << device);
  Kel::Ptr<IntfStatus> intf;
  sm_.findIntfStatusForKernelIntf(device, intf);
  if (!intf) return;
  if (sm_.choosenIntf()) {
    KEL_TRACE(traceZeroTouchSm, 5, "Return " << __func__ << " - BootFileName is already received ");
    return;
  }
  sm_.offers_->consider(intf, isDhcpv6());
}

bool ZeroTouchSm::takeBestOffer(bool last) { return offers_->takeBest(last); }

void ZeroTouchSm::DhcpResults::KelIntfDhcpStatus::handleIntfDhcpReason() {
  KEL_TRACE(traceZeroTouchSm, 5, "KelIntfDhcpStatus::" << __func__ << " reason: " << notifier().reason());
  if (!sm_.mayMoveOnFrom(stateDhcpQuery()) || !sm_.allInterfacesFailedDhcp()) return;
  sm_.reportQueryFailure(ZTP_DHCPv4_QUERY_FAIL);
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

// Only an address of the answer that was chosen counts.
bool ZeroTouchSm::readyToFetchConfig() const {
  auto const answer = chosenAnswer();
  if (!answer) return false;
  return answer->family() == AnswerFamily::dhcpv4 ? readyToFetchConfigV4() : readyToFetchConfigV6();
}

bool ZeroTouchSm::readyToFetchConfigV4() const {
  if (!choosenIntf()) return false;
  auto const answer = chosenAnswer();
  auto const ip = ipStatus()->ipIntfStatus(choosenIntf()->intfId());
  return readyWith(*this, answer && answer->family() == AnswerFamily::dhcpv4, "ipv4AddrConfigured",
                   ip && ip->activeAddrWithMask() != Wire::IpAddrWithMask{});
}

bool ZeroTouchSm::readyToFetchConfigV6() const {
  if (!choosenIntf()) return false;
  auto const answer = chosenAnswer();
  auto const ip = ip6Status()->intf(choosenIntf()->intfId());
  return readyWith(*this, answer && answer->family() != AnswerFamily::dhcpv4, "ipv6AddrConfigured",
                   ip && !ip->addr().empty());
}

Kel::String ZeroTouchSm::missingAddress() const {
  auto const answer = chosenAnswer();
  if (!answer) return "no answer is chosen";
  auto const& address = answer->result()->addrWithMask();
  bool const four = answer->family() == AnswerFamily::dhcpv4;
  bool const leased = four ? !address.v4().address.isZero() : !address.v6().address.isZero();
  Kel::String const what = leased ? address.stringValue() : four ? "an IPv4 address" : "an IPv6 address";
  return what + " on " + choosenIntf()->intfName();
}

}  // namespace ZeroTouch
