// How often a host was started in this boot, and how the last one ended. A file of the run directory keeps
// it: the count, and the last words of the host that wrote it. A host that leaves no last words was killed.
#pragma once

#include "platform/kel/BootMemory.h"

class LastWords {
 public:
  // Reads what the last host has left, counts this one, and listens for its crash: the signal, or the
  // assertion that failed, is written down before the process ends as it would have ended. There is one
  // object in a process, made when no other host can run.
  explicit LastWords(Kel::String const& runDirectory);
  ~LastWords();
  LastWords(LastWords const&) = delete;
  LastWords& operator=(LastWords const&) = delete;

  unsigned starts() const { return starts_; }
  // What the host before did, as in "was stopped (Terminated)"; "" when this one is the first.
  Kel::String const& lastEnd() const { return lastEnd_; }
  // Whether it did not end because somebody had asked for that.
  bool lastCrashed() const;

  // Writes down how this host ends, in the same words.
  void say(Kel::String const& how) const;

 private:
  Kel::BootMemory memory_;
  unsigned starts_ = 1;
  Kel::String lastEnd_;
};
