#include "platform/statebase/Peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

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

Role peerRole(int descriptor, std::optional<gid_t> group) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return Role::none;
  if (peer.uid == 0 || peer.uid == geteuid()) return Role::root;
  if (!group) return Role::none;
  if (peer.gid == *group) return Role::group;
  return std::ranges::count(supplementaryGroups(descriptor), *group) > 0 ? Role::group : Role::none;
}

}  // namespace Statebase
