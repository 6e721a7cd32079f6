#include "zerotouch/agent/EntityMibRootSm.h"

#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

EntityMibRootSm::EntityMibRootSm(ZeroTouchSm* ztSm, Kel::Ptr<EntityMib::Fru const> const& entityMibRoot)
    : EntityMibRootSmModel(entityMibRoot), ztSm_(ztSm) {
  if (entityMibRoot)
    initStatus_ = Kel::Reactor(entityMibRoot, &EntityMib::Fru::NotifieeConst::onInitStatus, this,
                               &EntityMibRootSm::handleEntityMibInitStatus);
  handleEntityMibInitStatus();
}

void EntityMibRootSm::handleEntityMibInitStatus() {
  KEL_TRACE(traceZeroTouchSm, 8,
            "EntityMibRootSm::" << __func__ << " initStatus:"
                                << (entityMibRoot() ? stringValue(entityMibRoot()->initStatus()) : "none"));
  ztSm_->doTryStartZeroTouch();
}

void ZeroTouchSm::handleEntityMibRoot() {
  SM_TRACE(8, "");
  auto const root = entityMibStatus() ? entityMibStatus()->root() : nullptr;
  if (root) {
    entityMibRootSmIs(this, root);
  } else {
    entityMibRootSmDel();
  }
}

Kel::Ptr<EntityMib::Fru const> ZeroTouchSm::chassis() const {
  auto const root = entityMibStatus() ? entityMibStatus()->root() : nullptr;
  return root ? Kel::Ptr<EntityMib::Fru const>(root) : chassis_;
}

Kel::Ptr<EntityMibRootSm> ZeroTouchSm::entityMibRootSmIs(ZeroTouchSm* ztSm,
                                                         Kel::Ptr<EntityMib::Fru const> const& root) {
  if (!entityMibRootSm_ || entityMibRootSm_->entityMibRoot() != root) {
    entityMibRootSm_ = Kel::makePtr<EntityMibRootSm>(ztSm, root);
  }
  return entityMibRootSm_;
}

}  // namespace ZeroTouch
