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

void waitForRelease(std::string const& leaseFile, bool keeps) {
  constexpr unsigned longestRelease = 9;  // seconds
  std::string const path = leaseFile + ".lock";
  // Whoever can open the file could lock it, so that is for nobody else. Children keep the
  // descriptor, and with it the lock. NOLINTNEXTLINE(android-cloexec-open)
  int const file = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
  if (file < 0) {
    complain(path.c_str());
  } else if (!lockWithin(file, longestRelease)) {
    std::fprintf(stderr, "zerotouch-dhclient: lease file %s: a release of it does not end\n",
                 leaseFile.c_str());
  }
  if (file >= 0 && !keeps) close(file);
}

void makeLeaseFile(std::string const& path) {
  if (int const file = openFile(path.c_str()); file >= 0) close(file);
}

void forgetLeases(std::string const& path, std::string const& identifier) {
  int const file = openFile(path.c_str());
  if (file < 0) return;
  std::string const kept = identifier.empty() ? lineWith(identifierKeyword, contents(file)) : identifier;
  if (!replaceContents(file, kept)) complain(path.c_str());
  close(file);
}

std::string clientAddress(std::string const& configFile) { return addressIn(readContents(configFile)); }

std::string identifierOf(std::string const& configFile) { return identifierIn(readContents(configFile)); }
