// The states of a run as they are entered, for verbs that wait for one.
#pragma once

#include <functional>
#include <string>

#include "programs/zerotouch/Status.h"

namespace ZeroTouchCommand {

// Follows the status and the history, in which each state that was entered is an entry of its own: none is
// missed, however soon it was left.
class StateFollower {
 public:
  using Entered = std::function<void(Kel::Value const& entry)>;

  // `entered` is called with the history's entry of each state that is entered. Throws what Statebase::Client
  // throws.
  StateFollower(Statebase::Client& host, Entered entered);

  // Calls `entered` for the present state, before anything else. Throws Refused when no agent is loaded.
  void begin();
  // The present status.
  Kel::Value status() const { return statusOf(snapshot_); }
  // Takes over the next change, for which it waits at most so many seconds; false when none has come.
  bool takeChange(Kel::Seconds seconds);

 private:
  Statebase::Client& host_;
  Entered entered_;
  Snapshot snapshot_;
};

}  // namespace ZeroTouchCommand
