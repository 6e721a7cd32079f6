// A runner that starts nothing: it records what it is asked for, and a test ends the children by hand.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "platform/kel/Child.h"
#include "platform/kel/Types.h"

namespace Kel::testing {

class FakeChildRunner : public ChildRunner {
 public:
  struct Started {
    Ptr<ChildSiginfo> child;
    std::vector<String> argv;
    std::vector<int> descriptors;
    std::vector<int> signals;  // sent to it so far
  };

  FakeChildRunner() { childRunnerIs(this); }
  ~FakeChildRunner() override { childRunnerIs(nullptr); }

  std::vector<Started> started;
  std::vector<std::pair<pid_t, int>> strayed;  // signals sent to processes that are none of its children
  std::vector<pid_t> reaped;
  std::vector<String> ranAndWaited;  // paths
  // Called for each runAndWait; its result is the exit status.
  std::function<int(char const* path)> onRunAndWait = [](char const*) { return 0; };

  Started& last() { return started.back(); }

  Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) override {
    Started& start = started.emplace_back();
    start.child = makePtr<ChildSiginfo>(nextPid_++);
    for (; *argv != nullptr; ++argv) start.argv.emplace_back(*argv);
    start.descriptors = {stdinFd, stdoutFd, stderrFd};
    return start.child;
  }

  int runAndWait(char const* path, int, int, int, int) override {
    ranAndWaited.emplace_back(path);
    return onRunAndWait(path);
  }

  int kill(pid_t pid, int signal) override {
    for (Started& start : started) {
      if (start.child->pid() == pid && !start.child->ended()) {
        start.signals.push_back(signal);
        return 0;
      }
    }
    strayed.emplace_back(pid, signal);
    return 0;
  }

  void reap(pid_t pid) override { reaped.push_back(pid); }

 private:
  // Above every id that the kernel gives out (PID_MAX_LIMIT), in case a signal gets past this runner.
  pid_t nextPid_ = 5'000'000;
};

}  // namespace Kel::testing
