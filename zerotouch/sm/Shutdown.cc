// The end of a run: the guard entry in the settings file, the wait for a standby, the reload request.
#include "platform/kel/ActivityManager.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/SettingsFile.h"

namespace ZeroTouch {

namespace {
constexpr std::uint16_t maxStartupFileSyncWaits = 5;
}  // namespace

// The reactor on Config.enabled does the rest.
void ZeroTouchSm::doCancelZeroTouch() { config()->enabledIs(false); }

void ZeroTouchSm::doCreateGuardFileAndShutdown(Cause const& cause) {
  doAddConfigEntry(disableSetting, disableOnNextReload);
  doWriteConfigFile();
  doStateTransition(stateInvalid(), stateShutdown(), cause);
}

bool ZeroTouchSm::isFixedSystem() {
  if (!fixedSystem_) fixedSystem_ = Kel::activityManager()->config()->cellType() == "fixed";
  return *fixedSystem_;
}

void ZeroTouchSm::doShutdown() {
  if (reloadRequested()) return;
  bool const fixed = isFixedSystem();
  if (!fixed) {
    auto const standby = fileReplicationStatus()->entry("RedSup");
    // Without an entry there is no standby to wait for.
    bool const synchronised = !standby || standby->synchronized();
    if (!synchronised && startupFileSyncCounter() <= maxStartupFileSyncWaits) {
      startupFileSyncCounterIs(static_cast<std::uint16_t>(startupFileSyncCounter() + 1));
      doStartStartupFileSyncWaitTimer();
      return;
    }
  }
  ZTP_RELOAD.log();
  if (!fixed && startupFileSyncCounter() > maxStartupFileSyncWaits) ZTP_STARTUP_FILE_SYNC_FAIL.log();
  doCancelTimer();
  reloadRequestedIs(true);
  if (!fixed) reloadConfig()->allIs(true);
  reloadConfig()->reasonIs("ZTP RELOAD");
  reloadConfig()->reloadTimeIs(Kel::now());
}

}  // namespace ZeroTouch
