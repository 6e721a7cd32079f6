// Why a query has brought no boot file.
#include <algorithm>

#include "platform/kel/Format.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t namesShown = 3;

// "Ethernet1, Ethernet2, Ethernet3 and 45 more"
Kel::String listed(std::vector<Kel::String> const& names) {
  Kel::String result;
  for (std::size_t i = 0; i < std::min(names.size(), namesShown); ++i)
    result.append(i == 0 ? "" : ", ").append(names[i]);
  return names.size() <= namesShown ? result
                                    : Kel::format("%s and %d more", result, names.size() - namesShown);
}

// Whether the client has run its script because a server has answered, and that has named no boot file.
bool lacksBootFile(IntfDhcpStatus const& result) {
  Kel::String const& reason = result.reason();
  bool const answered = reason.starts_with("BOUND") || reason.starts_with("RENEW") ||
                        reason.starts_with("REBIND") || reason.starts_with("REBOOT");
  return answered && result.bootFileName().empty();
}

bool isBridged(Interface::EthIntfStatus const& port) {
  return port.forwardingModel() == Interface::IntfForwardingModel::bridged;
}

}  // namespace

Trouble ZeroTouchSm::whyNobodyIsAsked() const {
  if (episd()->intfStatus().empty() && elisd()->intfStatus().empty())
    return {Problem::noPortMatches, "there are no ports"};
  if (intfStatus().empty()) {
    std::size_t bridged = 0;
    for (auto const& [intfId, record] : phyIntfStatus())
      bridged += isBridged(*record->ethIntfStatus()) ? 1 : 0;
    bool const all = bridged > 0 && bridged == phyIntfStatus().size();
    return {all ? Problem::portsBridged : Problem::noPortTakesPart,
            all ? "every port is in a bridge, bond or VRF" : "no port takes part"};
  }
  if (dhcpDevices().empty() && intfStatus6().empty()) return {Problem::noLink, "no port has a link"};
  for (auto const& [client, family] :
       {std::pair{&dhcpClients_->dhclient, "DHCPv4"}, std::pair{&dhcpClients_->dhclient6, "DHCPv6"}}) {
    if (client->end().empty()) continue;
    return {client->isMissing() ? Problem::clientMissing : Problem::clientCrashed,
            Kel::format("the %s client %s", family, client->end())};
  }
  return {Problem::clientCrashed, "the DHCP clients have ended by themselves"};
}

// A DHCPv6 client ends at once, and means nothing by it, when the port's link-local address is not settled
// yet.
Trouble ZeroTouchSm::whyNoBootFile() const {
  std::vector<Kel::String> answered, asked;
  for (auto const& [intfId, intf] : intfStatus()) {
    auto const v4 = dhcpStatus()->intfDhcpStatus(intf->kernelIntfName());
    auto const v6 = dhcpStatus()->intfDhcp6Status(intf->kernelIntfName());
    if ((v4 && lacksBootFile(*v4)) || (v6 && lacksBootFile(*v6))) answered.push_back(intf->intfName());
    auto const port = aisd()->intfStatus(intfId);
    if (port && port->operStatus() != Interface::OperStatus::down) asked.push_back(intf->intfName());
  }
  if (!answered.empty())
    return {Problem::answerWithoutBootFile, "the answer on " + listed(answered) + " has none"};
  for (auto const* const ignored : {&ignoredAnswer(), &ignoredAnswer6()}) {
    if (!ignored->empty()) return {Problem::noAnswer, (*ignored->begin()).second};
  }
  if (!dhcpClients_->dhclient.end().empty()) return whyNobodyIsAsked();
  return {Problem::noAnswer, asked.empty() ? "nobody answers" : "nobody answers on " + listed(asked)};
}

}  // namespace ZeroTouch
