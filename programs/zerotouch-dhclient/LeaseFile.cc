#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Identifier.h"
#include "programs/zerotouch-dhclient/Shim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

// Whether the file could be locked; the wait ends with the alarm.
bool lockWithin(int file, unsigned seconds) {
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};  // without SA_RESTART, so that the call is interrupted
  sigaction(SIGALRM, &interrupt, nullptr);
  sigset_t set, mask;
  sigemptyset(&set);
  sigaddset(&set, SIGALRM);
  sigprocmask(SIG_UNBLOCK, &set, &mask);
  alarm(seconds);
  bool const locked = flock(file, LOCK_EX) == 0;
  alarm(0);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  std::signal(SIGALRM, SIG_DFL);
  return locked;
}

}  // namespace

void waitForRelease(char const* leaseFile, bool isRelease) {
  constexpr unsigned longestRelease = 9;  // seconds
  std::string const path = std::string(leaseFile) + ".lock";
  // Whoever can open the file could lock it, so that is for nobody else. The processes of a
  // release keep the descriptor, and with it the lock. NOLINTNEXTLINE(android-cloexec-open)
  int const file = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
  if (file < 0) {
    complain(path.c_str());
  } else if (!lockWithin(file, longestRelease)) {
    std::fprintf(stderr, "zerotouch-dhclient: lease file %s: a release of it does not end\n", leaseFile);
  }
  // The descriptor is left to the processes of a release, which hold the lock by it.
  if (file >= 0 && !isRelease) close(file);
}

void makeLeaseFile(char const* path) {
  if (int const file = openFile(path); file >= 0) close(file);
}

void forgetLeases(char const* path, std::string const& identifier) {
  int const file = openFile(path);
  if (file < 0) return;
  std::string const kept = identifier.empty() ? lineWith(identifierKeyword, contents(file)) : identifier;
  if (!replaceContents(file, kept)) complain(path);
  close(file);
}

std::string clientAddress(std::string const& configFile) { return addressIn(readContents(configFile)); }

std::string identifierOf(std::string const& configFile) { return identifierIn(readContents(configFile)); }
