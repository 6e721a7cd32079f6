// The provisioning state machine, which walks the switch from having no startup configuration to having one
// and asking for its reload.
//
// States.cc says what each state is for; docs/state-machine.md shows what leads from one to another.
//
// Every change of state is requested with doStateTransition and carried out on the next pass of the loop, so
// that the handler that asked for it finishes first. At most one timer runs, and every request cancels it: a
// handler that may run late first asks mayActIn(), lest a stale event cancel the timer of the state that is
// running now.
//
// Bodies live in the folder of their subsystem.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "platform/kel/Child.h"
#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Log.h"
#include "platform/kel/Reactor.h"
#include "platform/model/handles.h"
#include "zerotouch/agent/EntityMibRootSm.h"
#include "zerotouch/sm/Cause.h"
#include "zerotouch/sm/ProvisioningTimers.h"

namespace ZeroTouch {

struct BootFileCheck;
struct CurlTransfer;
struct DhcpClients;
struct Signature;
class Pacing;
class Resume;
struct Wait;
using Pace = std::function<Wait(Kel::Seconds usual)>;
struct TimerSettings;
using U32Ptr = std::uint32_t*;

class ZeroTouchSm : public ZeroTouchSmModel {
 public:
  using State = ProvisioningState;

  static constexpr State stateInvalid() { return State::stateInvalid; }
  static constexpr State stateInit() { return State::stateInit; }
  static constexpr State stateSetupInterfaces() { return State::stateSetupInterfaces; }
  static constexpr State stateDhcpQuery() { return State::stateDhcpQuery; }
  static constexpr State stateStatelessDhcpQuery() { return State::stateStatelessDhcpQuery; }
  static constexpr State stateSetupSystemIdentity() { return State::stateSetupSystemIdentity; }
  static constexpr State stateFetchConfig() { return State::stateFetchConfig; }
  static constexpr State stateRetryFetchConfig() { return State::stateRetryFetchConfig; }
  static constexpr State stateCopyConfigOrExecScript() { return State::stateCopyConfigOrExecScript; }
  static constexpr State stateRetry() { return State::stateRetry; }
  static constexpr State stateShutdown() { return State::stateShutdown; }

  // Brings the machine up from whatever the entities already say. None of the handles is null, but those of
  // the inventory and of the packet sockets may be.
  ZeroTouchSm(PASSED_HANDLE_PARAMETERS, Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCollection,
              Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
              Kel::Ptr<Kel::Clock const> const& clock,
              Kel::Ptr<Kel::Clock const> const& stateTransitionClock);
  ~ZeroTouchSm() override;
  // The same, from the same handles.
  template <typename... Handles>
  static Kel::Ptr<ZeroTouchSm> ZeroTouchSmIs(Handles const&... handles) {
    return Kel::makePtr<ZeroTouchSm>(handles...);
  }

  // --- States and transitions (sm/States.cc) ---

  // The only way to ask for a change, and to say why. `fromStates` is the set of states from which it is
  // allowed, stateInvalid() for any. Cancels the running timer even when the request is refused.
  void doStateTransition(State fromStates, State toState, Cause const& cause);
  // Whether a handler that runs late may still act: the current state is one of `states`, and it is not about
  // to be left for stateInit or stateShutdown.
  bool mayActIn(State states) const;
  // Whether it may ask for a change of state too: one of `states` is current, and none is about to be
  // entered.
  bool mayMoveOnFrom(State states) const;
  // Hands over the state to enter; nothing happens when it is the one handed over last.
  void nextStateIs(State state);
  void handleNextState();
  void handleStateTransitionClock();

  // --- Start and stop (sm/StartStop.cc) ---

  void handleInitialized();
  void handleEnabled();
  void handleCancelled();
  void doTryStartZeroTouch();
  bool preConditionsMet() const;
  void doStopZeroTouch(bool cancelled);

  // --- Timers (sm/Timers.cc) ---

  // The clocks that drive the timer and the changes of state.
  Kel::Ptr<Kel::Clock const> const& clock() const { return clock_; }
  Kel::Ptr<Kel::Clock const> const& stateTransitionClock() const { return stateTransitionClock_; }
  Kel::Ptr<TimerBase> timer() const;
  void timerIs(Kel::Ptr<TimerBase> const& timer) { ZeroTouchSmModel::timerIs(timer); }
  void doStartTimer();
  void doCancelTimer();
  void handleTimer();
  void doStartInterfacesSetupTimer();
  void doStartDhclientQueryTimer();
  void doStartStatelessDhclientQueryTimer();
  void doStartSystemIdentitySetupTimer();
  void doStartConfigFetchTimer();
  void doStartConfigFetchRetryTimer(std::uint16_t tryCount);
  void doStartScriptExecTimer();
  void doStartRetryWaitTimer();
  void doStartLeaseReleaseTimer();
  void doStartStartupFileSyncWaitTimer();

  // --- Retry, cancel and shutdown (sm/StartStop.cc) ---

  void doCleanupCurrentState();
  void doCleanupAndRetry();
  void doCancelZeroTouch();
  void doCreateGuardFileAndShutdown(Cause const& cause);
  void doShutdown();

  // --- Settings file (sm/StartStop.cc) ---

  void doReadConfigFile();
  void doWriteConfigFile();
  void doAddConfigEntry(Kel::String key, Kel::String value);
  void doRemoveConfigEntry(Kel::String key);

  // --- Hardware inventory (agent/EntityMibRootSm.cc) ---

  void handleEntityMibRoot();
  // The one in the inventory; when that has gone, the one that the run began with. Null before the first run.
  Kel::Ptr<EntityMib::Fru const> chassis() const;
  Kel::Ptr<EntityMibRootSm> const& entityMibRootSm() const { return entityMibRootSm_; }
  Kel::Ptr<EntityMibRootSm> entityMibRootSmIs(ZeroTouchSm* ztSm, Kel::Ptr<EntityMib::Fru const> const& root);
  void entityMibRootSmDel() { entityMibRootSm_ = nullptr; }

  // --- Interfaces: which take part, their set-up (intf/IntfTracking.cc, intf/PortConfig.cc) ---

  // Whether the view of the interfaces follows the platform now. In all other states it is frozen: what
  // changes meanwhile is remembered and looked at on the next entry to one of these.
  bool shouldProcessIntfStatus() const;
  void handleEthPhyIntfStatus(Wire::IntfId intfId);
  void handleEthPhyIntfStatus();
  void handleEthLagIntfStatus(Wire::IntfId intfId);
  void handleEthLagIntfStatus();
  void handleEthDevPam(Wire::IntfId intfId);
  void handleEthDevPam();
  void doRegisterEthPhyIntf(Kel::String intfName);
  void doUnregisterEthPhyIntf(Kel::String intfName);
  void doRegisterLagIntf(Kel::String intfName);
  void doUnregisterLagIntf(Kel::String intfName);
  void doRegisterIntf(Kel::Ptr<IntfStatus> const& record);
  void doUnregisterIntf(Kel::Ptr<IntfStatus> const& record);
  void doSetupInterfaces();
  void doEnableOrDisableAcceptRa(Wire::IntfId intfId, bool enable);
  void doEnableOrDisableAcceptRaDefRtr(Wire::IntfId intfId, bool enable);
  // The record of the interface with that device or name; empty when there is none.
  void findIntfStatusForKernelIntf(Kel::String kernelName, Kel::Ptr<IntfStatus>& out) const;
  void findIntfStatusForInterface(Kel::String intfName, Kel::Ptr<IntfStatus>& out) const;

  // --- Speeds of the ports (intf/Speeds.cc) ---

  using LinkModes = ZeroTouch::LinkModes;
  void initializeLinkModes();
  void addKnownLinkMode(Wire::IntfId intfId);
  Kel::String getLinkModeAsString(Interface::EthLinkMode mode, bool autoneg) const;
  void updateAdvertisedModes(Kel::Ptr<Interface::EthPhyIntfConfig> const& config,
                             Interface::EthLinkMode mode);
  void configureMultiSpeedInterfaces();
  void toggleIntfSpeed();

  // --- DHCP clients and their results (dhcp/) ---

  Kel::Ptr<Kel::ChildSiginfo const> dhclientChildProcess() const;
  void dhclientChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child);
  void dhclientChildProcessDel();
  Kel::Ptr<Kel::ChildSiginfo const> dhclient6ChildProcess() const;
  void dhclient6ChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child);
  void dhclient6ChildProcessDel();
  Kel::Ptr<Kel::ChildSiginfo const> dhclient6StatelessChildProcess() const;
  void dhclient6StatelessChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child);
  void dhclient6StatelessChildProcessDel();
  void doStopDhclient();
  void doStopDhclient6();
  void doStopDhclient6Stateless();
  void handleDhclientChildProcessStatus();
  void handleDhclient6ChildProcessStatus();
  void handleDhclient6StatelessChildProcessStatus();

  // Command lines (dhcp/DhcpClient.cc): null when there is nobody to ask. The caller frees them. `idx` is
  // the next free slot; of the stateless client, the one for the caller to fill with an interface.
  void formBasicCommandLine(char** argv, U32Ptr idx) const;
  char** allocDhclientAcquireCommandline() const;
  char** allocDhclient6AcquireCommandline() const;
  char** allocDhclient6StatelessAcquireCommandline(U32Ptr idx) const;
  char** allocDhclientReleaseCommandline() const;
  char** allocDhclient6ReleaseCommandline() const;
  std::uint32_t findArgcForDhclientAcquireCommandline() const;
  static std::uint32_t findArgcForDhclientReleaseCommandline();

  // The clients' configuration (dhcp/ConfigFiles.cc). `version` is "v4" or "v6"; with any other only the
  // client identifier is written.
  void doCreateDhclientConfigFile();
  void doCreateDhclient6ConfigFile();
  // Writes those again that a full disk has cut short.
  void doCompleteDhclientConfigFiles();
  void addIdentifierStatementsToDhclientConfig(char const* file, Kel::String version) const;

  // Starting the clients (dhcp/Queries.cc).
  void doStartDhcpQuery();
  void doStartStatelessDhcpQuery();
  // Starts a stateless client on the next interface to ask, and its timer. False when there is none.
  bool askNextStatelessIntf();
  // Hand back the lease of the chosen interface; nothing without one.
  void doReleaseLease();
  void doReleaseLease6();

  // Their records: each has a reactor, made or replaced with ...Is and dropped with ...Del.
  void intfDhcpStatusIs(Kel::Name const& name);
  void intfDhcpStatusDel(Kel::Name const& name);
  void intfDhcp6StatusIs(Kel::Name const& name);
  void intfDhcp6StatusDel(Kel::Name const& name);
  void handleIntfDhcpStatus(Kel::Name const& name);
  void handleIntfDhcpStatus();
  void handleIntfDhcp6Status(Kel::Name const& name);
  // Whether the client said so for each registered interface; one that has not reported yet has not failed.
  bool allInterfacesFailedDhcp() const;
  bool readyToFetchConfig() const;
  bool readyToFetchConfigV4() const;
  bool readyToFetchConfigV6() const;
  // The address for which readyToFetchConfig() waits, and its port, for people.
  Kel::String missingAddress() const;
  // Why a query could not begin, or went on without a client; and why it has brought no boot file.
  Trouble whyNobodyIsAsked() const;
  Trouble whyNoBootFile() const;
  // Raises one of the events that say that a query has failed.
  void reportQueryFailure(Kel::LogHandle& event);
  // Takes the best of the answers that have waited; false when there is none. Unless it is the `last` chance,
  // those of ports that stand back wait on.
  bool takeBestOffer(bool last);
  // Lets the clean-up script remove what clients left configured. Blocks while the script runs, twice.
  void doCleanupDhclientState();

  // --- The identity that the answer brought (identity/) ---

  void doConfigureSystemIdentity();
  void doConfigureSystemIdentityV4();
  void doConfigureSystemIdentityV6();
  void doConfigureInterfaceIPv4(Kel::Ptr<IntfStatus> const& intf, Wire::IpAddrWithMask const& addr);
  void doConfigureInterfaceIPv6(Kel::Ptr<IntfStatus> const& intf, Wire::Ip6AddrWithMask const& addr);
  // Takes back all that the above may have written; all static routes go, not only those.
  void doUnconfigureSystemIdentity();

  // --- Download and install (fetch/) ---

  // Chooses the interface, and with it the answer (chosenAnswer()), which is final when the identity is
  // applied; null forgets both.
  void choosenIntfIs(Kel::Ptr<IntfStatus> const& intf);
  // Starts the download. When it neither runs nor has succeeded by then, an event has said so, and the cause
  // says why.
  Cause doTryFetchConfigFromServer();
  // Starts a transfer of option67Uri().
  void doTryFetchUri();
  // option67Uri() as events and traces show it: without its password.
  Kel::String shownUri() const;
  // Whether a download is under way: it is transferred, or verified.
  bool downloadRuns() const { return curlCBData_ != nullptr || bootFileCheck_ != nullptr; }
  // Null when no transfer runs.
  CurlTransfer const* curlCBData() const { return curlCBData_.get(); }
  Kel::Ptr<Kel::FileDescriptor> const& curlSockFd() const { return curlSockFd_; }
  void doBuildCurlHttpHeaders();
  // Lets libcurl run, and watches its socket for what it waits for next.
  void doCurlPerform();
  void handleCurlSockFd();
  void doCheckCurlErrors();
  void doCurlClose();
  void doCurlShutdown();
  // Does the next piece of the verification, and what follows from its end.
  void handleBootFileCheck();
  // What the transfer that runs is waiting for, once it has taken too long.
  Trouble whatTransferWaitsFor() const;

  // Installs the download or starts it as a script. When it has done neither, an event has said so, and the
  // cause says why.
  Cause doCopyConfigOrExecScript();
  // Replaces the whole file `to`; false, and the reason in `failure`, when that fails. Takes as long as the
  // flash does, and gives the watchdog a sign of life meanwhile.
  bool copyFile(char const* from, char const* to, Trouble& failure) const;
  // Removes what a host that was killed while it copied left on the flash.
  void removeUnfinishedCopies() const;
  void doExecScript();
  Kel::Ptr<Kel::ChildSiginfo const> const& scriptChildProcess() const { return scriptChildProcess_; }
  void scriptChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child);
  void scriptChildProcessDel();
  // What the script said, errors first, each line followed by ". "; of each stream the first few KiB.
  Kel::String configScriptOutput() const;
  void handleScriptChildProcessStatus();
  // Asks the script to end, and ends the flush that follows it. Their end, whenever it comes, decides nothing
  // any more.
  void doKillRunningScript();
  // Null unless the flash is being flushed, which begins when a script has succeeded.
  Kel::Ptr<Kel::ChildSiginfo const> const& flashFlush() const { return flashFlush_; }
  void endFlashFlush();
  // The host is about to end, perhaps since a script that has succeeded has asked for a reboot. It counts,
  // although the flash is not flushed yet: what ends in order also writes its disks.
  void handleHostEnd();
  // The attempt has failed: what the script has written may be lost with the power.
  void failFlashFlush(Kel::String const& why);
  void handleScriptExecTimeoutValue();

 private:
  // ZeroTouchSm.cc
  void watchPlatform();

  // States.cc
  void enter(State state);
  void noteOutcome(State entered);
  void noteFailure();
  void enterFetchConfig();
  void enterRetryFetchConfig();
  void enterCopyConfigOrExecScript();
  void enterRetry();
  void enterShutdown();

  // StartStop.cc
  bool shuttingDown() const;
  void leaveAsFound();

  // Timers.cc. The built-in times are those of the class, unless given; `pace` has the last word.
  template <typename Timer>
  void startTimer(Pace const& pace = nullptr, Kel::Seconds interval = Timer::settings.interval,
                  Kel::Seconds timeout = Timer::settings.timeout);
  void waitForOffers(Kel::Seconds longest);

  void resumeAfterDhcpCleanup();
  // Asked once: the kind of system does not change while the agent lives.
  bool isFixedSystem();

  // intf/
  class Ports;
  class PortConfig;

  // identity/
  class IdentityWriter;
  Kel::Ptr<Interface::IntfConfig> intfConfig(Wire::IntfId const& intfId) const;

  // Each keeps the reactor on the addresses of an interface, which comes and goes with the interface's entry.
  void ipIntfStatusIs(Wire::IntfId const& intfId);
  void ip6IntfStatusIs(Wire::IntfId const& intfId);
  void handleActiveAddrWithMask(Wire::IntfId const& intfId);
  void handleAddr(Wire::IntfId const& intfId, Wire::Ip6AddrWithMask const& addr);

  // dhcp/
  struct DhcpResults;
  class LateLinks;
  class Offers;
  std::vector<Kel::String> dhcpDevices() const;
  void startDhcpv4();
  void startDhcpv6();
  void selectIntfs6();
  void rejectServer(Kel::String const& server);

  // fetch/
  void chooseAnswer();
  static Kel::Ptr<ChosenAnswer> answerFrom(AnswerFamily family, Kel::Ptr<IntfDhcpStatus const> const& result);
  void forgetTransfer();
  Trouble toMend(Trouble const& end) const;
  Trouble doubtsAboutConfig() const;
  void watchCurlSocket();
  void concludeDownload();
  // Starts to verify the download, if somebody has to have signed it; false when nothing is to be waited for.
  bool beginBootFileCheck();
  void refuseBootFile(Kel::String const& objection);
  void believeBootFile(Signature const& signature, std::uint64_t size);
  void noteVerifiedServer();
  void endStalledTransfer();
  void reportFailedDownload();
  Kel::String startupConfigDestination() const;
  void endLeftoverScript();
  void doFlushFlash();
  void handleFlashFlushStatus();

  std::optional<bool> fixedSystem_;
  Kel::Ptr<Kel::Clock const> clock_;
  Kel::Ptr<Kel::Clock const> stateTransitionClock_;
  Kel::Alarm timerAlarm_;
  Kel::Alarm stateTransitionAlarm_;
  std::vector<Kel::Reactor> reactors_;  // on the entities that the platform gives
  Kel::Ptr<EntityMibRootSm> entityMibRootSm_;
  Kel::Ptr<EntityMib::Fru const> chassis_;             // as the run found it
  std::map<Wire::IntfId, Kel::Reactor> ipIntfStatus_;  // on the addresses of each interface
  std::map<Wire::IntfId, Kel::Reactor> ip6IntfStatus_;
  // Where the identity was applied, and the IPv6 address: by the time it is undone the answer may be gone.
  Wire::IntfId identityIntf_;
  std::optional<Wire::Ip6AddrWithMask> identityAddr6_;
  std::unique_ptr<Ports> ports_;
  std::unique_ptr<PortConfig> portConfig_;
  std::unique_ptr<DhcpClients> dhcpClients_;
  std::unique_ptr<DhcpResults> dhcpResults_;
  std::unique_ptr<LateLinks> lateLinks_;
  std::unique_ptr<Offers> offers_;
  std::unique_ptr<Pacing> pacing_;
  // Its type is known where libcurl is (fetch/).
  struct TransferEnd {
    void operator()(CurlTransfer* transfer) const;
  };
  std::unique_ptr<CurlTransfer, TransferEnd> curlCBData_;
  std::shared_ptr<Resume> resume_;  // made with the first download of a run
  Kel::Ptr<Kel::FileDescriptor> curlSockFd_;
  Kel::Reactor curlSockFdReady_;
  struct BootFileCheckEnd {
    void operator()(BootFileCheck* check) const;
  };
  std::unique_ptr<BootFileCheck, BootFileCheckEnd> bootFileCheck_;  // after the transfer
  Kel::Ptr<Kel::ChildSiginfo const> scriptChildProcess_;
  Kel::Reactor scriptStatus_;
  Kel::Ptr<Kel::ChildSiginfo const> flashFlush_;
  Kel::Reactor flashFlushStatus_;
  bool queryFailureReported_ = false;  // by an event, in this attempt
  // What is wrong as to the cause of the last change of state, and as to the download that has ended last.
  Problem problem_ = Problem::none;
  Problem downloadProblem_ = Problem::none;
  bool scriptSignalled_ = false;  // it was asked to end
};

}  // namespace ZeroTouch
