// One reactor for each entry of a collection that is watched.
#pragma once

#include <map>

#include "platform/kel/Ptr.h"

namespace ZeroTouch {

// Makes the reactor of the entry `key`, replaces it when the entry is another entity than before, or drops it
// when `entity` is null. Reactors are made from the entity and `owner`. True when something changed.
template <typename Key, typename Reactor, typename Entity, typename Owner>
bool follow(std::map<Key, Kel::Ptr<Reactor>>& reactors, Key const& key, Kel::Ptr<Entity> const& entity,
            Owner& owner) {
  auto const found = reactors.find(key);
  bool const known = found != reactors.end();
  if (known ? &found->second->notifier() == entity.get() : !entity) return false;
  if (known) reactors.erase(found);
  if (entity) reactors.emplace(key, Kel::makePtr<Reactor>(entity, owner));
  return true;
}

}  // namespace ZeroTouch
