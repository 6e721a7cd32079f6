// The state tree's socket: a Unix stream socket on which clients speak JSON-RPC (Rpc.h), a line for each
// message.
//
// Nobody waits for a client: each gets a bounded piece of work per pass of the loop, and for more it waits
// until nothing else is to do; it is not read from while it does not read its answers, and is cut off when it
// stops reading altogether (Connection.h).
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/statebase/Tree.h"

namespace Statebase {

// The role of who is at the other end of a Unix socket, as the kernel saw it when it connected (unix(7):
// SO_PEERCRED, SO_PEERGROUPS). The superuser and the user of this process are root; members of `group` are
// the group; anyone else is nobody.
Role peerRole(int descriptor, std::optional<gid_t> group);

// Why a socket cannot be served: who holds it, or what is in the way.
class SocketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Makes sure that one process at a time serves a socket: holds a lock on "<socket>.lock", which names the
// process; the kernel drops the lock however the process ends. The file stays, since a file that is removed
// could be locked by two.
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

class Connection;

class Server {
 public:
  // Further clients wait in the backlog of the listening socket.
  static constexpr std::size_t maxClients = 256;

  struct Options {
    std::string path;
    // Members of this group may connect, besides root and the user of this process.
    std::optional<gid_t> group;
    // By default peerRole. Who has no role is closed at once.
    std::function<Role(int descriptor)> roleOf;
  };

  // Listens at once; the directory of the socket is made when it is missing. Replaces a socket that a dead
  // process left, nothing else. Throws SocketError. The tree outlives the server.
  Server(Tree& tree, Options options);
  // Closes all connections and removes the socket.
  ~Server();
  Server(Server const&) = delete;
  Server& operator=(Server const&) = delete;

  std::size_t clients() const { return connections_.size(); }

 private:
  void listenAt(std::string const& path);
  void acceptClients();
  void admit(int descriptor);
  void left(Connection* connection);

  Tree& tree_;
  Options options_;
  std::unique_ptr<SocketLock> lock_;
  int descriptor_ = -1;
  Kel::Ptr<Kel::FileDescriptor> watched_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor listener_{watched_, &Kel::FileDescriptor::NotifieeConst::onReadableCount, this,
                         &Server::acceptClients};
  // Ends a pause in accepting, when the process is out of descriptors.
  Kel::Alarm pause_{[this] { watched_->notifyOnReadableIs(connections_.size() < maxClients); }};
  std::map<Connection*, Kel::Ptr<Connection>> connections_;
};

}  // namespace Statebase
