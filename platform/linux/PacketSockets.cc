#include "platform/linux/PacketSockets.h"

#include <cerrno>
#include <system_error>

#include "platform/kel/ActivityManager.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

constexpr int portsPerPass = 16;
constexpr Kel::Seconds retryInterval = 10;

PacketSocketOptions optionsOf(Interface::EthDevPamManager const& manager) {
  PacketSocketOptions options{manager.ethProtocol(), {}, manager.listenAddr()};
  for (auto const& [number, instruction] : manager.filterProgram()) {
    options.filter.push_back({instruction.code, instruction.jt, instruction.jf, instruction.k});
  }
  return options;
}

}  // namespace

class PacketSockets::ManagerReactor : public Interface::EthDevPamManager::NotifieeConst {
 public:
  explicit ManagerReactor(PacketSockets& sockets) : NotifieeConst(sockets.manager_), sockets_(sockets) {}
  void onEthProtocol() override { sockets_.handleOptions(); }
  void onFilterProgram(std::uint16_t const&) override { sockets_.handleOptions(); }
  void onListenAddr() override { sockets_.handleOptions(); }
  void onEnabled() override { sockets_.handleOptions(); }

 private:
  PacketSockets& sockets_;
};

class PacketSockets::DesiredReactor : public Interface::PamDesiredIntfDir::NotifieeConst {
 public:
  explicit DesiredReactor(PacketSockets& sockets)
      : NotifieeConst(sockets.manager_->pamDesiredIntfDir()), sockets_(sockets) {}
  void onIntfDesired(Wire::IntfId const& intfId) override { sockets_.look(intfId); }

 private:
  PacketSockets& sockets_;
};

class PacketSockets::DeviceReactor : public Interface::DeviceIntfStatusDir::NotifieeConst {
 public:
  explicit DeviceReactor(PacketSockets& sockets)
      : NotifieeConst(sockets.manager_->deviceIntfStatusDir()), sockets_(sockets) {}
  void onDeviceIndex(Wire::IntfId const& intfId) override { sockets_.look(intfId); }

 private:
  PacketSockets& sockets_;
};

class PacketSockets::Pass : public Kel::Clock::NotifieeConst {
 public:
  explicit Pass(PacketSockets& sockets)
      : NotifieeConst(Kel::activityManager()->config()->clock()), sockets_(sockets) {}
  void onTime() override { sockets_.handlePass(); }

 private:
  PacketSockets& sockets_;
};

PacketSockets::PacketSockets(Kel::Ptr<Interface::EthDevPamManager> manager) : manager_(std::move(manager)) {
  managerReactor_ = Kel::makePtr<ManagerReactor>(*this);
  desiredReactor_ = Kel::makePtr<DesiredReactor>(*this);
  deviceReactor_ = Kel::makePtr<DeviceReactor>(*this);
  pass_ = Kel::makePtr<Pass>(*this);
  handleOptions();
}

PacketSockets::~PacketSockets() {
  while (!open_.empty()) close(open_.begin()->first);
}

// What is open was opened with other options.
void PacketSockets::handleOptions() {
  while (!open_.empty()) close(open_.begin()->first);
  if (!manager_->enabled()) return;
  for (Wire::IntfId const& intfId : manager_->pamDesiredIntfDir()->intfDesired().keys()) look(intfId);
}

void PacketSockets::look(Wire::IntfId const& intfId) {
  waiting_.insert(intfId);
  pass_->timeMinIs(Kel::now());
}

void PacketSockets::handlePass() {
  if (waiting_.empty()) waiting_.swap(failed_);
  for (int i = 0; i < portsPerPass && !waiting_.empty(); ++i)
    update(waiting_.extract(waiting_.begin()).value());
  if (!waiting_.empty()) {
    pass_->timeMinIs(Kel::now());
  } else if (!failed_.empty()) {
    pass_->timeMinIs(Kel::now() + retryInterval);
  }
}

void PacketSockets::update(Wire::IntfId const& intfId) {
  bool const wanted = manager_->enabled() && manager_->pamDesiredIntfDir()->intfDesired().get(intfId);
  int const ifIndex = static_cast<int>(manager_->deviceIntfStatusDir()->deviceIndex().get(intfId));
  auto const found = open_.find(intfId);
  if (found != open_.end() && wanted && found->second.ifIndex == ifIndex) return;
  close(intfId);
  if (wanted && ifIndex != 0) {
    open(intfId, ifIndex);
  } else {
    failed_.erase(intfId);
  }
}

void PacketSockets::open(Wire::IntfId const& intfId, int ifIndex) {
  try {
    auto const socket = Kel::makePtr<PacketSocket>(intfId, ifIndex, optionsOf(*manager_));
    open_[intfId] = {ifIndex, socket};
    failed_.erase(intfId);
    manager_->ethDevPamCollection()->intfPamIs(socket);
  } catch (std::system_error const& error) {
    // Of a device that is gone, the link watcher will tell; it is no reason to complain.
    bool const gone = error.code().value() == ENODEV;
    if (failed_.insert(intfId).second && !gone) packetSocketFailed.log(intfId.stringValue(), error.what());
  }
}

void PacketSockets::close(Wire::IntfId const& intfId) {
  auto const closed = open_.extract(intfId);
  if (closed.empty()) return;
  closed.mapped().socket->close();
  manager_->ethDevPamCollection()->intfPamDel(closed.key());
}

}  // namespace Linux
