#include "programs/zerotouchd/history/PortRecorder.h"

#include "platform/model/values/Grammar.h"

PortRecorder::PortRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Port>& ring)
    : dir_(entities.episd),
      dhcp_(entities.dhcpStatus),
      ring_(ring),
      advertisements_(entities.raPacketStatus) {
  using Answers = ZeroTouch::DhcpStatus::NotifieeConst;
  ports_ = Kel::Reactor(dir_, &Interface::AllEthPhyIntfStatusDir::NotifieeConst::onIntfStatus, this,
                        &PortRecorder::portCame);
  answers4_ = Kel::Reactor(dhcp_, &Answers::onIntfDhcpStatus,
                           [this](Kel::Name const& device) { reported(Family::v4, device); });
  answers6_ = Kel::Reactor(dhcp_, &Answers::onIntfDhcp6Status,
                           [this](Kel::Name const& device) { reported(Family::v6, device); });
  routers_ = Kel::Reactor(advertisements_, &RouterAdvt::RaPacketStatus::NotifieeConst::onRaPacket, this,
                          &PortRecorder::routerCame);
  for (auto const& id : dir_->intfStatus().keys()) portCame(id);
}

void PortRecorder::portCame(Wire::IntfId const& id) {
  auto const port = dir_->intfStatus(id);
  bool const changed = Kel::follow(links_, id, port, [this](auto const& entity) {
    auto const note = [this, followed = entity.get()] { noteLink(*followed); };
    note();
    return Kel::Reactor(entity, &Interface::EthIntfStatus::NotifieeConst::onLinkStatus, note);
  });
  if (changed && !port) ring_.add({Kel::now(), id.stringValue(), "link", "gone", ""});
}

void PortRecorder::noteLink(Interface::EthIntfStatus const& port) {
  auto const status = port.linkStatus();
  if (status == Interface::LinkStatus::unknown) return;
  ring_.add({Kel::now(), port.intfId().stringValue(), "link", stringValue(status), ""});
}

void PortRecorder::reported(Family family, Kel::Name const& device) {
  pending_.try_emplace({family, device}, Kel::now());
  alarm_.in(0);
}

void PortRecorder::routerCame(Wire::IntfId const& id) {
  auto const note = [this, id] {
    pendingRouters_.insert(id);
    alarm_.in(0);
  };
  bool const changed = Kel::follow(flags_, id, advertisements_->raPacket(id),
                                   [note](auto const& packet) { return Kel::Reactor(packet, note); });
  if (changed) note();
}

void PortRecorder::writeRouter(Wire::IntfId const& id) {
  History::Port entry{Kel::now(), id.stringValue(), "router", "gone", ""};
  if (auto const packet = advertisements_->raPacket(id)) {
    entry.report = "advertises";
    entry.detail = packet->managed() ? "managed flag" : "";
    if (packet->other()) entry.detail += entry.detail.empty() ? "other flag" : ", other flag";
    if (entry.detail.empty()) entry.detail = "no flags";
  }
  ring_.add(std::move(entry));
}

void PortRecorder::writeReports() {
  for (auto const& id : std::exchange(pendingRouters_, {})) writeRouter(id);
  for (auto const& [key, time] : std::exchange(pending_, {})) {
    auto const& [family, device] = key;
    bool const four = family == Family::v4;
    auto const record = four ? dhcp_->intfDhcpStatus(device) : dhcp_->intfDhcp6Status(device);
    History::Port entry{time, portOf(device), four ? "DHCPv4" : "DHCPv6", "gone", ""};
    if (record) {
      entry.report = record->reason();
      auto const& address = record->addrWithMask();
      bool const leased = !address.v4().address.isZero() || !address.v6().address.isZero();
      if (leased) entry.detail = address.stringValue();
      if (!record->bootFileName().empty()) {
        entry.detail += entry.detail.empty() ? "boot file " : ", boot file ";
        entry.detail += Grammar::withoutPasswords(record->bootFileName());
      }
      entry.detail = shortened(entry.detail);
    }
    ring_.add(std::move(entry));
  }
}

Kel::String PortRecorder::portOf(Kel::String const& device) const {
  for (auto const& [id, port] : dir_->intfStatus()) {
    if (port->deviceName() == device) return id.stringValue();
  }
  return device;
}
