// Watches the chassis of the hardware inventory, and tries to start a run whenever its initialisation status
// changes.
#pragma once

#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"

namespace ZeroTouch {

class ZeroTouchSm;

// Makes no decision itself: the start attempt checks its own preconditions. Tries once on construction, so
// that an inventory that is complete already is noticed.
class EntityMibRootSm : public EntityMibRootSmModel {
 public:
  EntityMibRootSm(ZeroTouchSm* ztSm, Kel::Ptr<EntityMib::Fru const> const& entityMibRoot);

  ZeroTouchSm* ztSm() const { return ztSm_; }
  void handleEntityMibInitStatus();

 private:
  ZeroTouchSm* ztSm_;  // the owner
  Kel::Reactor initStatus_;
};

}  // namespace ZeroTouch
