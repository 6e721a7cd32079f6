#include "programs/zerotouch-dhclient/Shim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view identifier = "default-duid ";

void complain(char const* path) {
  std::fprintf(stderr, "zerotouch-dhclient: lease file %s: %s\n", path, std::strerror(errno));
}

// Opens the file or makes it. A symbolic link is not followed, since it could lead to any file.
int openFile(char const* path) {
  int const file = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
  if (file < 0) complain(path);
  return file;
}

std::string contents(int file) {
  std::string result;
  std::array<char, 4096> buffer;
  for (ssize_t size; (size = read(file, buffer.data(), buffer.size())) > 0;)
    result.append(buffer.data(), static_cast<std::size_t>(size));
  return result;
}

// The line with the identifier. The client writes it in one line, and of several the last one counts.
std::string identifierIn(std::string const& text) {
  std::string result;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t const end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    if (text.compare(begin, identifier.size(), identifier) == 0) result = text.substr(begin, end - begin);
    begin = end;
  }
  return result;
}

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

void forgetLeases(char const* path) {
  int const file = openFile(path);
  if (file < 0) return;
  std::string const kept = identifierIn(contents(file));
  bool const written = pwrite(file, kept.data(), kept.size(), 0) == ssize_t(kept.size()) &&
                       ftruncate(file, static_cast<off_t>(kept.size())) == 0;
  if (!written) complain(path);
  close(file);
}
