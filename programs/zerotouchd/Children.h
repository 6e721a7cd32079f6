// Runs the processes of the host, and keeps in a file which of them may still run. When a host was killed,
// the next one ends those processes, so that no script and no client of an earlier run goes on beside its
// own.
//
// A contained child, the configuration script, is the first of a group of processes. Unless it ends by itself
// with exit status 0, all that is left of the group is ended with it; what a script that succeeds leaves
// running goes on until another contained child is started or the host stops. What it writes goes through
// CapturedOutput.
#pragma once

#include <list>
#include <map>
#include <memory>

#include "platform/kel/BootMemory.h"
#include "platform/kel/Child.h"
#include "programs/zerotouchd/CapturedOutput.h"
#include "programs/zerotouchd/ProcessGroup.h"

class Children : public Kel::ChildRunner {
 public:
  // Ends what an earlier host has left behind, and becomes the runner of this process. The caller makes sure
  // that no other host runs. Groups are made below the control group `parent`, a folder, or are sessions when
  // that is "".
  explicit Children(Kel::String const& runDirectory, std::string parent = ownControlGroup());
  ~Children() override;
  Children(Children const&) = delete;
  Children& operator=(Children const&) = delete;

  Kel::Ptr<Kel::ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) override;
  Kel::Ptr<Kel::ChildSiginfo> runContained(char const* const* argv, int stdinFd, int stdoutFd,
                                           int stderrFd) override;
  int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) override;
  // SIGKILL for a contained child ends all of its group.
  int kill(pid_t pid, int signal) override;
  void reap(pid_t pid) override;

 private:
  struct Contained {
    Contained(ProcessGroup processes, int stdoutFd, int stderrFd)
        : group(std::move(processes)), out(stdoutFd), err(stderrFd) {}

    ProcessGroup group;
    CapturedOutput out, err;
    Kel::Ptr<Kel::ChildSiginfo> child;
    Kel::Reactor status;
    bool signalled = false;
    bool over = false;  // its group is to be ended
  };

  void handleEnd(Contained& contained);
  void endContained(Contained& contained);
  void endGroups();
  void endLeftovers() const;
  void write() const;

  Kel::PosixChildRunner runner_;
  Kel::BootMemory memory_;
  std::string const parent_;
  // The time of the start by process id: a later process with the same id has another one.
  std::map<pid_t, std::uint64_t> running_;
  std::list<Contained> contained_;
  Kel::Alarm endGroups_{[this] { endGroups(); }};
};
