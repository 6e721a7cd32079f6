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

// The arguments of a child, with what becomes its standard input, output and error; -1 leaves it as it is.
struct Command {
  char const* const* argv;
  int descriptors[3];
};

// Returns 0, or the error number. `flags` are further ones of posix_spawnattr_setflags.
int spawn(pid_t& pid, Command const& command, short flags = 0) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int target = 0; target < 3; ++target) {
    if (command.descriptors[target] < 0) continue;
    posix_spawn_file_actions_adddup2(&actions, command.descriptors[target], target);
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
  posix_spawnattr_setflags(&attributes,
                           static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | flags));

  // posix_spawn does not write to argv; its type is older than const.
  int const error = posix_spawn(&pid, command.argv[0], &actions, &attributes,
                                const_cast<char* const*>(command.argv), environ);  // NOLINT
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// What the new process does until it becomes the program, as posix_spawn would. Like any child of a process
// that may have threads, it calls nothing that takes a lock. A program that cannot be executed has exit
// status 127.
[[noreturn]] void become(Command const& command) {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  for (int target = 0; target < 3; ++target) {
    int const source = command.descriptors[target];
    if (source == target) {
      fcntl(target, F_SETFD, 0);
    } else if (source >= 0 && dup2(source, target) < 0) {
      _exit(cannotStart);
    }
  }
  close_range(3, ~0U, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execve(command.argv[0], const_cast<char* const*>(command.argv), environ);  // NOLINT
  _exit(cannotStart);
}

// posix_spawn of this C library cannot start a child in a control group, so this makes the system call
// itself. Returns whether the child is there.
bool spawnInGroup(pid_t& pid, Command const& command, int group) {
  struct {  // the kernel's struct clone_args, in its third version
    std::uint64_t flags, pidfd, childTid, parentTid, exitSignal, stack, stackSize, tls, setTid, setTidSize,
        cgroup;
  } arguments{};
  constexpr std::uint64_t cloneIntoCgroup = 0x200000000;
  arguments.flags = cloneIntoCgroup;
  arguments.exitSignal = SIGCHLD;
  arguments.cgroup = static_cast<std::uint64_t>(group);
  auto const child = syscall(SYS_clone3, &arguments, sizeof arguments);
  if (child == 0) become(command);
  pid = static_cast<pid_t>(child);
  return child > 0;
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
  Loop::instance();  // blocks SIGCHLD before the first child can end
  pid_t pid = 0;
  bool const started = spawn(pid, {argv, {stdinFd, stdoutFd, stderrFd}}) == 0;
  return started ? follow(pid) : couldNotStart();
}

Ptr<ChildSiginfo> PosixChildRunner::runApart(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd,
                                             int group) {
  KEL_ASSERT(argv != nullptr && argv[0] != nullptr, "argv[0]");
  Loop::instance();
  Command const command{argv, {stdinFd, stdoutFd, stderrFd}};
  pid_t pid = 0;
  bool const started =
      (group >= 0 && spawnInGroup(pid, command, group)) || spawn(pid, command, POSIX_SPAWN_SETSID) == 0;
  return started ? follow(pid) : couldNotStart();
}

Ptr<ChildSiginfo> PosixChildRunner::couldNotStart() {
  auto child = makePtr<ChildSiginfo>(0);
  failed_.push_back(child);
  reportFailed_.in(0);
  return child;
}

Ptr<ChildSiginfo> PosixChildRunner::follow(pid_t pid) {
  Loop& loop = Loop::instance();
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
  if (spawn(pid, {argv, {stdinFd, stdoutFd, stderrFd}}) != 0) return cannotStart;
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

Ptr<ChildSiginfo> runContained(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
  return childRunner().runContained(argv, stdinFd, stdoutFd, stderrFd);
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

void reap(pid_t pid) {
  if (pid > 1) childRunner().reap(pid);
}

}  // namespace Kel
