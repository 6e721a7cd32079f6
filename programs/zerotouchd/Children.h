// Runs the processes of the host, and keeps in a file which of them may still run. When a host was killed,
// the next one ends those processes, so that no script and no client of an earlier run goes on beside its
// own.
#pragma once

#include <map>

#include "platform/kel/BootMemory.h"
#include "platform/kel/Child.h"

class Children : public Kel::ChildRunner {
 public:
  // Ends what an earlier host has left behind, and becomes the runner of this process. The caller makes sure
  // that no other host runs.
  explicit Children(Kel::String const& runDirectory);
  ~Children() override;
  Children(Children const&) = delete;
  Children& operator=(Children const&) = delete;

  Kel::Ptr<Kel::ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) override;
  int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) override;
  int kill(pid_t pid, int signal) override;
  void reap(pid_t pid) override;

 private:
  void endLeftovers() const;
  void write() const;

  Kel::PosixChildRunner runner_;
  Kel::BootMemory memory_;
  // The time of the start by process id: a later process with the same id has another one.
  std::map<pid_t, std::uint64_t> running_;
};
