#include "programs/zerotouch-dhclient/dhcpcd/Watcher.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>

#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Process.h"

namespace {

using Clock = std::chrono::steady_clock;

sigset_t childSignal() {
  sigset_t result;
  sigemptyset(&result);
  sigaddset(&result, SIGCHLD);
  return result;
}

pid_t spawn(std::vector<std::string> const& arguments, std::vector<std::string> const& environment) {
  pid_t const child = fork();
  if (child < 0) complain("fork");
  if (child != 0) return child;
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  become(arguments, environment);
  _exit(cannotExecute);
}

// Waits for a signal of a child, until `end` at the latest; without one, for as long as it takes.
void waitForChild(sigset_t const& signals, Clock::time_point end) {
  if (end == Clock::time_point::max()) {
    sigwaitinfo(&signals, nullptr);
    return;
  }
  using namespace std::chrono;
  auto const left = std::max<nanoseconds>(end - Clock::now(), 0ns);
  timespec const limit{.tv_sec = duration_cast<seconds>(left).count(), .tv_nsec = (left % 1s).count()};
  sigtimedwait(&signals, nullptr, &limit);
}

}  // namespace

void start(std::string const& program, std::vector<std::string> const& environment) {
  spawn({program}, environment);
}

int watchClient(Watch const& watch) {
  sigset_t const signals = childSignal();
  std::signal(SIGCHLD, SIG_DFL);  // when this signal is ignored, the exit code of the child is lost
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  auto end =
      watch.patience == 0 ? Clock::time_point::max() : Clock::now() + std::chrono::seconds(watch.patience);
  pid_t const client = spawn(watch.client, watch.environment);
  if (client < 0) return cannotExecute;
  for (;;) {
    waitForChild(signals, end);
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
      if (child == client) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if (Clock::now() < end) continue;
    end = Clock::time_point::max();
    watch.late();
  }
}
