#include "platform/kel/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/Loop.h"

namespace Kel {

namespace {

ChildRunner* injected = nullptr;

constexpr std::uint8_t cannotStart = 127;

// Returns 0, or the error number.
int spawn(pid_t& pid, char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int const wanted[] = {stdinFd, stdoutFd, stderrFd};
  for (int target = 0; target < 3; ++target) {
    if (wanted[target] >= 0) posix_spawn_file_actions_adddup2(&actions, wanted[target], target);
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  // posix_spawn does not write to argv; its type is older than const.
  int const error =
      posix_spawn(&pid, argv[0], &actions, &attributes, const_cast<char* const*>(argv), environ);  // NOLINT
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// Whether the child ends within `timeout` seconds. Does not reap it.
bool endsWithin(pid_t pid, int timeout) {
  int const pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (pidfd < 0) return false;
  using std::chrono::steady_clock;
  auto const deadline = steady_clock::now() + std::chrono::seconds(timeout);
  pollfd end{pidfd, POLLIN, 0};
  int ready = 0;
  do {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    ready = poll(&end, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX)));
  } while (ready < 0 && errno == EINTR);
  close(pidfd);
  return ready > 0;
}

}  // namespace

void ChildSiginfo::exitedIs(std::uint8_t status) {
  exitStatus_ = status;
  statusCode_.set(*this, 1, "statusCode", exited, &NotifieeConst::onStatusCode);
}

void ChildSiginfo::killedIs(std::uint8_t signal) {
  signal_ = signal;
  statusCode_.set(*this, 1, "statusCode", killed, &NotifieeConst::onStatusCode);
}

void PosixChildRunner::reportFailed() {
  for (Ptr<ChildSiginfo> const& child : std::exchange(failed_, {})) child->exitedIs(cannotStart);
}

Ptr<ChildSiginfo> PosixChildRunner::run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
  KEL_ASSERT(argv != nullptr && argv[0] != nullptr, "argv[0]");
  pid_t pid = 0;
  Loop& loop = Loop::instance();  // blocks SIGCHLD before the first child can end
  if (spawn(pid, argv, stdinFd, stdoutFd, stderrFd) != 0) {
    auto child = makePtr<ChildSiginfo>(0);
    failed_.push_back(child);
    reportFailed_.in(0);
    return child;
  }
  auto child = makePtr<ChildSiginfo>(pid);
  sd_event_source* source = nullptr;
  int const added = sd_event_add_child(loop.event(), &source, pid, WEXITED, onEnd, this);
  KEL_ASSERT(added >= 0, "sd_event_add_child");
  loop.sourceAdded();
  running_.emplace(pid, Running{child, source});
  return child;
}

int PosixChildRunner::onEnd(sd_event_source*, siginfo_t const* info, void* self) {
  auto& runner = *static_cast<PosixChildRunner*>(self);
  auto const found = runner.running_.find(info->si_pid);
  if (found == runner.running_.end()) return 0;
  Running const ended = found->second;
  runner.running_.erase(found);
  sd_event_source_disable_unref(ended.source);
  Loop::instance().sourceRemoved();
  if (info->si_code == CLD_EXITED) {
    ended.child->exitedIs(static_cast<std::uint8_t>(info->si_status));
  } else {
    ended.child->killedIs(static_cast<std::uint8_t>(info->si_status));
  }
  return 0;
}

int PosixChildRunner::runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) {
  char const* const argv[] = {path, nullptr};
  pid_t pid = 0;
  if (spawn(pid, argv, stdinFd, stdoutFd, stderrFd) != 0) return cannotStart;
  if (!endsWithin(pid, timeout)) ::kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int PosixChildRunner::kill(pid_t pid, int signal) { return ::kill(pid, signal); }

void PosixChildRunner::reap(pid_t pid) {
  // Children of the loop are reaped there: waitpid() here would take their status away from it.
  if (!running_.contains(pid)) waitpid(pid, nullptr, WNOHANG);
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
