// What the process as a whole knows: its clock, the system's name and kind, and the entities that its rooms
// share without being mounted. `activityManager()` is the one of the process.
#pragma once

#include "platform/kel/Clock.h"
#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"

namespace Kel {

class ActivityManagerConfig : public Entity {
 public:
  Ptr<Clock const> clock() const { return clock_; }

  // The name by which this system's state is known ("SYSNAME"); empty until the host sets it.
  String const& systemName() const { return systemName_; }
  void systemNameIs(String name) { systemName_ = std::move(name); }

  // "fixed" for a system with one supervisor; any other value means that a standby supervisor may exist.
  String const& cellType() const { return cellType_; }
  void cellTypeIs(String cellType) { cellType_ = std::move(cellType); }

 private:
  Ptr<Clock const> clock_ = makePtr<Clock>();
  String systemName_;
  String cellType_ = "fixed";
};

class ActivityManager : public Entity {
 public:
  class NotifieeConst : public NotifieeBase {
   public:
    explicit NotifieeConst(Ptr<ActivityManager const> const& notifier) : NotifieeBase(notifier, level) {}
    // The entity was added or removed; localEntity(name) tells which.
    virtual void onLocalEntity(Name const&) {}
  };

  Ptr<ActivityManagerConfig> const& config() const { return config_; }

  // Entities by which one room asks another for a service, when neither may know the other: whoever asks
  // creates the entity and makes it known here, whoever serves follows the collection and picks those of its
  // type. `name` is a path, unique in the process. Whoever added an entity removes it.
  Collection<Name, Ptr<Entity>> const& localEntity() const { return localEntity_; }
  Ptr<Entity> const& localEntity(Name const& name) const { return localEntity_.get(name); }
  void localEntityIs(Name const& name, Ptr<Entity> entity) {
    localEntity_.set(*this, level, "localEntity", name, std::move(entity), &NotifieeConst::onLocalEntity);
  }
  void localEntityDel(Name const& name) {
    localEntity_.del(*this, level, "localEntity", name, &NotifieeConst::onLocalEntity);
  }

 private:
  static constexpr unsigned level = 1;

  Ptr<ActivityManagerConfig> config_ = makePtr<ActivityManagerConfig>();
  Collection<Name, Ptr<Entity>> localEntity_;
};

Ptr<ActivityManager> const& activityManager();

}  // namespace Kel
