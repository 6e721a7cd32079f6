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

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open) {
  using enum Statebase::Access;
  using enum ZeroTouch::MountWriters;
  entities.each([&](char const* path, Kel::Ptr<Kel::Entity> entity, ZeroTouch::MountWriters writers) {
    auto const access = writers == group ? groupWrites : writers == root || open ? rootWrites : readOnly;
    tree.mount(path, std::move(entity), access);
  });
  // What platform.toml says of these is root's decision. With the first, a member of the group could open the
  // startup configuration to itself.
  for (char const* const attribute : {"installMode", "maxDownloadSize", "proxyFromEnvironment"})
    tree.rootWritesOnly(std::string("/zerotouch/config/") + attribute);
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
