// Entities, and the notifications that they send when they change.
//
// Every generated accessor follows these rules, by way of Attr and Collection:
//  - a setter compares first: an equal value changes nothing and notifies nobody; any other is stored, and
//    then the notifiees are called in the order of their registration;
//  - a notifiee that goes away during a delivery is not called; one that registers during it is not called
//    either, for it has just looked at the state itself;
//  - a handler may change or delete anything, the entity and itself included.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/kel/Ptr.h"

namespace Kel {

class Entity;
struct EntityType;
template <typename T>
struct Codec;

// What a reactor derives from, through the NotifieeConst class of the entity that it watches. Always held by
// a Ptr. Where one function is to be called, Kel::Reactor (Reactor.h) saves writing a class.
class NotifieeBase : public RefCounted {
 public:
  // Tells the hooks of one entity apart: the bits of the pointer to the hook, which name its place in the
  // table of virtual functions.
  using HookId = std::array<std::uintptr_t, 2>;
  template <typename N, typename... Key>
  static HookId idOf(void (N::*hook)(Key const&...)) {
    return std::bit_cast<HookId>(hook);
  }

  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) { active_ = active; }

 protected:
  // `level` is how deep in the entity's inheritance chain the hooks reach; see Entity::notify.
  NotifieeBase(Ptr<Entity const> notifier, unsigned level);
  ~NotifieeBase() override;

  Entity const* notifierEntity() const { return notifier_.get(); }

 private:
  friend class Entity;
  friend class Reactor;

  // A notifiee of this level has no hooks of its own: onHook() is told which one is meant, and where the key
  // is (nullptr for a plain attribute).
  static constexpr unsigned allHooks = ~0U;
  virtual void onHook(HookId, void const*) {}

  Ptr<Entity const> notifier_;
  unsigned level_;
  bool active_ = true;
};

// A hook of any class of notifiees, to be called on an object of that class. What notifies takes this type,
// so that it is compiled once for all classes.
template <typename... Key>
struct AnyHook {
  template <typename N>
  AnyHook(void (N::*own)(Key const&...)) : hook(static_cast<void (NotifieeBase::*)(Key const&...)>(own)) {}

  void (NotifieeBase::*hook)(Key const&...);
};

// Is told of every change of an entity by name, whatever the type of the entity. For generic code, as the
// state socket; reactors use hooks.
class Watcher {
 public:
  virtual ~Watcher() = default;
  // `key` is the text of the changed entry of a collection, empty for a plain attribute. It must not
  // change an entity or remove a watcher.
  virtual void onChange(Entity const& entity, std::string_view attribute, std::string_view key) = 0;
};

class Entity : public RefCounted {
 public:
  ~Entity() override;

  // The description by which generic code reads and writes the entity; nullptr for entities outside the
  // model.
  virtual EntityType const* entityType() const { return nullptr; }

  // The caller keeps `watcher` alive until watcherDel.
  void watcherIs(Watcher* watcher) const { watchers_.push_back(watcher); }
  void watcherDel(Watcher* watcher) const;

 protected:
  Entity() = default;

  // Calls `hook` on each notifiee, then tells the watchers. `level` counts the classes between Entity and the
  // one that declares the attribute: a notifiee of a base class, registered on an object of a derived class,
  // has no hook for it. `key` is that of a collection's entry, which outlives the call.
  template <typename... Key>
  void notify(unsigned level, std::string_view attribute, AnyHook<Key...> hook, Key const&... key) const {
    if (!observed()) return;
    Delivery const delivery(*this);
    for (std::size_t i = 0, count = notifiees_.size(); i < count; ++i) {
      NotifieeBase* notifiee = notifiees_[i];
      if (notifiee == nullptr || notifiee->beingDestroyed()) continue;
      if (!notifiee->active_ || notifiee->level_ < level) continue;
      Ptr<NotifieeBase> const hold(notifiee);
      if (notifiee->level_ == NotifieeBase::allHooks) {
        void const* keyAddress = nullptr;
        ((keyAddress = &key), ...);
        notifiee->onHook(NotifieeBase::idOf(hook.hook), keyAddress);
      } else {
        (notifiee->*hook.hook)(key...);
      }
    }
    if (!watchers_.empty()) notifyWatchers(attribute, (std::string() + ... + Codec<Key>::toText(key)));
  }

 private:
  friend class NotifieeBase;
  template <typename>
  friend class Attr;
  template <typename, typename>
  friend class Collection;

  // Keeps the entity alive and its list of notifiees in place while handlers run.
  class Delivery {
   public:
    explicit Delivery(Entity const& entity) : entity_(&entity) { ++entity.deliveries_; }
    ~Delivery() { entity_->deliveryDone(); }

   private:
    Ptr<Entity const> entity_;
  };

  bool observed() const { return !notifiees_.empty() || !watchers_.empty(); }
  void notifyWatchers(std::string_view attribute, std::string_view key) const;
  void notifieeIs(NotifieeBase* notifiee) const { notifiees_.push_back(notifiee); }
  void notifieeDel(NotifieeBase* notifiee) const;
  void deliveryDone() const;

  mutable std::vector<NotifieeBase*> notifiees_;  // null: went away during a delivery
  mutable std::vector<Watcher*> watchers_;
  mutable unsigned deliveries_ = 0;
  mutable bool hasGaps_ = false;
};

// One attribute of an entity. The entity's class holds it and passes itself as the owner.
template <typename T>
class Attr {
 public:
  Attr() = default;
  explicit Attr(T initial) : value_(std::move(initial)) {}

  T const& get() const { return value_; }

  // Stores the value and notifies, unless it equals the one held.
  void set(Entity& owner, unsigned level, std::string_view name, T value, AnyHook<> hook) {
    if (value_ == value) return;
    value_ = std::move(value);
    owner.notify(level, name, hook);
  }

 private:
  T value_{};
};

// A keyed collection of an entity: of plain values, or (V a Kel::Ptr) of entities. Ordered by key.
//
// The entity's class holds it and passes itself as the owner. An entry is announced when it is created,
// before its attributes are set, and after it is removed. Whoever calls handlers while walking walks keys(),
// a copy.
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

  void set(Entity& owner, unsigned level, std::string_view name, K const& key, V value, AnyHook<K> hook) {
    auto const [entry, created] = entries_.try_emplace(key, value);
    if (!created) {
      if (entry->second == value) return;
      entry->second = std::move(value);
    }
    announce(owner, level, name, key, hook);
  }

  void del(Entity& owner, unsigned level, std::string_view name, K const& key, AnyHook<K> hook) {
    auto const found = entries_.find(key);
    if (found == entries_.end()) return;
    // The entry outlives the delivery: `key` may be part of it, and handlers may still look at it.
    auto const removed = entries_.extract(found);
    announce(owner, level, name, removed.key(), hook);
  }

  void delAll(Entity& owner, unsigned level, std::string_view name, AnyHook<K> hook) {
    Ptr<Entity> const hold(&owner);  // a handler may let go of the owner, and this collection with it
    for (K const& key : keys()) del(owner, level, name, key, hook);
  }

  void announce(Entity& owner, unsigned level, std::string_view name, K const& key, AnyHook<K> hook) {
    if (!owner.observed()) return;
    // `key` may be part of what a handler deletes.
    K const held = key;  // NOLINT(performance-unnecessary-copy-initialization)
    owner.notify(level, name, hook, held);
  }

 private:
  Map entries_;
};

}  // namespace Kel
