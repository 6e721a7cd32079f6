#include "platform/linux/ApplyQueue.h"

#include "platform/kel/ActivityManager.h"

namespace Linux {

namespace {

// A visit that changes everything takes half a millisecond, most of it in the kernel.
constexpr int portsPerPass = 8;

}  // namespace

class ApplyQueue::PortsReactor : public Ports::NotifieeConst {
 public:
  PortsReactor(Kel::Ptr<Ports const> const& ports, ApplyQueue& queue) : NotifieeConst(ports), queue_(queue) {}
  void onPort(Wire::IntfId const& intfId) override { queue_.handlePort(intfId); }

 private:
  ApplyQueue& queue_;
};

class ApplyQueue::Pass : public Kel::Clock::NotifieeConst {
 public:
  explicit Pass(ApplyQueue& queue)
      : NotifieeConst(Kel::activityManager()->config()->clock()), queue_(queue) {}
  void onTime() override { queue_.handlePass(); }

 private:
  ApplyQueue& queue_;
};

ApplyQueue::ApplyQueue(Kel::Ptr<Ports const> ports, Netlink const& netlink, DeviceSettings& settings)
    : ports_(std::move(ports)), netlink_(netlink), settings_(settings) {
  portsReactor_ = Kel::makePtr<PortsReactor>(ports_, *this);
  pass_ = Kel::makePtr<Pass>(*this);
  for (auto const& [intfId, port] : ports_->port()) handlePort(intfId);
}

ApplyQueue::~ApplyQueue() = default;

void ApplyQueue::add(Wire::IntfId const& intfId) {
  waiting_.insert(intfId);
  if (pass_->timeMin() == Kel::never) pass_->timeMinIs(Kel::now());
}

void ApplyQueue::handlePort(Wire::IntfId const& intfId) {
  Port const& port = ports_->port(intfId);
  if (port) {
    devices_[intfId] = port.ifIndex;
    add(intfId);
    return;
  }
  auto const device = devices_.extract(intfId);
  if (device.empty()) return;
  // A device that lives on, under another name, is no longer the port that these settings were meant for.
  if (netlink_.link(device.mapped()) != nullptr) {
    settings_.deviceDel(device.mapped());
  } else {
    settings_.forget(device.mapped());
  }
}

void ApplyQueue::handlePass() {
  for (int i = 0; i < portsPerPass && !waiting_.empty(); ++i) {
    Wire::IntfId const intfId = waiting_.extract(waiting_.begin()).value();
    for (PortApplier* applier : appliers_) {
      // Looked up each time: a copy, since a handler may end the port.
      if (Port const port = ports_->port(intfId)) applier->apply(intfId, port);
    }
  }
  if (!waiting_.empty()) pass_->timeMinIs(Kel::now());
}

}  // namespace Linux
