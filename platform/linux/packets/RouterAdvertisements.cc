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

}  // namespace

// One port whose link is up. Its clock is set for the next solicitation or the end of the router's lifetime,
// whichever comes first.
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
    if (advertisement.lifetime > 0) {
      router_ = router;
      advertisement_ = advertisement;
      expiry_ = Kel::now() + advertisement.lifetime;
      nextSolicitation_ = Kel::never;
    } else if (router == router_) {
      expiry_ = Kel::never;
    }
    publish();
    arm();
  }

  void linkDown() { withdraw(); }

  void onTime() override {
    Kel::Seconds const now = Kel::now();
    if (expiry_ <= now) {
      expiry_ = Kel::never;
      publish();
    }
    if (nextSolicitation_ <= now) {
      owner_.discovery_.solicit(port_.ifIndex, port_.linkLocal, port_.macAddr);
      nextSolicitation_ = --solicitationsLeft_ > 0 ? now + solicitationInterval : Kel::never;
    }
    arm();
  }

 private:
  bool usable() const { return !port_.linkLocal.isZero(); }
  bool inForce() const { return expiry_ != Kel::never; }
  void arm() { timeMinIs(std::min(expiry_, nextSolicitation_)); }

  void publish() {
    if (!usable() || !inForce()) {
      withdraw();
      return;
    }
    auto const before = owner_.status_->raPacket(intfId_);
    auto const record = before ? before : Kel::makePtr<RouterAdvt::RaPacket>(intfId_);
    record->managedIs(advertisement_.managed);
    record->otherIs(advertisement_.other);
    // The flags of a new record are set before it is announced.
    owner_.status_->raPacketIs(record);
  }
  void withdraw() { owner_.status_->raPacketDel(intfId_); }

  RouterAdvertisements& owner_;
  Wire::IntfId const intfId_;
  Port port_;
  Wire::Ip6Addr router_;
  RouterAdvertisement advertisement_;
  Kel::Seconds expiry_ = Kel::never;  // never: no advertisement is in force
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
