#include "zerotouch/dhcp/Offers.h"

#include <algorithm>

#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

void ZeroTouchSm::Offers::startRun() {
  arrivals_.clear();
  failures_.clear();
  reasons_.clear();
  sm_.standsBackDelAll();
}

// A port waits for those which are asked as well, and whose answers have led to fewer failures.
void ZeroTouchSm::Offers::startQuery() {
  arrivals_.clear();
  betterMayCome_ = false;
  sm_.standsBackDelAll();
  sm_.ignoredAnswerDelAll();
  sm_.ignoredAnswer6DelAll();
  if (policy()->dhcp()->afterFailure() != AfterFailure::othersFirst) return;
  auto const ports = asked();
  auto const failuresOf = [this](Wire::IntfId const& intfId) {
    auto const known = failures_.find(intfId);
    return known == failures_.end() ? 0U : known->second;
  };
  if (ports.empty()) return;
  unsigned const least = failuresOf(*std::ranges::min_element(ports, {}, failuresOf));
  for (auto const& intfId : ports) {
    if (failuresOf(intfId) > least) sm_.standsBackIs(intfId, reasons_[intfId]);
  }
}

std::vector<Wire::IntfId> ZeroTouchSm::Offers::asked() const {
  auto const devices = sm_.dhcpDevices();
  std::vector<Wire::IntfId> result;
  for (auto const& [intfId, intf] : sm_.intfStatus()) {
    if (std::ranges::find(devices, intf->kernelIntfName()) != devices.end() ||
        sm_.intfStatus6().contains(intfId) || sm_.intfStatus6Stateless().contains(intfId))
      result.push_back(intfId);
  }
  return result;
}

void ZeroTouchSm::Offers::consider(Kel::Ptr<IntfStatus> const& intf, bool six) {
  auto const answer = result(*intf, six);
  Kel::String const why = answer ? ignoredServer(*answer) : "";
  if (!why.empty()) return ignore(*intf, answer, six, why);
  six ? sm_.ignoredAnswer6Del(intf->kernelIntfName()) : sm_.ignoredAnswerDel(intf->kernelIntfName());
  if (std::ranges::find(arrivals_, intf->intfId()) == arrivals_.end()) arrivals_.push_back(intf->intfId());
  unsigned const worse = rankOf(*intf);
  // Nothing is waited for any more when the query is about to end.
  bool const goesOn = sm_.transitionState() == stateInvalid();
  if (goesOn && (worse & hasFailed) != 0) return;
  if (!goesOn || worse == 0 || firstOfferWins() || sm_.currentState() != stateDhcpQuery()) return take(intf);
  if (betterMayCome_) return;
  betterMayCome_ = true;
  sm_.waitForOffers(policy()->dhcp()->offers());
}

bool ZeroTouchSm::Offers::takeBest(bool last) {
  Kel::Ptr<IntfStatus> found;
  unsigned least = 0;
  for (auto const& intf : waiting()) {
    unsigned const worse = rankOf(*intf);
    if (found && worse >= least) continue;
    found = intf;
    least = worse;
  }
  if (!found || (!last && (least & hasFailed) != 0)) return false;
  take(found);
  return true;
}

void ZeroTouchSm::Offers::noteFailure() {
  auto const intf = sm_.choosenIntf();
  if (!intf) return;
  ++failures_[intf->intfId()];
  reasons_[intf->intfId()] = sm_.transitionReason();
}

std::optional<AnswerFamily> ZeroTouchSm::Offers::best(IntfStatus const& intf) const {
  auto const offers = offersOn(intf);
  auto const* const found = bestOffer(offers);
  return found != nullptr ? std::optional(found->family) : std::nullopt;
}

// 0 for the best that there can be.
unsigned ZeroTouchSm::Offers::rankOf(IntfStatus const& intf) const {
  auto const offers = offersOn(intf);
  auto const* const found = bestOffer(offers);
  return found != nullptr ? rank(*found) : 0;
}

std::vector<Offer> ZeroTouchSm::Offers::offersOn(IntfStatus const& intf) const {
  std::vector<Offer> offers;
  bool const standsBack = sm_.standsBack().contains(intf.intfId());
  for (bool const six : {false, true}) {
    if (auto const answer = result(intf, six)) offers.push_back({familyOf(*answer, six), answer, standsBack});
  }
  return offers;
}

ZeroTouchSm::Offers::Result ZeroTouchSm::Offers::result(IntfStatus const& intf, bool six) const {
  auto const& results = sm_.dhcpStatus();
  return six ? results->intfDhcp6Status(intf.kernelIntfName())
             : results->intfDhcpStatus(intf.kernelIntfName());
}

// A DHCPv4 client is bound to the server that was quicker, so it has to be told not to listen to it. DHCPv6
// has nothing of the kind.
void ZeroTouchSm::Offers::ignore(IntfStatus const& intf, Result const& result, bool six,
                                 Kel::String const& why) {
  KEL_TRACE(traceZeroTouchSm, 1, "Offers::" << __func__ << " - " << intf.intfName() << ": " << why);
  if (six) return sm_.ignoredAnswer6Is(intf.kernelIntfName(), why);
  sm_.ignoredAnswerIs(intf.kernelIntfName(), why);
  if (sm_.currentState() == sm_.stateDhcpQuery() && Wire::IpAddr::fromString(result->server()))
    sm_.rejectServer(result->server());
}

std::vector<Kel::Ptr<IntfStatus>> ZeroTouchSm::Offers::waiting() const {
  std::vector<Kel::Ptr<IntfStatus>> result;
  for (auto const& intfId : arrivals_) {
    auto intf = sm_.phyIntfStatus(intfId);
    if (!intf) intf = sm_.lagIntfStatus(intfId);
    if (intf && best(*intf)) result.push_back(intf);
  }
  return result;
}

void ZeroTouchSm::Offers::take(Kel::Ptr<IntfStatus> const& intf) {
  arrivals_.clear();
  sm_.doStopDhclient();
  sm_.doStopDhclient6();
  sm_.doStopDhclient6Stateless();
  sm_.choosenIntfIs(intf);
  sm_.doStateTransition(sm_.stateDhcpQuery() | sm_.stateStatelessDhcpQuery(), sm_.stateSetupSystemIdentity(),
                        {TransitionCause::bootFileNamed, intf->intfName()});
}

}  // namespace ZeroTouch
