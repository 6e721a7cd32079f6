// The state tree's socket: a Unix stream socket on which clients speak JSON-RPC (Rpc.h), a line for each
// message.
//
// Nobody waits for a client: each gets a bounded piece of work per pass of the loop, and for more it waits
// until nothing else is to do; it is not read from while it does not read its answers, and is cut off when it
// stops reading altogether (Connection.h).
//
// Nobody can take all places: a user other than root has a share of them, all those users together leave some
// for root, and where places are short a newcomer takes that of a client that has been idle. Who finds no
// place is told so, by an error without an id, and closed.
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

// Who is at the other end of a Unix socket.
struct Caller {
  uid_t user = 0;
  Role role = Role::none;
};

// As the kernel saw it when the client connected (unix(7): SO_PEERCRED, SO_PEERGROUPS). The superuser and the
// user of this process are root; members of `group` are the group; anyone else has no role.
Caller callerOf(int descriptor, std::optional<gid_t> group);

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
  static constexpr std::size_t maxClients = 256;
  static constexpr std::size_t keptForRoot = 64;  // of them
  static constexpr std::size_t maxOfUser = 64;    // of one user other than root
  // How long a client that watches nothing has been idle when a newcomer may take its place.
  static constexpr Kel::Seconds idleLimit = 60;
  static constexpr Kel::Seconds idleLimitForRoot = 1;  // when the newcomer is root

  struct Options {
    std::string path;
    // Members of this group may connect, besides root and the user of this process.
    std::optional<gid_t> group;
    // By default Statebase::callerOf. Who has no role is closed at once.
    std::function<Caller(int descriptor)> callerOf;
  };

  // Listens at once; the directory of the socket is made when it is missing. Replaces a socket that a dead
  // process left, nothing else. Throws SocketError. The tree outlives the server.
  Server(Tree& tree, Options options);
  // Closes all connections and removes the socket.
  ~Server();
  Server(Server const&) = delete;
  Server& operator=(Server const&) = delete;

  std::size_t clients() const { return clients_.size(); }

 private:
  struct Client {
    Caller caller;
    Kel::Ptr<Connection> connection;
  };
  using Filter = std::function<bool(Caller const&)>;

  void listenAt(std::string const& path);
  void acceptClients();
  void admit(int descriptor);
  // "", once there is a place for the newcomer, or why there is none.
  std::string placeFault(Caller const& newcomer);
  // Whether fewer than `most` of the clients that the filter takes are left, after closing the one of them
  // that has been idle for the longest time, and at least for `limit`, when there are as many.
  bool hasPlace(Filter const& filter, std::size_t most, Kel::Seconds limit);

  Tree& tree_;
  Options options_;
  std::unique_ptr<SocketLock> lock_;
  int descriptor_ = -1;
  Kel::Ptr<Kel::FileDescriptor> watched_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor listener_{watched_, &Kel::FileDescriptor::NotifieeConst::onReadableCount, this,
                         &Server::acceptClients};
  // Ends a pause in accepting, when the process is out of descriptors.
  Kel::Alarm pause_{[this] { watched_->notifyOnReadableIs(true); }};
  std::map<Connection const*, Client> clients_;
};

}  // namespace Statebase
