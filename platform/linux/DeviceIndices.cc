#include "platform/linux/DeviceIndices.h"

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

}  // namespace Linux
