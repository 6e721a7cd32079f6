#include "programs/zerotouchd/LinuxPlatform.h"

namespace {

Linux::Entities adapted(ZeroTouch::MountedEntities const& entities) {
  return {.ethPhyIntfStatusDir = entities.episd,
          .ethLagIntfStatusDir = entities.elisd,
          .vlanIntfStatusDir = entities.visd,
          .ethIntfStatusDir = entities.eisd,
          .allIntfStatusDir = entities.aisd,
          .allIntfStatusLocalDir = entities.aisld,
          .kernelNetInfoStatus = entities.kernelNetInfo,
          .ipStatus = entities.ipStatus,
          .ip6Status = entities.ip6Status,
          .raPacketStatus = entities.raPacketStatus,
          .entityMibStatus = entities.entityMib,
          .ethPhyIntfConfigDir = entities.epicd,
          .vlanIntfConfigDir = entities.vicd,
          .l3IntfConfigDir = entities.l3ConfigDir,
          .ipConfig = entities.ipConfig,
          .ip6Config = entities.ip6Config};
}

}  // namespace

LinuxPlatform::LinuxPlatform(ZeroTouch::MountedEntities const& entities, HostConfig const& config)
    : adapter_(adapted(entities),
               {.ports = config.ports, .inventory = config.inventory, .runDirectory = config.runDirectory}),
      reloadReactor_(Kel::makePtr<ReloadReactor>(entities.reloadConfig, adapter_)) {}
