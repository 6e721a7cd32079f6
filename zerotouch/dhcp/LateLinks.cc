#include "zerotouch/dhcp/LateLinks.h"

#include <algorithm>

#include "zerotouch/dhcp/DhcpClient.h"

namespace ZeroTouch {

namespace {

constexpr Kel::Seconds delay = 1;

// Whether there is a device that is not in `asked`; all of them are afterwards.
bool anyNew(std::vector<Kel::String> const& devices, std::set<Kel::String>& asked) {
  auto const before = asked.size();
  asked.insert(devices.begin(), devices.end());
  return asked.size() > before;
}

}  // namespace

ZeroTouchSm::LateLinks::LateLinks(ZeroTouchSm& sm)
    : sm_(sm),
      soon_([this] { ask(); }),
      ports_(sm.aisd(), &Interface::AllIntfStatusDir::intfStatus,
             &Interface::AllIntfStatusDir::NotifieeConst::onIntfStatus,
             [this](Wire::IntfId const&) { handleChange(); }),
      advertisements_(sm.raPacketStatus(), &RouterAdvt::RaPacketStatus::raPacket,
                      &RouterAdvt::RaPacketStatus::NotifieeConst::onRaPacket,
                      [this](Wire::IntfId const&) { handleChange(); }) {}

void ZeroTouchSm::LateLinks::queryIs(std::vector<Kel::String> const& devices,
                                     std::vector<Kel::String> const& devices6) {
  asked_ = {devices.begin(), devices.end()};
  asked6_ = {devices6.begin(), devices6.end()};
  soon_.cancel();
}

void ZeroTouchSm::LateLinks::handleChange() {
  if (sm_.mayMoveOnFrom(stateDhcpQuery())) soon_.in(delay);
}

void ZeroTouchSm::LateLinks::ask() {
  if (!sm_.mayMoveOnFrom(stateDhcpQuery())) return;
  if (anyNew(sm_.dhcpDevices(), asked_)) sm_.startDhcpv4();
  sm_.selectIntfs6();
  if (anyNew(kernelNames(sm_.intfStatus6()), asked6_)) sm_.startDhcpv6();
}

}  // namespace ZeroTouch
