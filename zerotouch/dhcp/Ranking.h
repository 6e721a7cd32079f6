// Which of several DHCP answers is taken, as far as the answers themselves and [dhcp] of platform.toml decide
// it.
#pragma once

#include <span>

#include "platform/model/agent.h"

namespace ZeroTouch {

// The kind of DHCP that a switch asks for on a port whose routers advertise themselves.
AnswerFamily askedFor(bool managed);

// The kind of DHCP that a result came from: one of DHCPv6 without an address is stateless.
AnswerFamily familyOf(IntfDhcpStatus const& result, bool six);

// An answer of one port.
struct Offer {
  AnswerFamily family = AnswerFamily::dhcpv4;
  Kel::Ptr<IntfDhcpStatus const> result;
  bool hasFailed = false;  // an answer on that port has led to a failure
};

// Whether the first answer that names a boot file is taken, instead of the best that comes in time.
bool firstOfferWins();

// Why answers of that server are not listened to; "" when they are.
Kel::String ignoredServer(IntfDhcpStatus const& result);

// Why the answer is not taken, whatever else comes; "" for one that may be.
Kel::String objectionTo(IntfDhcpStatus const& result);

// What is worse about an answer, as a sum: 0 for the best that there can be.
inline constexpr unsigned overDhcpv6 = 1;
inline constexpr unsigned noUrl = 2;
inline constexpr unsigned hasFailed = 4;
unsigned rank(Offer const& offer);

// The one that is taken of those on one port, which are in the order in which they count where nothing else
// tells them apart: DHCPv4, DHCPv6, stateless DHCPv6. Null when none may be.
Offer const* bestOffer(std::span<Offer const> offers);

}  // namespace ZeroTouch
