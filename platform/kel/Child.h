// Child processes: started and ended through an injected runner, so that tests need no real ones.
//
// Children start with an empty signal mask, default dispositions and no descriptors but the three standard
// ones.
#pragma once

#include <sys/types.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <map>
#include <vector>

#include "platform/kel/Clock.h"

namespace Kel {

// The record of one child.
class ChildSiginfo : public Entity {
 public:
  // The state codes that end a child; 0 while it runs.
  static constexpr std::uint32_t exited = 3;
  static constexpr std::uint32_t killed = 4;

  class NotifieeConst : public NotifieeBase {
   public:
    explicit NotifieeConst(Ptr<ChildSiginfo const> notifier) : NotifieeBase(notifier, 1) {}
    virtual void onStatusCode() {}
  };

  explicit ChildSiginfo(pid_t pid) : pid_(pid) {}

  // 0 when the child could not be started: it then reports on the next pass of the loop that it exited with
  // status 127.
  pid_t pid() const { return pid_; }
  std::uint32_t statusCode() const { return statusCode_.get(); }
  bool ended() const { return statusCode() == exited || statusCode() == killed; }
  // Valid once ended: the exit status when exited, the signal's number when killed.
  std::uint8_t exitStatus() const { return exitStatus_; }
  std::uint8_t signal() const { return signal_; }

  // Called by runners. The notification comes last, so that handlers see the whole record.
  void exitedIs(std::uint8_t status);
  void killedIs(std::uint8_t signal);

 private:
  pid_t pid_;
  Attr<std::uint32_t> statusCode_;
  std::uint8_t exitStatus_ = 0;
  std::uint8_t signal_ = 0;
};

class ChildRunner {
 public:
  virtual ~ChildRunner() = default;
  virtual Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) = 0;
  // For Kel::runContained. A runner that cannot contain a child starts it as any other.
  virtual Ptr<ChildSiginfo> runContained(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
    return run(argv, stdinFd, stdoutFd, stderrFd);
  }
  virtual int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) = 0;
  virtual int kill(pid_t pid, int signal) = 0;
  virtual void reap(pid_t pid) = 0;
};

// The runner of real processes, with a pidfd on the loop for each child.
class PosixChildRunner : public ChildRunner {
 public:
  Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) override;
  // Starts the child in the control group whose folder is open as `group` (cgroup v2), so that none of its
  // descendants is ever outside; where that is -1 or the kernel refuses it, in a session of its own.
  Ptr<ChildSiginfo> runApart(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd, int group);
  int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) override;
  int kill(pid_t pid, int signal) override;
  void reap(pid_t pid) override;

 private:
  struct Running {
    Ptr<ChildSiginfo> child;
    sd_event_source* source;
  };

  Ptr<ChildSiginfo> follow(pid_t pid);
  Ptr<ChildSiginfo> couldNotStart();
  void reportFailed();
  static int onEnd(sd_event_source*, siginfo_t const* info, void* self);

  // Records are held here until the child ends, so that it is reaped also when nobody else holds its record.
  std::map<pid_t, Running> running_;
  std::vector<Ptr<ChildSiginfo>> failed_;  // those that could not be started, to be told on the next pass
  Alarm reportFailed_{[this] { reportFailed(); }};
};

// Starts argv[0] with the null-terminated `argv` and the environment of this process. A descriptor of -1
// means the process's own. `reserved` is always -1. Never null: a child that cannot be started has a record
// too.
Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd, int reserved);

// The same for a program that nobody vouches for: unless it ends by itself with exit status 0, what it has
// started ends with it, and what it writes to the given descriptors is bounded, where the runner can see to
// that.
Ptr<ChildSiginfo> runContained(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd);

// Runs a program without arguments and waits for its end, at most `timeout` seconds (-1: 10), then kills it:
// the loop stands still meanwhile. Returns the exit status, 128 + the signal that ended it, or 127 when it
// could not be started.
int runAndWait(char const* path, int stdinFd = -1, int stdoutFd = -1, int stderrFd = -1, int timeout = -1);

// kill(2) for a single process. An id below 2 is refused with ESRCH: it means init, a group or everybody.
int kill(pid_t pid, int signal);

// Whether `pid` ends within `timeout` seconds: the loop stands still meanwhile. Does not reap it.
bool endsWithin(pid_t pid, int timeout);

// Reaps the child `pid` if it has ended (waitpid(2) with WNOHANG), whoever started it. Nothing happens when
// it still runs or is no child.
void reap(pid_t pid);

// The process's runner: real processes unless a test has put its own (nullptr: back to the real one).
ChildRunner& childRunner();
void childRunnerIs(ChildRunner* runner);

}  // namespace Kel
