#include "programs/zerotouch-dhclient/Shim.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr unsigned grace = 3;  // seconds that the client has once it is asked to stop
constexpr int cannotExecute = 127;

sigset_t awaitedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : {SIGCHLD, SIGALRM, SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

[[noreturn]] void becomeClient(char* const* argv, pid_t parent, sigset_t const& mask) {
  dieWithParent(parent, SIGKILL);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execv(argv[0], argv);
  std::fprintf(stderr, "zerotouch-dhclient: %s: %s\n", argv[0], std::strerror(errno));
  _exit(cannotExecute);
}

// Waits until the child has ended, and returns its exit code.
int waitFor(pid_t child, sigset_t const& awaited) {
  bool stopping = false;
  for (;;) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child)
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    int signal = 0;
    sigwait(&awaited, &signal);
    if (signal == SIGALRM) {
      kill(child, SIGKILL);
    } else if (signal != SIGCHLD && !stopping) {
      stopping = true;
      alarm(grace);
    }
  }
}

}  // namespace

void dieWithParent(pid_t parent, int signal) {
  prctl(PR_SET_PDEATHSIG, signal);
  if (getppid() != parent) raise(signal);
}

int runRelease(char* const* argv, pid_t parent) {
  sigset_t const awaited = awaitedSignals();
  sigset_t mask;
  std::signal(SIGCHLD, SIG_DFL);  // when this signal is ignored, the exit code of the child is lost
  sigprocmask(SIG_BLOCK, &awaited, &mask);
  dieWithParent(parent, SIGTERM);  // the end of the parent is a request to stop
  pid_t const self = getpid();
  pid_t const child = fork();
  if (child < 0) {
    std::fprintf(stderr, "zerotouch-dhclient: cannot start %s: %s\n", argv[0], std::strerror(errno));
    return cannotExecute;
  }
  if (child == 0) becomeClient(argv, self, mask);
  return waitFor(child, awaited);
}
