// The room in which dhcpcd lives: a mount and a process namespace of its own.
//
// - Its run and state directories are empty and its own: it neither finds another dhcpcd of the system, which
// it
//   would send its command line to, nor leases of earlier attempts.
// - It has no /proc/sys, in which it would change settings of its ports.
// - Of root's capabilities it has those without which it cannot ask; without CAP_NET_ADMIN the kernel refuses
// it
//   any change of links, addresses and routes.
// - All that it has started ends with the room. The first process of a process namespace cannot be outlived,
// and
//   that is the watcher, which ends together with the shim; a client that gives up its privileges would lose
//   the signal that the kernel sends at its parent's end.
#pragma once

#include <functional>

// Runs `watcher` as the first process of a new room, and returns its exit code, or 128 plus the signal that
// ended it. When this process ends, in whatever way, the room ends. A request to stop ends it 0.2 s later: an
// answer that is on its way is a lease, and can be handed back only once it is known.
int runInRoom(std::function<int()> const& watcher);
