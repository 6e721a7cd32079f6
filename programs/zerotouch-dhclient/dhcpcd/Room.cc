#include "programs/zerotouch-dhclient/dhcpcd/Room.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Process.h"

namespace {

// By their numbers in the kernel (capabilities(7)).
enum class Capability { kill = 5, setgid = 6, setuid = 7, netBindService = 10, netRaw = 13, sysChroot = 18 };

// dhcpcd opens raw sockets and its ports, then gives up root in a chroot; what remains of root ends the
// others.
constexpr std::array kept = {Capability::kill,           Capability::setgid, Capability::setuid,
                             Capability::netBindService, Capability::netRaw, Capability::sysChroot};

bool dropCapabilities() {
  for (int number = 0; prctl(PR_CAPBSET_READ, number) >= 0; ++number) {
    bool const isKept = std::ranges::find(kept, Capability(number)) != kept.end();
    if (!isKept && prctl(PR_CAPBSET_DROP, number) != 0) return false;
  }
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

bool mountEmpty(char const* path, unsigned long flags) {
  return mount("tmpfs", path, "tmpfs", flags | MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755,size=4m") == 0;
}

// Returns the name of what went wrong; null when nothing did.
char const* furnish() {
  constexpr char const* runDirectory = "/run/dhcpcd";
  constexpr char const* stateDirectory = "/var/lib/dhcpcd";
  constexpr char const* settings = "/proc/sys";
  // What the system unmounts goes from here too; what is mounted here is not seen outside.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) return "mount namespace";
  for (char const* const path : {runDirectory, stateDirectory}) {
    mkdir(path, 0755);
    if (!mountEmpty(path, 0)) return path;
  }
  if (!mountEmpty(settings, MS_RDONLY)) return settings;
  return dropCapabilities() ? nullptr : "capabilities";
}

// Whether the process at the other end of the pipe has ended.
bool isAlone(int pipe) {
  pollfd end{.fd = pipe, .events = 0, .revents = 0};
  return poll(&end, 1, 0) != 0;
}

constexpr long grace = 200'000'000;  // nanoseconds

sigset_t awaitedSignals() {
  sigset_t result;
  sigemptyset(&result);
  for (int const signal : {SIGCHLD, SIGTERM}) sigaddset(&result, signal);
  return result;
}

int codeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

int runInRoom(std::function<int()> const& watcher) {
  std::array<int, 2> life{};
  if (pipe2(life.data(), O_CLOEXEC) != 0 || unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) {
    complain("namespaces");
    return cannotExecute;
  }
  sigset_t const awaited = awaitedSignals();
  std::signal(SIGCHLD, SIG_DFL);  // when this signal is ignored, the exit code of the child is lost
  sigprocmask(SIG_BLOCK, &awaited, nullptr);
  pid_t const first = fork();
  if (first == 0) {
    // Within the namespace the parent has no process id, so the pipe tells whether it is still there.
    close(life[1]);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (isAlone(life[0])) _exit(cannotExecute);
    if (char const* const wrong = furnish()) {
      complain(wrong);
      _exit(cannotExecute);
    }
    _exit(watcher());
  }
  if (first < 0) {
    complain("fork");
    return cannotExecute;
  }
  for (timespec const* limit = nullptr;;) {
    int const signal = sigtimedwait(&awaited, nullptr, limit);
    int status = 0;
    if (waitpid(first, &status, WNOHANG) == first) return codeOf(status);
    static constexpr timespec graceTime{.tv_sec = 0, .tv_nsec = grace};
    if (signal == SIGTERM) limit = &graceTime;
    if (signal < 0 && errno == EAGAIN) _exit(0);  // and with it the room
  }
}
