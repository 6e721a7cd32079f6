// Who is at the other end of a Unix socket.
#pragma once

#include <sys/types.h>

#include <optional>

#include "platform/statebase/Tree.h"

namespace Statebase {

// The superuser and the user of this process are root; members of `group` are the group; anyone else is
// nobody. As the kernel saw the peer when it connected (unix(7): SO_PEERCRED, SO_PEERGROUPS).
Role peerRole(int descriptor, std::optional<gid_t> group);

}  // namespace Statebase
