// Handing a lease back, so that the address is free for the next attempt or for the configuration that the
// switch boots into.
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// A release that still runs goes on. A client that acquires is stopped first: two clients must not share a
// lease file.
void ZeroTouchSm::doReleaseLease() {
  if (!choosenIntf() || (dhclientChildProcess() && dhclientReleases())) return;
  char** const cmdLine = allocDhclientReleaseCommandline();
  if (cmdLine == nullptr) {
    SM_TRACE(1, " - Failed to alloc dhclient command line");
    return;
  }
  doStopDhclient();
  dhclientReleasesIs(true);
  dhclientChildProcessIs(execClient(cmdLine, __func__));
  dhclientIntfIs(choosenIntf()->kernelIntfName());
}

void ZeroTouchSm::doReleaseLease6() {
  if (!choosenIntf() || (dhclient6ChildProcess() && dhclient6Releases())) return;
  char** const cmdLine = allocDhclient6ReleaseCommandline();
  if (cmdLine == nullptr) {
    SM_TRACE(1, " - Failed to alloc dhclient v6 command line");
    return;
  }
  doStopDhclient6();
  dhclient6ReleasesIs(true);
  dhclient6ChildProcessIs(execClient(cmdLine, __func__));
  dhclient6IntfIs(choosenIntf()->kernelIntfName());
}

}  // namespace ZeroTouch
