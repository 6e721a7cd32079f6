#include "zerotouch/dhcp/Ranking.h"

#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/BootFile.h"

namespace ZeroTouch {

AnswerFamily askedFor(bool managed) { return managed ? AnswerFamily::dhcpv6 : AnswerFamily::statelessDhcpv6; }

AnswerFamily familyOf(IntfDhcpStatus const& result, bool six) {
  if (!six) return AnswerFamily::dhcpv4;
  bool const hasAddress = !result.addrWithMask().v6().address.isZero();
  return hasAddress ? AnswerFamily::dhcpv6 : AnswerFamily::statelessDhcpv6;
}

bool firstOfferWins() { return policy()->dhcp()->offers() <= 0; }

Kel::String ignoredServer(IntfDhcpStatus const& result) {
  auto const& servers = policy()->dhcp()->server();
  if (servers.empty() || servers.contains(result.server())) return "";
  Kel::String const server = result.server().empty() ? "a server without a name" : result.server();
  return server + " is none of the servers that count";
}

Kel::String objectionTo(IntfDhcpStatus const& result) {
  return result.bootFileName().empty() ? "it names no boot file" : ignoredServer(result);
}

unsigned rank(Offer const& offer) {
  unsigned const worse = offer.hasFailed ? hasFailed : 0;
  if (firstOfferWins()) return worse;
  bool const isUrl = !bootFile(offer.result->serverName(), offer.result->bootFileName()).url.empty();
  return worse + (isUrl ? 0 : noUrl) + (offer.family == AnswerFamily::dhcpv4 ? 0 : overDhcpv6);
}

Offer const* bestOffer(std::span<Offer const> offers) {
  Offer const* found = nullptr;
  for (auto const& offer : offers) {
    if (!objectionTo(*offer.result).empty()) continue;
    if (found == nullptr || (!firstOfferWins() && rank(offer) < rank(*found))) found = &offer;
  }
  return found;
}

}  // namespace ZeroTouch
