#include "platform/statebase/Server.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/statebase/Connection.h"
#include "platform/statebase/Peer.h"

namespace Statebase {

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

// Only while the lock is held: what is there then belongs to no living process.
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
  if (!options_.roleOf)
    options_.roleOf = [this](int descriptor) { return peerRole(descriptor, options_.group); };
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
  while (!connections_.empty()) connections_.begin()->second->close();
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
  for (int i = 0; i < acceptedPerPass && connections_.size() < maxClients; ++i) {
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
  if (connections_.size() == maxClients) watched_->notifyOnReadableIs(false);
}

void Server::admit(int descriptor) {
  Role const role = options_.roleOf(descriptor);
  if (role == Role::none) {
    close(descriptor);
    return;
  }
  auto const connection =
      Kel::makePtr<Connection>(tree_, descriptor, role, [this](Connection* closed) { left(closed); });
  connections_.emplace(connection.get(), connection);
}

void Server::left(Connection* connection) {
  connections_.erase(connection);
  watched_->notifyOnReadableIs(true);
}

}  // namespace Statebase
