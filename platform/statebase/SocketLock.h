// Makes sure that one process at a time serves a socket.
#pragma once

#include <stdexcept>
#include <string>

namespace Statebase {

// Why a socket cannot be served: who holds it, or what is in the way.
class SocketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Holds a lock on "<socket>.lock", which names the process; the kernel drops the lock however the process
// ends. The file stays, since a file that is removed could be locked by two.
class SocketLock {
 public:
  // Throws SocketError, naming the process that holds the lock.
  explicit SocketLock(std::string const& socketPath);
  ~SocketLock();
  SocketLock(SocketLock const&) = delete;
  SocketLock& operator=(SocketLock const&) = delete;

 private:
  int descriptor_ = -1;
};

}  // namespace Statebase
