#include "programs/zerotouchd/Mounts.h"

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities) {
  using enum Statebase::Access;
  tree.mount("/zerotouch/config", entities.config, groupWrites);
  tree.mount("/zerotouch/status", entities.status, readOnly);
  // Who writes it chooses what is run as root.
  tree.mount("/zerotouch/dhcpStatus", entities.dhcpStatus, rootWrites);
  tree.mount("/interface/config/ethPhy", entities.epicd, readOnly);
  tree.mount("/interface/status/ethPhy", entities.episd, readOnly);
  tree.mount("/interface/config/vlan", entities.vicd, readOnly);
  tree.mount("/interface/status/vlan", entities.visd, readOnly);
  tree.mount("/interface/status/all", entities.aisd, readOnly);
  tree.mount("/interface/status/allLocal", entities.aisld, readOnly);
  tree.mount("/interface/status/ethLag", entities.elisd, readOnly);
  tree.mount("/interface/status/eth", entities.eisd, readOnly);
  tree.mount("/kernelNetInfo/status", entities.kernelNetInfo, readOnly);
  tree.mount("/entityMib/status", entities.entityMib, readOnly);
  tree.mount("/ip/config", entities.ipConfig, readOnly);
  tree.mount("/ip/status", entities.ipStatus, readOnly);
  tree.mount("/ip6/config", entities.ip6Config, readOnly);
  tree.mount("/ip6/status", entities.ip6Status, readOnly);
  tree.mount("/l3/config", entities.l3ConfigDir, readOnly);
  tree.mount("/routing/config", entities.routingConfig, readOnly);
  tree.mount("/routerAdvt/status", entities.raPacketStatus, readOnly);
  tree.mount("/system/netConfig", entities.netConfig, readOnly);
  tree.mount("/system/netStatus", entities.netStatus, readOnly);
  tree.mount("/system/reload", entities.reloadConfig, readOnly);
  tree.mount("/fileReplication/status", entities.fileReplication, readOnly);
  tree.mount("/logMgr/config", entities.logConfig, readOnly);
}
