// Writes down the attempts: one entry for each, with what was tried and what came of it.
#pragma once

#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"
#include "programs/zerotouchd/history/Ring.h"

class AttemptRecorder {
 public:
  AttemptRecorder(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine,
                  Ring<History::Attempt>& attempts);
  AttemptRecorder(AttemptRecorder const&) = delete;
  AttemptRecorder& operator=(AttemptRecorder const&) = delete;

 private:
  void stateEntered();
  void begin();
  void noteAnswer();
  void end(Kel::String const& outcome, bool success);

  Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> machine_;
  Ring<History::Attempt>& attempts_;
  std::uint64_t running_ = 0;  // the entry of the attempt that goes on; 0 for none
  History::Attempt attempt_;
  Kel::Reactor states_;
};
