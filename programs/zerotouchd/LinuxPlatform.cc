#include "programs/zerotouchd/LinuxPlatform.h"

namespace {

Linux::Entities adapted(ZeroTouch::MountedEntities const& entities) {
  return {.ethPhyIntfStatusDir = entities.episd,
          .ethLagIntfStatusDir = entities.elisd,
          .vlanIntfStatusDir = entities.visd,
          .ethIntfStatusDir = entities.eisd,
          .allIntfStatusDir = entities.aisd,
          .allIntfStatusLocalDir = entities.aisld,
          .kernelNetInfoStatus = entities.kernelNetInfoStatus,
          .ipStatus = entities.ipStatus,
          .ip6Status = entities.ip6Status,
          .raPacketStatus = entities.raPacketStatus,
          .entityMibStatus = entities.entityMibStatus,
          .netStatus = entities.netStatus,
          .ethPhyIntfConfigDir = entities.epicd,
          .vlanIntfConfigDir = entities.vicd,
          .l3IntfConfigDir = entities.l3ConfigDir,
          .ipConfig = entities.ipConfig,
          .ip6Config = entities.ip6Config,
          .routingConfig = entities.routingConfig,
          .netConfig = entities.netConfig,
          .logConfig = entities.sysLoggingConfig,
          .reloadConfig = entities.reloadConfig};
}

}  // namespace

LinuxPlatform::LinuxPlatform(ZeroTouch::MountedEntities const& entities, HostConfig const& config,
                             bool takeOver)
    : adapter_(adapted(entities), {.ports = config.ports,
                                   .inventory = config.inventory,
                                   .runDirectory = config.runDirectory,
                                   .system = config.system,
                                   .takeOver = takeOver}) {}
