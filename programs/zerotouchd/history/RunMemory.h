// What outlives a reboot of the runs of this switch: one file on the flash, as JSON.
//
// "runs" has a summary of each of the last runs, the present one last. "tree" holds the parts of the state
// tree that tell the present run, as the host would show them, so that a report can be made from them when
// no host runs any more. Their oldest entries are left out so that the file stays small.
#pragma once

#include "platform/kel/Child.h"
#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"
#include "platform/model/history.h"
#include "platform/statebase/Tree.h"

class RunMemory {
 public:
  // How often the file is written at most while attempts fail.
  static constexpr Kel::Seconds pause = 60;

  // What the tree has is read when the file is written; the caller makes sure that the history stands there.
  RunMemory(Kel::String path, Statebase::Tree const& tree);
  RunMemory(RunMemory const&) = delete;
  RunMemory& operator=(RunMemory const&) = delete;

  // Remembers the runs of `machine` from now on; null ends that, and writes what is not yet written.
  void follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine,
              Kel::Ptr<History::Log const> const& log);

 private:
  void attemptChanged(std::uint64_t number);
  void write();
  Kel::Value summary() const;
  Kel::Value remembered(std::size_t entries) const;
  void flush();

  Kel::String path_;
  Statebase::Tree const& tree_;
  Kel::ValueList earlier_;  // the summaries of earlier runs
  Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> machine_;
  Kel::Ptr<History::Log const> log_;
  std::uint64_t lastEnded_ = 0;  // the last attempt that has ended
  bool due_ = false;
  Kel::Seconds written_ = -Kel::never;
  Kel::String failure_;  // of the last time, so that it is told once
  Kel::Ptr<Kel::ChildSiginfo> flusher_;
  Kel::Reactor attempts_;
  Kel::Reactor reload_;
  Kel::Alarm write_{[this] { write(); }};
};
