// The Linux adapter at work on the mounted entities.
#pragma once

#include "platform/linux/Adapter.h"
#include "programs/zerotouchd/HostConfig.h"
#include "zerotouch/agent/MountedEntities.h"

// Puts back what it changed when it ends, but not once a reload was requested: the reload clears the slate,
// and until then the switch keeps the address over which it was provisioned.
class LinuxPlatform {
 public:
  LinuxPlatform(ZeroTouch::MountedEntities const& entities, HostConfig const& config);

 private:
  class ReloadReactor : public System::Reload::Config::NotifieeConst {
   public:
    ReloadReactor(Kel::Ptr<System::Reload::Config const> const& reload, Linux::Adapter& adapter)
        : NotifieeConst(reload), adapter_(adapter) {}
    void onReloadTime() override { adapter_.keepChanges(); }

   private:
    Linux::Adapter& adapter_;
  };

  Linux::Adapter adapter_;
  Kel::Ptr<ReloadReactor> reloadReactor_;
};
