// The ten timers that bound the waiting steps of a run.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

class ZeroTouchSm;

// The state machine holds at most one, the one that runs; its single timer clock drives it. The first firing
// comes after one interval: a timer whose interval equals its timeout never ticks. What a tick and a stop do
// is the subclass's (ProvisioningTimers.h).
class TimerBase : public TimerBaseModel {
 public:
  TimerBase(Kel::Name name, ZeroTouchSm* ztSm, Kel::Seconds interval, Kel::Seconds timeout,
            Kel::Seconds initTime)
      : TimerBaseModel(std::move(name), interval, timeout, initTime), ztSm_(ztSm) {}

  virtual void handleTimerTick() {}
  virtual void handleTimerStop() {}

 protected:
  ZeroTouchSm* ztSm() const { return ztSm_; }

 private:
  ZeroTouchSm* ztSm_;  // the owner
};

// The built-in times of a timer class, and the environment variables that override them (read when a timer is
// started; seconds, as strtod(3) reads them: "inf" means never, and what is no number counts as 0).
struct TimerSettings {
  char const* name;
  Kel::Seconds interval;
  Kel::Seconds timeout;
  char const* intervalVariable;
  char const* timeoutVariable;
};

// Bounds the set-up of the ports; its end starts the DHCP query.
class InterfacesSetupTimer : public TimerBase {
 public:
  // The misspelling is what is deployed.
  static constexpr TimerSettings settings{"InterfacesSetupTimer", 30, 30,
                                          "ZEROTOUCH_INETRFACESSETUP_TIMER_INTERVAL",
                                          "ZEROTOUCH_INETRFACESSETUP_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// Bounds the DHCPv4 and stateful DHCPv6 query; its end stops the clients and starts the stateless query.
class DhclientQueryTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"DhclientQueryTimer", 15, 15,
                                          "ZEROTOUCH_DHCLIENTQUERY_TIMER_INTERVAL",
                                          "ZEROTOUCH_DHCLIENTQUERY_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// Each tick moves the stateless DHCPv6 query to the next interface; when none is left, or at the end, a
// retry.
class StatelessDhclientQueryTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"StatelessDhclientQueryTimer", 5, 500,
                                          "ZEROTOUCH_STATELESSDHCLIENTQUERY_TIMER_INTERVAL",
                                          "ZEROTOUCH_STATELESSDHCLIENTQUERY_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerTick() override;
  void handleTimerStop() override;
};

// Polls whether the applied identity has become active; its end undoes it and retries.
class SystemIdentitySetupTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"SystemIdentitySetupTimer", 5, 60,
                                          "ZEROTOUCH_SYSIDENTITYSETUP_TIMER_INTERVAL",
                                          "ZEROTOUCH_SYSIDENTITYSETUP_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerTick() override;
  void handleTimerStop() override;
};

// Bounds the download; its ticks drive what the transfer's socket does not.
class ConfigFetchTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"ConfigFetchTimer", 1, 90, "ZEROTOUCH_CONFIGFETCH_TIMER_INTERVAL",
                                          "ZEROTOUCH_CONFIGFETCH_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerTick() override;
  void handleTimerStop() override;
};

// The back-off before the download is tried again; the times below are per try.
class ConfigFetchRetryTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"ConfigFetchRetryTimer", 15, 15,
                                          "ZEROTOUCH_CONFIGFETCHRETRY_TIMER_INTERVAL",
                                          "ZEROTOUCH_CONFIGFETCHRETRY_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// Bounds a configuration script, and then the flush of the flash; the times are ZeroTouch::Config's
// scriptExecTimeout.
class ScriptExecTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"ScriptExecTimer", 0, 0, "ZEROTOUCH_SCRIPTEXEC_TIMER_INTERVAL",
                                          "ZEROTOUCH_SCRIPTEXEC_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// The pause before a retry, and then the bound on the clean-up of DHCP results.
class RetryWaitTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"RetryWaitTimer", 15, 15, "ZEROTOUCH_RETRY_TIMER_INTERVAL",
                                          "ZEROTOUCH_RETRY_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// Bounds the release of the leases before the reload.
class LeaseReleaseTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"LeaseReleaseTimer", 30, 30,
                                          "ZEROTOUCH_LEASERELEASE_TIMER_INTERVAL",
                                          "ZEROTOUCH_LEASERELEASE_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

// One wait for the standby supervisor to hold the startup configuration.
class StartupFileSyncWaitTimer : public TimerBase {
 public:
  static constexpr TimerSettings settings{"StartupFileSyncWaitTimer", 5, 5,
                                          "ZEROTOUCH_STARTUPFILESYNC_WAIT_TIMER_INTERVAL",
                                          "ZEROTOUCH_STARTUPFILESYNC_WAIT_TIMER_TIMEOUT"};
  using TimerBase::TimerBase;
  void handleTimerStop() override;
};

}  // namespace ZeroTouch
