// That a run of this boot has come to stateShutdown, kept in the run directory: a host that is started again
// before the system has reloaded neither begins another run nor undoes anything, but sees to the reload.
#pragma once

#include "platform/kel/BootMemory.h"
#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"

class ReloadMark {
 public:
  explicit ReloadMark(Kel::String const& runDirectory);
  ReloadMark(ReloadMark const&) = delete;
  ReloadMark& operator=(ReloadMark const&) = delete;

  // Whether an earlier host of this boot has left it.
  bool left() const { return left_; }
  Kel::String const& path() const { return memory_.path(); }
  // Null: nobody any more.
  void follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm);

 private:
  void handleState(ZeroTouch::ProvisioningState state);

  Kel::BootMemory memory_;
  bool left_;
  bool written_ = false;
  Kel::Reactor transition_;
  Kel::Reactor current_;
};
