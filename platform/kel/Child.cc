#include "platform/kel/Child.h"

#include <cerrno>

#include "platform/kel/PosixChildRunner.h"

namespace Kel {

namespace {
ChildRunner* injected = nullptr;
}

void ChildSiginfo::exitedIs(std::uint8_t status) {
  exitStatus_ = status;
  statusCode_.set(*this, 1, "statusCode", exited, &NotifieeConst::onStatusCode);
}

void ChildSiginfo::killedIs(std::uint8_t signal) {
  signal_ = signal;
  statusCode_.set(*this, 1, "statusCode", killed, &NotifieeConst::onStatusCode);
}

ChildRunner& childRunner() {
  static PosixChildRunner real;
  return injected != nullptr ? *injected : real;
}

void childRunnerIs(ChildRunner* runner) { injected = runner; }

Ptr<ChildSiginfo> run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd, int) {
  return childRunner().run(argv, stdinFd, stdoutFd, stderrFd);
}

int runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) {
  constexpr int defaultTimeout = 10;
  return childRunner().runAndWait(path, stdinFd, stdoutFd, stderrFd, timeout < 0 ? defaultTimeout : timeout);
}

int kill(pid_t pid, int signal) {
  if (pid <= 1) {
    errno = ESRCH;
    return -1;
  }
  return childRunner().kill(pid, signal);
}

void reap(pid_t pid) {
  if (pid > 1) childRunner().reap(pid);
}

}  // namespace Kel
