#include "platform/linux/LocalServices.h"

#include "platform/kel/Trace.h"

namespace Linux {

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
