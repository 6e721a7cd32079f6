#include "platform/statebase/Server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/statebase/Connection.h"
#include "platform/statebase/Rpc.h"

namespace Statebase {

namespace {

std::vector<gid_t> supplementaryGroups(int descriptor) {
  std::vector<gid_t> groups(32);
  for (;;) {
    socklen_t length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    int const got = getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length);
    if (got != 0 && errno != ERANGE) return {};
    groups.resize(length / sizeof(gid_t));
    if (got == 0) return groups;
  }
}

}  // namespace

Caller callerOf(int descriptor, std::optional<gid_t> group) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return {};
  if (peer.uid == 0 || peer.uid == geteuid()) return {peer.uid, Role::root};
  bool const isMember =
      group && (peer.gid == *group || std::ranges::count(supplementaryGroups(descriptor), *group) > 0);
  return {peer.uid, isMember ? Role::group : Role::none};
}

namespace {

std::string holder(int descriptor) {
  char text[16] = {};
  ssize_t const length = pread(descriptor, text, sizeof text - 1, 0);
  std::string pid(text, length > 0 ? static_cast<std::size_t>(length) : 0);
  std::erase_if(pid, [](unsigned char c) { return std::isdigit(c) == 0; });
  // The file is empty for a moment: its holder locks it first and then writes its process id.
  return pid.empty() ? "another process" : "process " + pid;
}

}  // namespace

SocketLock::SocketLock(std::string const& socketPath) {
  std::string const path = socketPath + ".lock";
  // Readable by nobody else: whoever can open the file could lock it and keep the host from starting.
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

namespace {

constexpr int acceptedPerPass = 16;
constexpr int backlog = 128;
constexpr mode_t socketMode = 0660;
constexpr Kel::Seconds pauseWithoutDescriptors = 1;

[[noreturn]] void fail(std::string const& path, std::string const& reason) {
  throw SocketError(path + ": " + reason);
}
[[noreturn]] void failSystem(std::string const& path) { fail(path, std::strerror(errno)); }

void makeDirectoryOf(std::string const& path) {
  std::string const directory = path.substr(0, path.rfind('/'));
  if (path.find('/') == std::string::npos || directory.empty()) return;
  if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) failSystem(directory);
}

// The caller holds the lock, so a socket that is there was left by a process that has died.
void removeStale(std::string const& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) failSystem(path);
    return;
  }
  if (!S_ISSOCK(status.st_mode)) fail(path, "exists and is no socket");
  if (unlink(path.c_str()) != 0) failSystem(path);
}

}  // namespace

Server::Server(Tree& tree, Options options) : tree_(tree), options_(std::move(options)) {
  if (!options_.callerOf)
    options_.callerOf = [this](int descriptor) { return callerOf(descriptor, options_.group); };
  makeDirectoryOf(options_.path);
  lock_ = std::make_unique<SocketLock>(options_.path);
  try {
    listenAt(options_.path);
  } catch (SocketError const&) {
    if (descriptor_ >= 0) close(descriptor_);
    throw;
  }
  watched_->descriptorIs(descriptor_);
  watched_->notifyOnReadableIs(true);
}

Server::~Server() {
  while (!clients_.empty()) clients_.begin()->second.connection->close();
  watched_->descriptorIs(-1);
  close(descriptor_);
  unlink(options_.path.c_str());
}

void Server::listenAt(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) fail(path, "longer than a socket's path can be");
  path.copy(address.sun_path, path.size());
  removeStale(path);
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0) failSystem(path);
  // Nobody can connect before listen(), by when the mode and the group are right.
  if (bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
      chmod(path.c_str(), socketMode) != 0 ||
      (options_.group && chown(path.c_str(), static_cast<uid_t>(-1), *options_.group) != 0) ||
      listen(descriptor_, backlog) != 0) {
    failSystem(path);
  }
}

void Server::acceptClients() {
  for (int i = 0; i < acceptedPerPass; ++i) {
    int const client = accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client >= 0) {
      admit(client);
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      watched_->notifyOnReadableIs(false);
      pause_.in(pauseWithoutDescriptors);
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

void Server::admit(int descriptor) {
  Caller const caller = options_.callerOf(descriptor);
  std::string const fault = caller.role == Role::none ? "" : placeFault(caller);
  if (!fault.empty()) {
    std::string const line = rpcErrorLine(nullptr, RpcError(RpcCode::tooMany, fault));
    // A new socket has room for it, unless its owner has made it small; then the owner is not told.
    [[maybe_unused]] ssize_t const sent = send(descriptor, line.data(), line.size(), MSG_NOSIGNAL);
  }
  if (!fault.empty() || caller.role == Role::none) {
    close(descriptor);
    return;
  }
  auto const connection = Kel::makePtr<Connection>(
      tree_, descriptor, caller.role, [this](Connection const* closed) { clients_.erase(closed); });
  clients_[connection.get()] = {caller, connection};
}

std::string Server::placeFault(Caller const& newcomer) {
  auto const taken = [](std::string const& whose, std::size_t most) {
    return "all " + std::to_string(most) + " connections" + whose + " are taken";
  };
  bool const isRoot = newcomer.role == Role::root;
  auto const ofUser = [&](Caller const& other) { return other.user == newcomer.user; };
  auto const ofOthers = [](Caller const& other) { return other.role != Role::root; };
  auto const ofAnyone = [](Caller const&) { return true; };
  constexpr std::size_t maxOfOthers = maxClients - keptForRoot;
  if (!isRoot && !hasPlace(ofUser, maxOfUser, idleLimit))
    return taken(" of user " + std::to_string(newcomer.user), maxOfUser);
  if (!isRoot && !hasPlace(ofOthers, maxOfOthers, idleLimit)) return taken(" of users but root", maxOfOthers);
  return hasPlace(ofAnyone, maxClients, isRoot ? idleLimitForRoot : idleLimit) ? "" : taken("", maxClients);
}

bool Server::hasPlace(Filter const& filter, std::size_t most, Kel::Seconds limit) {
  std::size_t count = 0;
  Connection* idlest = nullptr;
  Kel::Seconds idleSince = Kel::now() - limit;
  for (auto const& [address, client] : clients_) {
    if (!filter(client.caller)) continue;
    ++count;
    auto const since = client.connection->idleSince();
    if (!since || *since > idleSince) continue;
    idlest = client.connection.get();
    idleSince = *since;
  }
  if (count < most) return true;
  if (idlest == nullptr) return false;
  idlest->close();
  return true;
}

}  // namespace Statebase
