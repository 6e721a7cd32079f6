// The Linux adapter at work on the mounted entities.
#pragma once

#include "platform/linux/Adapter.h"
#include "platform/model/handles.h"
#include "programs/zerotouchd/HostConfig.h"

class LinuxPlatform {
 public:
  LinuxPlatform(ZeroTouch::MountedEntities const& entities, HostConfig const& config, bool takeOver);

 private:
  Linux::Adapter adapter_;
};
