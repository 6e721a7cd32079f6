// DHCP results as they come and go.
#include <cstdlib>

#include "platform/kel/Child.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/KelIntfDhcpStatus.h"
#include "zerotouch/sm/EntryReactors.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

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

void ZeroTouchSm::intfDhcpStatusIs(Kel::Name const& name) {
  follow(intfDhcpStatus_, name, dhcpStatus()->intfDhcpStatus(name), *this);
}

void ZeroTouchSm::intfDhcp6StatusIs(Kel::Name const& name) {
  follow(intfDhcp6Status_, name, dhcpStatus()->intfDhcp6Status(name), *this);
}

void ZeroTouchSm::handleIntfDhcpStatus(Kel::Name const& name) {
  intfDhcpStatusIs(name);
  resumeAfterDhcpCleanup();
}

void ZeroTouchSm::handleIntfDhcpStatus() {
  for (auto const& name : dhcpStatus()->intfDhcpStatus().keys()) handleIntfDhcpStatus(name);
}

void ZeroTouchSm::handleIntfDhcp6Status(Kel::Name const& name) {
  intfDhcp6StatusIs(name);
  resumeAfterDhcpCleanup();
}

}  // namespace ZeroTouch
