// status --wait: the status once something has come about, with an exit code for each way in which it ends.
#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Follow.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/States.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// What is waited for, and whether it has come about.
class Wait {
 public:
  explicit Wait(std::string const& until) : until_(until) {
    if (until != "provisioned" && until != "failed") checkState("--wait", until);
  }

  void entered(Kel::Value const& entry) {
    last_ = memberText(entry, "state");
    bool const failure = last_ == "stateRetry" || last_ == "stateRetryFetchConfig";
    reached_ = reached_ || last_ == until_ || (failure && until_ == "failed");
  }

  bool reached(Kel::Value const& status) const {
    bool const failedBefore = at(status, {"lastFailure"}) != Kel::Value();
    return reached_ || outcome(status) == until_ || (failedBefore && until_ == "failed");
  }

  // Throws WaitedInVain when what is waited for cannot come about any more.
  void checkHope(Kel::Value const& status) const {
    // The status may be ahead of the states of which the host has told: one of these may be it.
    if (memberText(at(status, {"sm"}), "currentState") != last_) return;
    std::string const end = outcome(status);
    if (end == "provisioned")
      throw WaitedInVain(endedProvisioned, "the run has ended: the switch is provisioned");
    if (end == "out of time") throw WaitedInVain(endedOutOfTime, "the run has ended: it was out of time");
    if (end == "cancelled") throw WaitedInVain(endedCancelled, "the run has ended: it was cancelled");
    if (last_ == "stateInit" && !isTrue(at(status, {"config", "enabled"})))
      throw WaitedInVain(isDisabled, "provisioning is disabled");
  }

 private:
  std::string until_;
  std::string last_;  // state that was entered, as far as the host has told
  bool reached_ = false;
};

void await(Context const& context, Wait& wait, Kel::Seconds timeout, Kel::Value& status) {
  Kel::Seconds const end = Kel::now() + timeout;
  Statebase::Client host(context.socketPath);
  StateFollower follower(host, [&](Kel::Value const& entry) { wait.entered(entry); });
  follower.begin();
  context.whileHostRuns([&] {
    for (;;) {
      // Changes come one by one, so that only what is read anew is of one moment.
      status = fetchStatus(host);
      if (wait.reached(status)) return;
      wait.checkHope(status);
      Kel::Seconds const left = end - Kel::now();
      if (left <= 0 || (!follower.takeChange(left) && Kel::now() >= end))
        throw WaitedInVain(waitTimedOut, "waited for " + duration(timeout) + " in vain");
    }
  });
}

}  // namespace

void waitForStatus(Context const& context, std::string const& until, Kel::Seconds timeout) {
  Wait wait(until);
  Kel::Value status;
  try {
    await(context, wait, timeout, status);
  } catch (WaitedInVain const&) {
    printStatus(context, status);
    throw;
  }
  printStatus(context, status);
}

}  // namespace ZeroTouchCommand
