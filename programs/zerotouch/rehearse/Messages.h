// The messages of DHCP: those that a client sends to learn what is offered, without taking any of it, and
// what servers answer to them. Everything in an answer is hostile: it is read within its bounds, or not at
// all.
#pragma once

#include <optional>

#include "platform/model/agent.h"
#include "programs/zerotouch-dhclient-script/Environment.h"
#include "programs/zerotouch/rehearse/Question.h"

namespace Rehearsal {

// A question as it is asked: the transaction, the port's address, and for how long it has been asked in vain.
struct Asking {
  std::uint32_t transaction = 0;  // of DHCPv6 only 24 bits
  Wire::EthAddr port;
  double seconds = 0;
};

Bytes discover(Question const& question, Asking const& asking);            // RFC 2131, table 5
Bytes solicit(Question const& question, Asking const& asking);             // RFC 8415, 18.2.1
Bytes informationRequest(Question const& question, Asking const& asking);  // RFC 8415, 18.2.6

// What a server has answered.
struct Answer {
  // By code, in their order; a code that came several times has its values joined (RFC 3396).
  std::vector<std::pair<unsigned, Bytes>> options;
  // What the client would hand to its script, with a reason as after the whole exchange, and no interface.
  Hook::Environment variables;
  unsigned preference = 0;  // of DHCPv6
  std::string ignored;      // why a client passes it over; "" when it does not
};

// Nothing for what is no answer to the question.
std::optional<Answer> readOffer(BytesView message, Asking const& asking);
std::optional<Answer> readAdvertise(BytesView message, Question const& question, Asking const& asking);
std::optional<Answer> readReply(BytesView message, Question const& question, Asking const& asking);

}  // namespace Rehearsal
