// Watches the chassis of the hardware inventory, and tries to start a run whenever its initialisation status
// changes.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

class ZeroTouchSm;

// Makes no decision itself: the start attempt checks its own preconditions. Tries once on construction, so
// that an inventory that is complete already is noticed.
class EntityMibRootSm : public EntityMibRootSmModel {
 public:
  EntityMibRootSm(ZeroTouchSm* ztSm, Kel::Ptr<EntityMib::Fru const> const& entityMibRoot);

  void handleEntityMibInitStatus();

 private:
  class KelEntityMibRoot : public EntityMib::Fru::NotifieeConst {
   public:
    KelEntityMibRoot(Kel::Ptr<EntityMib::Fru const> const& root, EntityMibRootSm& owner)
        : NotifieeConst(root), owner_(owner) {}
    void onInitStatus() override { owner_.handleEntityMibInitStatus(); }

   private:
    EntityMibRootSm& owner_;
  };

  ZeroTouchSm* ztSm_;  // the owner
  Kel::Ptr<KelEntityMibRoot> kelEntityMibRoot_;
};

}  // namespace ZeroTouch
