// Entities, and the notifications that they send when they change.
//
// The rules, which every generated accessor follows (Attr.h and Collection.h call notify()):
//  - a setter compares first; equal changes nothing and notifies nobody, else it stores and then notifies, in
//  the
//    order of registration;
//  - a notifiee that goes away during a delivery is not called, one that registers during it is not called
//  either (it
//    has just looked at the state itself);
//  - a handler may change or delete anything, the entity and itself included.
#pragma once

#include <string_view>
#include <vector>

#include "platform/kel/Ptr.h"

namespace Kel {

class Entity;
struct EntityType;

// What a reactor derives from, through the NotifieeConst class of the entity that it watches. Always held by
// a Ptr.
class NotifieeBase : public RefCounted {
 public:
  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) { active_ = active; }

 protected:
  // `level` is how deep in the entity's inheritance chain the hooks reach; see Entity::notify.
  NotifieeBase(Ptr<Entity const> notifier, unsigned level);
  ~NotifieeBase() override;

  Entity const* notifierEntity() const { return notifier_.get(); }

 private:
  friend class Entity;

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
  // derived class, has no hook for it. `keyText` gives the text of the collection's key.
  template <typename N, typename Hook, typename KeyText>
  void notify(unsigned level, std::string_view attribute, Hook&& hook, KeyText&& keyText) const {
    if (!observed()) return;
    Delivery const delivery(*this);
    for (std::size_t i = 0, count = notifiees_.size(); i < count; ++i) {
      NotifieeBase* notifiee = notifiees_[i];
      if (notifiee == nullptr || notifiee->beingDestroyed()) continue;
      if (!notifiee->active_ || notifiee->level_ < level) continue;
      Ptr<NotifieeBase> const hold(notifiee);
      hook(static_cast<N&>(*notifiee));
    }
    if (!watchers_.empty()) notifyWatchers(attribute, keyText());
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
