#include "programs/zerotouchd/history/PortRecorder.h"

#include "programs/zerotouchd/history/Shortened.h"

class PortRecorder::Link : public Interface::EthIntfStatus::NotifieeConst {
 public:
  Link(Kel::Ptr<Interface::EthIntfStatus const> const& port, Ring<History::Port>& ring)
      : NotifieeConst(port), ring_(ring) {
    note();
  }

  void onLinkStatus() override { note(); }

 private:
  void note() {
    auto const status = notifier().linkStatus();
    if (status == Interface::LinkStatus::unknown) return;
    ring_.add({Kel::now(), notifier().intfId().stringValue(), "link", stringValue(status), ""});
  }

  Ring<History::Port>& ring_;
};

class PortRecorder::Ports : public Interface::AllEthPhyIntfStatusDir::NotifieeConst {
 public:
  Ports(Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> const& dir, PortRecorder& recorder)
      : NotifieeConst(dir), recorder_(recorder) {}
  void onIntfStatus(Wire::IntfId const& id) override { recorder_.portCame(id); }

 private:
  PortRecorder& recorder_;
};

class PortRecorder::Dhcp : public ZeroTouch::DhcpStatus::NotifieeConst {
 public:
  Dhcp(Kel::Ptr<ZeroTouch::DhcpStatus const> const& status, PortRecorder& recorder)
      : NotifieeConst(status), recorder_(recorder) {}
  void onIntfDhcpStatus(Kel::Name const& device) override { recorder_.reported(Family::v4, device); }
  void onIntfDhcp6Status(Kel::Name const& device) override { recorder_.reported(Family::v6, device); }

 private:
  PortRecorder& recorder_;
};

PortRecorder::PortRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Port>& ring)
    : dir_(entities.episd),
      dhcp_(entities.dhcpStatus),
      ring_(ring),
      ports_(Kel::makePtr<Ports>(dir_, *this)),
      dhcpReactor_(Kel::makePtr<Dhcp>(dhcp_, *this)) {
  for (auto const& id : dir_->intfStatus().keys()) portCame(id);
}

PortRecorder::~PortRecorder() = default;

void PortRecorder::portCame(Wire::IntfId const& id) {
  auto const port = dir_->intfStatus(id);
  if (port) {
    links_.insert_or_assign(id, Kel::makePtr<Link>(port, ring_));
  } else if (links_.erase(id) > 0) {
    ring_.add({Kel::now(), id.stringValue(), "link", "gone", ""});
  }
}

void PortRecorder::reported(Family family, Kel::Name const& device) {
  pending_.try_emplace({family, device}, Kel::now());
  alarm_.in(0);
}

void PortRecorder::writeReports() {
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
        entry.detail += (entry.detail.empty() ? "boot file " : ", boot file ") + record->bootFileName();
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
