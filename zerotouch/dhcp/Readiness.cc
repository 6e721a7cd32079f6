// Whether the configuration can be fetched: a boot-file name, an address in use, and time to settle.
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {
char const* text(bool value) { return value ? "true" : "false"; }
}  // namespace

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
  return readyWith(answer && !answer->bootFileName().empty(), "ipv4AddrConfigured",
                   ip && ip->activeAddrWithMask() != Wire::IpAddrWithMask{});
}

bool ZeroTouchSm::readyToFetchConfigV6() const {
  if (!choosenIntf()) return false;
  auto const answer = dhcpStatus()->intfDhcp6Status(choosenIntf()->kernelIntfName());
  auto const ip = ip6Status()->intf(choosenIntf()->intfId());
  return readyWith(answer && !answer->bootFileName().empty(), "ipv6AddrConfigured",
                   ip && !ip->addr().empty());
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
