// Whether the configuration can be fetched: a boot-file name, an address in use, and time to settle.
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {
char const* text(bool value) { return value ? "true" : "false"; }
}  // namespace

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
  return readyWith(answer && answer->family() == AnswerFamily::dhcpv4, "ipv4AddrConfigured",
                   ip && ip->activeAddrWithMask() != Wire::IpAddrWithMask{});
}

bool ZeroTouchSm::readyToFetchConfigV6() const {
  if (!choosenIntf()) return false;
  auto const answer = chosenAnswer();
  auto const ip = ip6Status()->intf(choosenIntf()->intfId());
  return readyWith(answer && answer->family() != AnswerFamily::dhcpv4, "ipv6AddrConfigured",
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

bool ZeroTouchSm::readyWith(bool bootFile, char const* addrLabel, bool addrConfigured) const {
  bool const ready = bootFile && addrConfigured && systemIdentitySetupTimerExpired();
  SM_TRACE(5, (ready ? "" : " - NOT")
                  << " Ready to fetch config -"
                  << " bootFile=" << text(bootFile) << " " << addrLabel << "=" << text(addrConfigured)
                  << " systemIdentitySetupTimerExpired=" << text(systemIdentitySetupTimerExpired()));
  return ready;
}

}  // namespace ZeroTouch
