// Which answer of a query is taken, and when: what [dhcp] of platform.toml says of offers, servers and ports
// whose answers have led to a failure. With all of it absent, the first answer that names a boot file is.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "zerotouch/dhcp/Ranking.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// The answers of one state machine, which must outlive it.
class ZeroTouchSm::Offers {
 public:
  explicit Offers(ZeroTouchSm& sm) : sm_(sm) {}

  // A run begins: nothing has failed yet.
  void startRun();
  // A query begins: decides which ports stand back in it.
  void startQuery();
  // An answer has named a boot file on the port, and none is chosen yet. Takes it, or lets it wait for a
  // better one.
  void consider(Kel::Ptr<IntfStatus> const& intf, bool six);
  // The query is over, or, unless `last`, goes on with other ports, for which answers of ports that stand
  // back wait on. Takes the best answer that waits; false when there is none.
  bool takeBest(bool last);
  // The attempt has failed. The port whose answer was taken, if any, has failed once more.
  void noteFailure();

  // The answer to take on the port; nothing when none names a boot file and counts.
  std::optional<AnswerFamily> best(IntfStatus const& intf) const;

 private:
  using Result = Kel::Ptr<IntfDhcpStatus const>;

  std::vector<Wire::IntfId> asked() const;
  Result result(IntfStatus const& intf, bool six) const;
  std::vector<Offer> offersOn(IntfStatus const& intf) const;
  unsigned rankOf(IntfStatus const& intf) const;
  void ignore(IntfStatus const& intf, Result const& result, bool six, Kel::String const& why);
  std::vector<Kel::Ptr<IntfStatus>> waiting() const;
  void take(Kel::Ptr<IntfStatus> const& intf);

  ZeroTouchSm& sm_;
  std::vector<Wire::IntfId> arrivals_;  // ports with an answer, in the order in which they came
  std::map<Wire::IntfId, unsigned> failures_;
  std::map<Wire::IntfId, Kel::String> reasons_;  // of the last failure of each
  bool betterMayCome_ = false;                   // the query's timer is that of the offers
};

}  // namespace ZeroTouch
