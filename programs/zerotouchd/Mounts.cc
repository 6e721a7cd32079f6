#include "programs/zerotouchd/Mounts.h"

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open) {
  using enum Statebase::Access;
  auto const platforms = open ? rootWrites : readOnly;
  tree.mount("/zerotouch/config", entities.config, groupWrites);
  tree.mount("/zerotouch/status", entities.status, platforms);
  // Who writes it chooses what is run as root.
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
