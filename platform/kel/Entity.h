// Entities, and the notifications that they send when they change.
//
// Every generated accessor follows these rules (Attr.h and Collection.h call notify()):
//  - a setter compares first: an equal value changes nothing and notifies nobody; any other is stored, and
//    then the notifiees are called in the order of their registration;
//  - a notifiee that goes away during a delivery is not called; one that registers during it is not called
//    either, for it has just looked at the state itself;
//  - a handler may change or delete anything, the entity and itself included.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <string_view>
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

// Sees every change of an entity by name, whatever its type. For the state socket and the like; reactors use
// hooks.
class Watcher {
 public:
  virtual ~Watcher() = default;
  // `key` is the text of the changed entry of a collection, empty for a plain attribute. Takes note only: it
  // changes no entity and removes no watcher.
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

  // Calls `hook` on each notifiee of class N, then tells the watchers. `level` counts the classes between
  // Entity and the one that declares the attribute: a notifiee of a base class, registered on an object of a
  // derived class, has no hook for it. `key` is that of a collection's entry, which outlives the call.
  template <typename N, typename... Key>
  void notify(unsigned level, std::string_view attribute, void (N::*hook)(Key const&...),
              Key const&... key) const {
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
        notifiee->onHook(NotifieeBase::idOf(hook), keyAddress);
      } else {
        (static_cast<N&>(*notifiee).*hook)(key...);
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

}  // namespace Kel
