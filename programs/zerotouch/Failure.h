// How a verb that did not succeed ends: what is said on standard error, and the exit code.
#pragma once

#include <string>
#include <vector>

namespace ZeroTouchCommand {

struct Context;

enum ExitCode {
  ok = 0,
  failed = 1,
  wrongUsage = 2,
  notRunning = 3,
  notPermitted = 4,
  // status --wait: its time is over, or what it waited for cannot come about any more.
  waitTimedOut = 5,
  endedProvisioned = 6,
  endedOutOfTime = 7,
  endedCancelled = 8,
  isDisabled = 9,
  // rehearse: nobody has answered, no answer can be used, the download fails, the file would not do.
  noOffer = 10,
  noUsableOffer = 11,
  downloadFails = 12,
  fileRefused = 13,
};

// Says the message on standard error, as JSON where the context asks for that, and returns `code`.
ExitCode fail(Context const& context, ExitCode code, std::string const& message);

// Says what the exception that is being handled means. Call it in a catch clause.
ExitCode reportFailure(Context const& context);

// Writes out what was printed. A reader who has stopped reading is no failure.
ExitCode finishOutput(Context const& context);

// The candidate closest to a word that somebody mistyped, whatever the case; empty when none is close.
std::string nearest(std::string const& word, std::vector<std::string> const& candidates);
// " (did you mean X?)", or nothing.
std::string didYouMean(std::string const& word, std::vector<std::string> const& candidates);

}  // namespace ZeroTouchCommand
