#include "platform/linux/LocalServices.h"

#include "platform/kel/Trace.h"

namespace Linux {

class DeviceIndices::ManagerReactor : public Interface::NetNsIntfStatusManagerRoot::NotifieeConst {
 public:
  explicit ManagerReactor(DeviceIndices& indices) : NotifieeConst(indices.manager_), indices_(indices) {}
  void onDeviceIntfStatusDir() override { indices_.handleDirectory(); }

 private:
  DeviceIndices& indices_;
};

class DeviceIndices::PortsReactor : public Ports::NotifieeConst {
 public:
  explicit PortsReactor(DeviceIndices& indices) : NotifieeConst(indices.ports_), indices_(indices) {}
  void onPort(Wire::IntfId const& intfId) override { indices_.handlePort(intfId); }

 private:
  DeviceIndices& indices_;
};

DeviceIndices::DeviceIndices(Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager,
                             Kel::Ptr<Ports const> ports)
    : manager_(std::move(manager)), ports_(std::move(ports)) {
  managerReactor_ = Kel::makePtr<ManagerReactor>(*this);
  portsReactor_ = Kel::makePtr<PortsReactor>(*this);
  handleDirectory();
}

DeviceIndices::~DeviceIndices() {
  if (directory_) directory_->deviceIndexDelAll();
}

void DeviceIndices::handleDirectory() {
  if (directory_) directory_->deviceIndexDelAll();
  directory_ = manager_->deviceIntfStatusDir();
  for (Wire::IntfId const& intfId : ports_->port().keys()) handlePort(intfId);
}

void DeviceIndices::handlePort(Wire::IntfId const& intfId) {
  if (!directory_) return;
  Port const& port = ports_->port(intfId);
  if (port) {
    directory_->deviceIndexIs(intfId, static_cast<std::uint32_t>(port.ifIndex));
  } else {
    directory_->deviceIndexDel(intfId);
  }
}

namespace {
Kel::TraceFacility trace("LocalServices");
}

class LocalServices::Reactor : public Kel::ActivityManager::NotifieeConst {
 public:
  explicit Reactor(LocalServices& services) : NotifieeConst(Kel::activityManager()), services_(services) {}
  void onLocalEntity(Kel::Name const& name) override { services_.handleLocalEntity(name); }

 private:
  LocalServices& services_;
};

LocalServices::LocalServices(Kel::Ptr<Ports const> ports) : ports_(std::move(ports)) {
  reactor_ = Kel::makePtr<Reactor>(*this);
  for (Kel::Name const& name : Kel::activityManager()->localEntity().keys()) handleLocalEntity(name);
}

LocalServices::~LocalServices() = default;

void LocalServices::handleLocalEntity(Kel::Name const& name) {
  packetSockets_.erase(name);
  deviceIndices_.erase(name);
  Kel::Entity* const entity = Kel::activityManager()->localEntity(name).get();
  if (auto* manager = dynamic_cast<Interface::EthDevPamManager*>(entity)) {
    packetSockets_[name] = std::make_unique<PacketSockets>(Kel::Ptr(manager));
  }
  if (auto* manager = dynamic_cast<Interface::NetNsIntfStatusManagerRoot*>(entity)) {
    if (!manager->netNsName().stringValue().empty()) {
      KEL_TRACE(
          trace, 1,
          name << ": only the host's own namespace is served, not " << manager->netNsName().stringValue());
      return;
    }
    deviceIndices_[name] = std::make_unique<DeviceIndices>(Kel::Ptr(manager), ports_);
  }
}

}  // namespace Linux
