#include "programs/zerotouchd/Platform.h"

#include "platform/linux/Adapter.h"

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
          .netStatus = entities.netStatus,
          .ethPhyIntfConfigDir = entities.epicd,
          .vlanIntfConfigDir = entities.vicd,
          .l3IntfConfigDir = entities.l3ConfigDir,
          .ipConfig = entities.ipConfig,
          .ip6Config = entities.ip6Config,
          .routingConfig = entities.routingConfig,
          .netConfig = entities.netConfig,
          .logConfig = entities.logConfig,
          .reloadConfig = entities.reloadConfig};
}

}  // namespace

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open) {
  using enum Statebase::Access;
  auto const platforms = open ? rootWrites : readOnly;
  tree.mount("/zerotouch/config", entities.config, groupWrites);
  tree.mount("/zerotouch/status", entities.status, platforms);
  // Whoever writes these chooses what is run as root.
  tree.mount("/zerotouch/dhcpStatus", entities.dhcpStatus, rootWrites);
  tree.mount("/interface/config/ethPhy", entities.epicd, platforms);
  tree.mount("/interface/status/ethPhy", entities.episd, platforms);
  tree.mount("/interface/config/vlan", entities.vicd, platforms);
  tree.mount("/interface/status/vlan", entities.visd, platforms);
  tree.mount("/interface/status/all", entities.aisd, platforms);
  tree.mount("/interface/status/allLocal", entities.aisld, platforms);
  tree.mount("/interface/status/ethLag", entities.elisd, platforms);
  tree.mount("/interface/status/eth", entities.eisd, platforms);
  tree.mount("/kernelNetInfo/status", entities.kernelNetInfo, platforms);
  tree.mount("/entityMib/status", entities.entityMib, platforms);
  tree.mount("/ip/config", entities.ipConfig, platforms);
  tree.mount("/ip/status", entities.ipStatus, platforms);
  tree.mount("/ip6/config", entities.ip6Config, platforms);
  tree.mount("/ip6/status", entities.ip6Status, platforms);
  tree.mount("/l3/config", entities.l3ConfigDir, platforms);
  tree.mount("/routing/config", entities.routingConfig, platforms);
  tree.mount("/routerAdvt/status", entities.raPacketStatus, platforms);
  tree.mount("/system/netConfig", entities.netConfig, platforms);
  tree.mount("/system/netStatus", entities.netStatus, platforms);
  tree.mount("/system/reload", entities.reloadConfig, platforms);
  tree.mount("/fileReplication/status", entities.fileReplication, platforms);
  tree.mount("/logMgr/config", entities.logConfig, platforms);
}

std::unique_ptr<Linux::Adapter> startAdapter(ZeroTouch::MountedEntities const& entities,
                                             HostConfig const& config, bool takeOver) {
  return std::make_unique<Linux::Adapter>(adapted(entities),
                                          Linux::AdapterConfig{.ports = config.ports,
                                                               .inventory = config.inventory,
                                                               .runDirectory = config.runDirectory,
                                                               .system = config.system,
                                                               .takeOver = takeOver});
}
