// What a host has to know about the boot that it runs in: whether provisioning is on, and whether a run of
// this boot has ended already. Marks in the run directory tell it to a host that is started again within the
// boot.
#pragma once

#include "platform/kel/BootMemory.h"
#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"

// Whether provisioning is on when the system has booted.
struct ProvisioningSwitch {
  bool on;
  Kel::String reason;  // a text for people
};

// A sentence for people, with the reason.
Kel::String stringValue(ProvisioningSwitch const& provisioning);

// Whether what counts for one boot is consumed by looking at it.
enum class Reading { consumes, only };

// Off when there is a startup configuration on flash, and off for one boot when the settings file says
// DISABLE=NextReload. That entry is consumed here, unless it is only read; a mark in `runDirectory`, which
// names this boot, keeps provisioning off when the host is started again within it.
ProvisioningSwitch provisioningAtBoot(Kel::String const& runDirectory, Reading reading = Reading::consumes);

// The mark that a run of this boot has come to stateShutdown. A host that is started again before the system
// has reloaded neither begins another run nor undoes anything, but sees to the reload.
class ReloadMark {
 public:
  explicit ReloadMark(Kel::String const& runDirectory);
  ReloadMark(ReloadMark const&) = delete;
  ReloadMark& operator=(ReloadMark const&) = delete;

  // Whether an earlier host of this boot has left it.
  bool left() const { return left_; }
  Kel::String const& path() const { return memory_.path(); }
  // Leaves the mark once `sm` comes to stateShutdown; null ends that.
  void follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm);

 private:
  void leave();

  Kel::BootMemory memory_;
  bool left_;
  bool written_ = false;
  Kel::Reactor reactor_;
};
