#include "platform/linux/packets/RouterAdvertisements.h"

#include <algorithm>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

constexpr int requiredHopLimit = 255;  // a message that no router can have forwarded
constexpr std::size_t headerLength = 16;
constexpr std::uint8_t typeRouterAdvertisement = 134;
constexpr std::size_t optionUnit = 8;
constexpr std::uint8_t managedFlag = 0x80;
constexpr std::uint8_t otherFlag = 0x40;

// The second byte of each option is its length in units of 8 bytes.
Kel::String checkOptions(std::span<std::uint8_t const> options) {
  while (!options.empty()) {
    if (options.size() < 2) return "option cut off";
    std::size_t const length = options[1] * optionUnit;
    if (length == 0) return "option of length 0";
    if (length > options.size()) return "option longer than the message";
    options = options.subspan(length);
  }
  return {};
}

}  // namespace

Kel::String parseRouterAdvertisement(std::span<std::uint8_t const> message, int hopLimit,
                                     Wire::Ip6Addr const& source, RouterAdvertisement& out) {
  if (hopLimit != requiredHopLimit) return Kel::format("hop limit %d", hopLimit);
  if (!Grammar::isLinkLocal(source)) return "source " + source.stringValue() + " is not link-local";
  if (message.size() < headerLength) return Kel::format("only %u bytes", message.size());
  if (message[0] != typeRouterAdvertisement) return Kel::format("type %u", message[0]);
  if (message[1] != 0) return Kel::format("code %u", message[1]);
  if (auto reason = checkOptions(message.subspan(headerLength)); !reason.empty()) return reason;
  out.managed = (message[5] & managedFlag) != 0;
  out.other = (message[5] & otherFlag) != 0;
  out.lifetime = static_cast<Kel::Seconds>(message[6] << 8 | message[7]);
  return {};
}

namespace {

constexpr int maxSolicitations = 3;
constexpr Kel::Seconds solicitationInterval = 4;
constexpr Kel::Seconds mostBetweenAdvertisements = 1800;  // RFC 4861, section 6.2.1
constexpr Kel::Seconds farewell = 60;    // a router takes its leave up to three times, 16 s apart at most
constexpr std::size_t mostRouters = 16;  // of one link; more are not listened to

}  // namespace

// One port whose link is up. Its clock is set for the next solicitation or the end of a router, whichever
// comes first.
class RouterAdvertisements::Listener : public Kel::Clock::NotifieeConst {
 public:
  Listener(RouterAdvertisements& owner, Wire::IntfId intfId)
      : NotifieeConst(Kel::activityManager()->config()->clock()), owner_(owner), intfId_(std::move(intfId)) {}

  void portIs(Port const& port) {
    bool const usableBefore = usable();
    port_ = port;
    if (usable() && !usableBefore && !inForce()) {
      solicitationsLeft_ = maxSolicitations;
      nextSolicitation_ = Kel::now();
    } else if (!usable()) {
      nextSolicitation_ = Kel::never;
    }
    publish();
    arm();
  }

  void advertisementIs(Wire::Ip6Addr const& router, RouterAdvertisement const& advertisement) {
    auto const known = routers_.find(router);
    bool const wasDefault = known != routers_.end() && known->second.isDefault;
    if (known == routers_.end() && routers_.size() == mostRouters) return;
    if (advertisement.lifetime == 0 && wasDefault) {
      leave(known->second);
    } else {
      bool const isDefault = advertisement.lifetime > 0;
      Kel::Seconds const lasts = isDefault ? advertisement.lifetime : mostBetweenAdvertisements;
      routers_[router] = {advertisement, Kel::now() + lasts, isDefault};
      nextSolicitation_ = Kel::never;
    }
    publish();
    arm();
  }

  void linkDown() { withdraw(); }

  void onTime() override {
    Kel::Seconds const now = Kel::now();
    if (std::erase_if(routers_, [now](auto const& router) { return router.second.end <= now; }) > 0)
      publish();
    if (nextSolicitation_ <= now) {
      owner_.discovery_.solicit(port_.ifIndex, port_.linkLocal, port_.macAddr);
      nextSolicitation_ = --solicitationsLeft_ > 0 ? now + solicitationInterval : Kel::never;
    }
    arm();
  }

 private:
  struct Router {
    RouterAdvertisement says;  // last
    Kel::Seconds end;
    bool isDefault;
    bool leaves = false;
  };

  bool usable() const { return !port_.linkLocal.isZero(); }
  bool inForce() const {
    return std::ranges::any_of(routers_, [](auto const& router) { return !router.second.leaves; });
  }
  bool anySays(bool RouterAdvertisement::*flag) const {
    return std::ranges::any_of(routers_, [flag](auto const& router) { return router.second.says.*flag; });
  }
  // It is remembered until it has said so for the last time: it must not look like one that never was a
  // default router.
  static void leave(Router& router) {
    if (router.leaves) return;
    router.leaves = true;
    router.says = {};
    router.end = Kel::now() + farewell;
  }
  void arm() {
    Kel::Seconds next = nextSolicitation_;
    for (auto const& [address, router] : routers_) next = std::min(next, router.end);
    timeMinIs(next);
  }

  void publish() {
    if (!usable() || !inForce()) {
      withdraw();
      return;
    }
    auto const before = owner_.status_->raPacket(intfId_);
    auto const record = before ? before : Kel::makePtr<RouterAdvt::RaPacket>(intfId_);
    record->managedIs(anySays(&RouterAdvertisement::managed));
    record->otherIs(anySays(&RouterAdvertisement::other));
    // The flags of a new record are set before it is announced.
    owner_.status_->raPacketIs(record);
  }
  void withdraw() { owner_.status_->raPacketDel(intfId_); }

  RouterAdvertisements& owner_;
  Wire::IntfId const intfId_;
  Port port_;
  std::map<Wire::Ip6Addr, Router> routers_;
  Kel::Seconds nextSolicitation_ = Kel::never;
  int solicitationsLeft_ = 0;
};

RouterAdvertisements::RouterAdvertisements(Kel::Ptr<Ports const> ports,
                                           Kel::Ptr<RouterAdvt::RaPacketStatus> status)
    : ports_(std::move(ports)),
      status_(std::move(status)),
      discovery_([this](int ifIndex, Wire::Ip6Addr const& router, RouterAdvertisement const& advertisement) {
        handleAdvertisement(ifIndex, router, advertisement);
      }) {
  portsReactor_ =
      Kel::Reactor(ports_, &Ports::NotifieeConst::onPort, this, &RouterAdvertisements::handlePort);
  for (Wire::IntfId const& intfId : ports_->port().keys()) handlePort(intfId);
}

RouterAdvertisements::~RouterAdvertisements() = default;

void RouterAdvertisements::handlePort(Wire::IntfId const& intfId) {
  Port const port = ports_->port(intfId);
  if (!port.linkUp) {
    auto const gone = listeners_.extract(intfId);
    if (!gone.empty()) gone.mapped()->linkDown();
    return;
  }
  Kel::Ptr<Listener>& found = listeners_[intfId];
  if (!found) found = Kel::makePtr<Listener>(*this, intfId);
  // A handler of the record may end the port.
  Kel::Ptr<Listener> const listener = found;
  listener->portIs(port);
}

void RouterAdvertisements::handleAdvertisement(int ifIndex, Wire::Ip6Addr const& router,
                                               RouterAdvertisement const& advertisement) {
  auto const found = listeners_.find(ports_->intfId(ifIndex));
  if (found == listeners_.end()) return;
  Kel::Ptr<Listener> const listener = found->second;
  listener->advertisementIs(router, advertisement);
}

}  // namespace Linux
