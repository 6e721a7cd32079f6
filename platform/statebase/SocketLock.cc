#include "platform/statebase/SocketLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace Statebase {

namespace {

std::string holder(int descriptor) {
  char text[16] = {};
  ssize_t const length = pread(descriptor, text, sizeof text - 1, 0);
  std::string pid(text, length > 0 ? static_cast<std::size_t>(length) : 0);
  std::erase_if(pid, [](unsigned char c) { return std::isdigit(c) == 0; });
  // The holder writes its number right after it has taken the lock.
  return pid.empty() ? "another process" : "process " + pid;
}

}  // namespace

SocketLock::SocketLock(std::string const& socketPath) {
  std::string const path = socketPath + ".lock";
  // Nobody else may open it, or anyone could keep the host from starting by locking it.
  descriptor_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor_ < 0) throw SocketError(path + ": " + std::strerror(errno));
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    std::string const reason =
        errno == EWOULDBLOCK ? "held by " + holder(descriptor_) : std::string(std::strerror(errno));
    close(descriptor_);
    throw SocketError(socketPath + ": " + reason);
  }
  std::string const pid = std::to_string(getpid()) + "\n";
  if (ftruncate(descriptor_, 0) != 0 ||
      pwrite(descriptor_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    std::string const reason = std::strerror(errno);
    close(descriptor_);
    throw SocketError(path + ": " + reason);
  }
}

SocketLock::~SocketLock() { close(descriptor_); }

}  // namespace Statebase
