// DHCP results as they come and go.
#include <cstdlib>

#include "platform/kel/Child.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {

constexpr char const* dhclientScriptFilePath = "/usr/bin/zerotouch-dhclient-script";

// The script finds its reason where dhclient would put it.
void runCleanup(char const* reason) {
  setenv("reason", reason, 1);
  int const status = Kel::runAndWait(dhclientScriptFilePath, -1, -1, -1, -1);
  unsetenv("reason");
  KEL_TRACE(traceZeroTouchSm, status == 0 ? 5 : 1,
            "ZeroTouchSm::doCleanupDhclientState - " << reason << " exit status=" << status);
}

}  // namespace

void ZeroTouchSm::doCleanupDhclientState() {
  if (std::getenv("ZEROTOUCH_IGNORE_DHCLIENTCLEANUP") != nullptr) return;
  runCleanup("CLEANUP");
  runCleanup("CLEANUP6");
}

void ZeroTouchSm::handleIntfDhcpStatus(Kel::Name const&) { resumeAfterDhcpCleanup(); }

void ZeroTouchSm::handleIntfDhcp6Status(Kel::Name const&) { resumeAfterDhcpCleanup(); }

}  // namespace ZeroTouch
