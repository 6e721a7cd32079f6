// How long the waits of a run really are: what platform.toml's [pacing], and the keys of other sections that
// change a wait, make of the usual waits. With all of them absent, every wait is the usual one.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

// A wait, and what it is for where that is not plain: a sentence for people, or "".
struct Wait {
  Kel::Seconds time;
  Kel::String purpose;
};

// Belongs to one state machine. `usual` is the time in seconds that the wait would have otherwise; one
// that never ends stays so. `failed` is how many attempts have failed.
class Pacing {
 public:
  // For the ports to be set up: longer by up to start_jitter.
  Wait beforeFirstQuery(Kel::Seconds usual) const;
  // For answers: doubled with each failed attempt where pauses grow, and four times as long with the timing
  // of the protocols; never longer than that.
  Wait forAnswers(Kel::Seconds usual, unsigned failed) const;
  // The two pauses: doubled with each further failed attempt up to retry_backoff_max, no shorter than a
  // server has asked for, and then longer by up to retry_jitter of all that.
  Wait beforeDownload(Kel::Seconds usual, unsigned failed) const;
  Wait beforeAttempt(Kel::Seconds usual, unsigned failed) const;
  // For a download: the usual one, or, when it ends with a stall instead, a day.
  Wait forDownload(Kel::Seconds usual) const;

  // A server has asked, in an answer that comes now, not to be asked again for so long. Ignored unless
  // retry_after is on; at most 10 minutes.
  void serverAsksFor(Kel::Seconds pause);
  // A run begins, which knows of no server yet.
  void forget() { notBefore_ = 0; }

 private:
  Wait pause(Kel::Seconds usual, Kel::Seconds grown, unsigned failed, char const* before) const;

  Kel::Seconds notBefore_ = 0;  // the time up to which a server has asked for a pause
};

}  // namespace ZeroTouch
