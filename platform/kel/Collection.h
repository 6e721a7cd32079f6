// A keyed collection of an entity: of plain values, or (V a Kel::Ptr) of entities. Ordered by key.
//
// The generated class holds it and passes itself as the owner. An entry is announced when it is created,
// before its attributes are set, and after it is removed. Who loops and calls handlers walks keys(), a copy.
#pragma once

#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/kel/Codec.h"
#include "platform/kel/Entity.h"

namespace Kel {

template <typename K, typename V>
class Collection {
 public:
  using Map = std::map<K, V>;

  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  bool contains(K const& key) const { return entries_.contains(key); }
  auto find(K const& key) const { return entries_.find(key); }
  auto upper_bound(K const& key) const { return entries_.upper_bound(key); }

  // The entry's value; a default one (a null handle) when there is none.
  V const& get(K const& key) const {
    static V const none{};
    auto const found = entries_.find(key);
    return found == entries_.end() ? none : found->second;
  }

  std::vector<K> keys() const {
    std::vector<K> result;
    result.reserve(entries_.size());
    for (auto const& [key, value] : entries_) result.push_back(key);
    return result;
  }

  template <typename N>
  void set(Entity& owner, unsigned level, std::string_view name, K const& key, V value,
           void (N::*hook)(K const&)) {
    auto const [entry, created] = entries_.try_emplace(key, value);
    if (!created) {
      if (entry->second == value) return;
      entry->second = std::move(value);
    }
    announce(owner, level, name, key, hook);
  }

  template <typename N>
  void del(Entity& owner, unsigned level, std::string_view name, K const& key, void (N::*hook)(K const&)) {
    auto const found = entries_.find(key);
    if (found == entries_.end()) return;
    // Outlives the delivery: `key` may live inside the entry, and handlers may still look at it.
    auto const removed = entries_.extract(found);
    announce(owner, level, name, removed.key(), hook);
  }

  template <typename N>
  void delAll(Entity& owner, unsigned level, std::string_view name, void (N::*hook)(K const&)) {
    Ptr<Entity> const hold(&owner);  // a handler may let go of the owner, and this collection with it
    for (K const& key : keys()) del(owner, level, name, key, hook);
  }

  template <typename N>
  void announce(Entity& owner, unsigned level, std::string_view name, K const& key,
                void (N::*hook)(K const&)) {
    if (!owner.observed()) return;
    K const held = key;  // `key` may be part of what a handler deletes
    owner.notify(level, name, hook, held);
  }

 private:
  Map entries_;
};

}  // namespace Kel
