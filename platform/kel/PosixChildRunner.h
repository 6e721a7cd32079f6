// The runner of real processes: posix_spawn, and a pidfd on the loop for each child.
#pragma once

#include <systemd/sd-event.h>

#include <map>
#include <set>

#include "platform/kel/Child.h"
#include "platform/kel/Clock.h"

namespace Kel {

class PosixChildRunner : public ChildRunner {
 public:
  Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) override;
  int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) override;
  int kill(pid_t pid, int signal) override;
  void reap(pid_t pid) override;

 private:
  // Reports a child that could not be started, on the next pass of the loop.
  class FailedStart : public Clock::NotifieeConst {
   public:
    FailedStart(PosixChildRunner& runner, Ptr<ChildSiginfo> child);
    void onTime() override;

   private:
    PosixChildRunner& runner_;
    Ptr<ChildSiginfo> child_;
  };

  struct Running {
    Ptr<ChildSiginfo> child;
    sd_event_source* source;
  };

  static int onEnd(sd_event_source*, siginfo_t const* info, void* self);

  // Held here until the end, so that a child is reaped also when nobody holds its record any more.
  std::map<pid_t, Running> running_;
  std::map<FailedStart*, Ptr<FailedStart>> failed_;
};

}  // namespace Kel
