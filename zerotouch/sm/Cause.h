// Why the state changes. Whoever asks for a change says it (ZeroTouchSm::doStateTransition); the history, the
// command line and the report repeat it.
#pragma once

#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

struct Cause {
  // `about` names what the cause concerns, where there is more to say than its own sentence does. The problem
  // is that which the kind stands for, unless it is known better.
  Cause(TransitionCause why, Kel::String about = "");
  Cause(TransitionCause why, Trouble about);

  // The sentence for people, without a full stop: "the download has failed: Couldn't connect to server".
  Kel::String reason() const;
  // Whether the switch has got what it needs.
  bool isSuccess() const;

  TransitionCause kind;
  Kel::String argument;
  Problem problem;
};

}  // namespace ZeroTouch
