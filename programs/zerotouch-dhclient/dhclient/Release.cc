#include "programs/zerotouch-dhclient/dhclient/Release.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "programs/zerotouch-dhclient/Process.h"

namespace {

constexpr unsigned grace = 3;  // seconds that the client has once it is asked to stop

sigset_t awaitedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : {SIGCHLD, SIGALRM, SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

[[noreturn]] void becomeClient(std::vector<std::string> const& arguments, pid_t parent,
                               sigset_t const& mask) {
  dieWithParent(parent, SIGKILL);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  become(arguments);
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

int runRelease(std::vector<std::string> const& arguments, pid_t parent) {
  sigset_t const awaited = awaitedSignals();
  sigset_t mask;
  std::signal(SIGCHLD, SIG_DFL);  // when this signal is ignored, the exit code of the child is lost
  sigprocmask(SIG_BLOCK, &awaited, &mask);
  dieWithParent(parent, SIGTERM);  // the end of the parent is a request to stop
  pid_t const self = getpid();
  pid_t const child = fork();
  if (child < 0) {
    std::fprintf(stderr, "zerotouch-dhclient: cannot start %s: %s\n", arguments[0].c_str(),
                 std::strerror(errno));
    return cannotExecute;
  }
  if (child == 0) becomeClient(arguments, self, mask);
  return waitFor(child, awaited);
}
