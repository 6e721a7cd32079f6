#include "platform/linux/LocalServices.h"

#include "platform/kel/Trace.h"

namespace Linux {

DeviceIndices::DeviceIndices(Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager,
                             Kel::Ptr<Ports const> ports)
    : manager_(std::move(manager)), ports_(std::move(ports)) {
  managerReactor_ =
      Kel::Reactor(manager_, &Interface::NetNsIntfStatusManagerRoot::NotifieeConst::onDeviceIntfStatusDir,
                   [this] { handleDirectory(); });
  portsReactor_ = Kel::Reactor(ports_, &Ports::NotifieeConst::onPort, this, &DeviceIndices::handlePort);
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

LocalServices::LocalServices(Kel::Ptr<Ports const> ports) : ports_(std::move(ports)) {
  reactor_ = Kel::Reactor(Kel::activityManager(), &Kel::ActivityManager::NotifieeConst::onLocalEntity, this,
                          &LocalServices::handleLocalEntity);
  for (Kel::Name const& name : Kel::activityManager()->localEntity().keys()) handleLocalEntity(name);
}

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
