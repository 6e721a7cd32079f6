// Why the state changes. Whoever asks for a change says it (ZeroTouchSm::doStateTransition); the history, the
// command line and the report repeat it.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

struct Cause {
  // `about` names what the cause concerns, where there is more to say than its own sentence does.
  Cause(TransitionCause why, Kel::String about = "") : kind(why), argument(std::move(about)) {}

  // The sentence for people, without a full stop: "the download has failed: Couldn't connect to server".
  Kel::String reason() const;
  // Whether the switch has got what it needs.
  bool isSuccess() const;

  TransitionCause kind;
  Kel::String argument;
};

}  // namespace ZeroTouch
