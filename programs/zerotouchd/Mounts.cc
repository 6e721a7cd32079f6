#include "programs/zerotouchd/Mounts.h"

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open) {
  using enum Statebase::Access;
  using enum ZeroTouch::MountWriters;
  entities.each([&](char const* path, Kel::Ptr<Kel::Entity> entity, ZeroTouch::MountWriters writers) {
    auto const access = writers == group ? groupWrites : writers == root || open ? rootWrites : readOnly;
    tree.mount(path, std::move(entity), access);
  });
}
