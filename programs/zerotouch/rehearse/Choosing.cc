// Which offer a switch takes. An offer goes the way of an answer there: from the client's variables through
// the hook into the state tree, where the agent ranks what it finds.
#include <algorithm>
#include <set>

#include "platform/statebase/Tree.h"
#include "programs/zerotouch-dhclient-script/Message.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"
#include "zerotouch/dhcp/Ranking.h"

namespace Rehearsal {

namespace {

using ZeroTouch::AnswerFamily;

void report(Offered& offered, std::string const& device) {
  auto variables = offered.answer.variables;
  variables["interface"] = device;
  Hook::Complaints complaints;
  auto const message = Hook::messageFor(variables, complaints);
  offered.complaints = complaints.lines();
  auto const status = Kel::makePtr<ZeroTouch::DhcpStatus>();
  Statebase::Tree tree;
  tree.mount("/zerotouch/dhcpStatus", status, Statebase::Access::rootWrites);
  try {
    if (!message) throw Statebase::Refusal(Statebase::Refusal::Kind::badValue, device, "it makes no sense");
    Kel::ValueMap const& params = message->params;
    tree.set(Statebase::Role::root, {*params[0].second.as<std::string>(), params[1].second, true});
  } catch (Statebase::Refusal const& refusal) {
    offered.because = refusal.what();
    return;
  }
  offered.result = offered.family == AnswerFamily::dhcpv4 ? status->intfDhcpStatus(device)
                                                          : status->intfDhcp6Status(device);
  if (!offered.result->bootFileName().empty()) offered.file = ZeroTouch::bootFileOf(*offered.result);
}

// Why a switch does not ask that way on this link at all; "" when it does.
std::string notAsked(AnswerFamily family, std::vector<Router> const& routers) {
  if (family == AnswerFamily::dhcpv4) return "";
  if (routers.empty())
    return "no router advertises itself, and without that a switch does not ask for DHCPv6";
  bool const managed = std::ranges::any_of(routers, &Router::managed);
  if (ZeroTouch::askedFor(managed) == family) return "";
  return managed
             ? "a router's advertisement has the managed flag, so a switch asks for DHCPv6 with addresses "
               "instead"
             : "no router's advertisement has the managed flag, so a switch asks for stateless DHCPv6 only";
}

// In the order in which they count: by family, then by what the client of the family looks at.
void sort(std::vector<Offered>& offers) {
  std::ranges::stable_sort(offers, [](Offered const& a, Offered const& b) {
    if (a.family != b.family) return a.family < b.family;
    return a.answer.preference > b.answer.preference;
  });
}

std::string whyNot(Offered const& offered, Offered const& chosen) {
  if (offered.family != chosen.family)
    return std::string(name(chosen.family)) +
           (chosen.family == AnswerFamily::dhcpv4 || ZeroTouch::firstOfferWins()
                ? " goes first"
                : " names a URL, this one does not");
  return offered.answer.preference < chosen.answer.preference ? "another server has a higher preference"
                                                              : "another server was quicker";
}

// The answers of one query: of each family the first, which is the only one that its client reports.
std::vector<Offered*> answersOfQuery(Hearing& hearing, std::set<Offered const*> const& passedOver) {
  std::vector<Offered*> result;
  for (auto& offered : hearing.offers) {
    bool const reported = offered.counts && offered.result && !passedOver.contains(&offered);
    if (reported && std::ranges::find(result, offered.family, &Offered::family) == result.end())
      result.push_back(&offered);
  }
  return result;
}

Offered* bestOf(std::vector<Offered*> const& answers) {
  std::vector<ZeroTouch::Offer> candidates;
  std::vector<Offered*> theirs;
  for (auto* const offered : answers) {
    if (!offered->because.empty()) continue;
    candidates.push_back({offered->family, offered->result});
    theirs.push_back(offered);
  }
  auto const* const best = ZeroTouch::bestOffer(candidates);
  return best == nullptr ? nullptr : theirs[static_cast<std::size_t>(best - candidates.data())];
}

// Query after query: a DHCPv4 server whose answer cannot be used is passed over in the next.
Offered* chosenOf(Hearing& hearing) {
  std::set<Offered const*> passedOver;
  for (;;) {
    auto const answers = answersOfQuery(hearing, passedOver);
    if (auto* const best = bestOf(answers)) return best;
    auto const four = std::ranges::find(answers, AnswerFamily::dhcpv4, &Offered::family);
    if (four == answers.end()) return nullptr;
    passedOver.insert(*four);
  }
}

}  // namespace

Offered const* choose(Hearing& hearing, std::string const& device) {
  sort(hearing.offers);
  for (auto& offered : hearing.offers) {
    offered.because = offered.answer.ignored;
    if (offered.because.empty()) report(offered, device);
    if (auto const why = notAsked(offered.family, hearing.routers); !why.empty()) {
      offered.counts = false;
      offered.because = why;
    }
    if (offered.because.empty() && offered.result) offered.because = ZeroTouch::objectionTo(*offered.result);
  }
  auto* const chosen = chosenOf(hearing);
  if (chosen != nullptr) chosen->chosen = true;
  for (auto& offered : hearing.offers) {
    if (!offered.because.empty() || &offered == chosen) continue;
    offered.because = chosen != nullptr ? whyNot(offered, *chosen)
                                        : "another server goes first, whose answer cannot be used";
  }
  return chosen;
}

}  // namespace Rehearsal
