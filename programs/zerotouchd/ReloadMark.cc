#include "programs/zerotouchd/ReloadMark.h"

#include <utility>

#include "programs/zerotouchd/Console.h"

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : memory_(runDirectory + "/reload-is-due", Kel::BootMemory::inNamespace("uts")),
      left_(memory_.contents().has_value()) {}

// Nothing comes between a shutdown that is asked for and its state, so the mark is left at once.
void ReloadMark::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm) {
  using Notifiee = ZeroTouch::ZeroTouchSmModel::NotifieeConst;
  if (!sm) {
    transition_ = {};
    current_ = {};
    return;
  }
  transition_ = {sm, &Notifiee::onTransitionState,
                 [this, sm = sm.get()] { handleState(sm->transitionState()); }};
  current_ = {sm, &Notifiee::onCurrentState, [this, sm = sm.get()] { handleState(sm->currentState()); }};
}

void ReloadMark::handleState(ZeroTouch::ProvisioningState state) {
  if (state != ZeroTouch::ProvisioningState::stateShutdown || std::exchange(written_, true)) return;
  if (Kel::String const failure = memory_.keep(""); !failure.empty()) say(failure);
}
