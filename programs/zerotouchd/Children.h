// Which processes the host has started and that may still run, kept in a file: those that a killed host left
// behind are ended by the next one, so that no script and no client of an earlier run goes on beside its own.
#pragma once

#include <map>

#include "platform/kel/BootMemory.h"
#include "platform/kel/Child.h"

class Children : public Kel::ChildRunner {
 public:
  // Becomes the runner of this process. Call once no other host can run.
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
  // By process id the time of its start, which tells a process from a later one with its id.
  std::map<pid_t, std::uint64_t> running_;
};
