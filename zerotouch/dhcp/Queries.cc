// What the DHCP clients are used for: who is asked, by which client, and the release of what was leased.
#include <cstdlib>
#include <cstring>

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/LateLinks.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

std::vector<Kel::String> kernelNames(Kel::Collection<Wire::IntfId, Kel::Ptr<IntfStatus>> const& interfaces) {
  std::vector<Kel::String> result;
  for (auto const& [intfId, intf] : interfaces) result.push_back(intf->kernelIntfName());
  return result;
}

Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclientChildProcess() const {
  return dhcpClients_->dhclient.child();
}
Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclient6ChildProcess() const {
  return dhcpClients_->dhclient6.child();
}
Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclient6StatelessChildProcess() const {
  return dhcpClients_->dhclient6Stateless.child();
}

void ZeroTouchSm::dhclientChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhcpClients_->dhclient.childIs(child);
}
void ZeroTouchSm::dhclient6ChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhcpClients_->dhclient6.childIs(child);
}
void ZeroTouchSm::dhclient6StatelessChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhcpClients_->dhclient6Stateless.childIs(child);
}

void ZeroTouchSm::dhclientChildProcessDel() { dhcpClients_->dhclient.childDel(); }
void ZeroTouchSm::dhclient6ChildProcessDel() { dhcpClients_->dhclient6.childDel(); }
void ZeroTouchSm::dhclient6StatelessChildProcessDel() { dhcpClients_->dhclient6Stateless.childDel(); }

void ZeroTouchSm::doStopDhclient() { dhcpClients_->dhclient.stop(__func__); }
void ZeroTouchSm::doStopDhclient6() { dhcpClients_->dhclient6.stop(__func__); }
void ZeroTouchSm::doStopDhclient6Stateless() { dhcpClients_->dhclient6Stateless.stop(__func__); }

// A client that ends is not started again: the timer of the query decides what follows. In stateShutdown its
// end is the end of a release.
void ZeroTouchSm::handleDhclientChildProcessStatus() {
  if (!dhcpClients_->dhclient.ended(__func__) || currentState() != stateShutdown()) return;
  doStopDhclient6();
  doShutdown();
}

void ZeroTouchSm::handleDhclient6ChildProcessStatus() {
  if (!dhcpClients_->dhclient6.ended(__func__) || currentState() != stateShutdown()) return;
  doStopDhclient();
  doShutdown();
}

void ZeroTouchSm::handleDhclient6StatelessChildProcessStatus() {
  if (dhcpClients_->dhclient6Stateless.ended(__func__) && currentState() == stateShutdown()) doShutdown();
}

char** ZeroTouchSm::allocDhclientAcquireCommandline() const {
  return dhcpClients_->dhclient.acquireCommandline(dhcpDevices(), __func__);
}

char** ZeroTouchSm::allocDhclient6AcquireCommandline() const {
  return dhcpClients_->dhclient6.acquireCommandline(kernelNames(intfStatus6()), __func__);
}

// The stateless client asks one interface at a time, here the first.
char** ZeroTouchSm::allocDhclient6StatelessAcquireCommandline(U32Ptr idx) const {
  auto devices = kernelNames(intfStatus6Stateless());
  if (!devices.empty()) devices.resize(1);
  return dhcpClients_->dhclient6Stateless.acquireCommandline(devices, __func__, idx);
}

char** ZeroTouchSm::allocDhclientReleaseCommandline() const {
  return dhcpClients_->dhclient.releaseCommandline(__func__);
}

char** ZeroTouchSm::allocDhclient6ReleaseCommandline() const {
  return dhcpClients_->dhclient6.releaseCommandline(__func__);
}

std::vector<Kel::String> ZeroTouchSm::dhcpDevices() const {
  std::vector<Kel::String> result;
  for (auto const& [intfId, intf] : intfStatus()) {
    if (ignoredAsManagement(intf->intfName())) continue;
    auto const status = aisd()->intfStatus(intfId);
    if (!status || status->forwardingModel() == Interface::IntfForwardingModel::bridged) continue;
    bool const unusable = status->operStatus() == Interface::OperStatus::down &&
                          status->forwardingModel() != Interface::IntfForwardingModel::unconfigured;
    if (unusable && std::getenv("ZEROTOUCH_IGNORE_OPERSTATUS") == nullptr) continue;
    result.push_back(status->deviceName());
  }
  return result;
}

void ZeroTouchSm::doStartDhcpQuery() {
  queryFailureReported_ = false;
  doCompleteDhclientConfigFiles();
  startDhcpv4();
  selectIntfs6();
  offers_->startQuery();
  startDhcpv6();
  lateLinks_->queryIs(dhcpDevices(), kernelNames(intfStatus6()));
}

void ZeroTouchSm::startDhcpv4() {
  if (!dhcpClients_->dhclient.start(allocDhclientAcquireCommandline(), false, dhcpDevices(), __func__))
    SM_TRACE(5, " - Failed to alloc dhclient command line");
}

void ZeroTouchSm::startDhcpv6() {
  if (!dhcpClients_->dhclient6.start(allocDhclient6AcquireCommandline(), false, kernelNames(intfStatus6()),
                                     __func__))
    SM_TRACE(5, " - Failed to alloc dhclient6 command line");
}

// The client asks anew on all ports, since it reads its configuration when it starts.
void ZeroTouchSm::rejectServer(Kel::String const& server) {
  if (dhcpClients_->dhclient.reject(server)) startDhcpv4();
}

void ZeroTouchSm::reportQueryFailure(Kel::LogHandle& event) {
  event.log();
  queryFailureReported_ = true;
}

// Router advertisements tell how each network hands out its addresses.
void ZeroTouchSm::selectIntfs6() {
  intfStatus6DelAll();
  intfStatus6StatelessDelAll();
  for (auto const& [intfId, advertisement] : raPacketStatus()->raPacket()) {
    auto const intf = intfStatus(intfId);
    if (!intf || !isIpv6Enabled(intf->kernelIntfName())) continue;
    if (askedFor(advertisement->managed()) == AnswerFamily::dhcpv6) {
      intfStatus6Is(intf);
    } else {
      intfStatus6StatelessIs(intf);
    }
  }
}

void ZeroTouchSm::doStartStatelessDhcpQuery() {
  if (intfStatus6Stateless().empty()) {
    SM_TRACE(5, "No interfaces need stateless dhclient");
  } else if (askNextStatelessIntf()) {
    return;
  }
  if (takeBestOffer(true)) return;
  if (queryFailureReported_) {
    doStateTransition(stateStatelessDhcpQuery(), stateRetry(),
                      {TransitionCause::noBootFile, whyNoBootFile()});
    return;
  }
  Trouble const trouble = whyNobodyIsAsked();
  dhcpNotAsked.log(trouble.text);
  doStateTransition(stateStatelessDhcpQuery(), stateRetry(), {TransitionCause::noPortAsked, trouble});
}

bool ZeroTouchSm::askNextStatelessIntf() {
  std::uint32_t idx = 0;
  char** const cmdLine6Stateless = allocDhclient6StatelessAcquireCommandline(&idx);
  if (cmdLine6Stateless == nullptr) {
    SM_TRACE(5, " - Failed to alloc dhclient6Statelss command line");
    return false;
  }
  auto const intf = intfStatus6Stateless().begin()->second;
  cmdLine6Stateless[idx] = strdup(intf->kernelIntfName().c_str());
  KEL_ASSERT(cmdLine6Stateless[idx] != nullptr, "*( ( char** )cmdLine6Stateless + idx )");
  dhcpClients_->dhclient6Stateless.start(cmdLine6Stateless, false, {intf->kernelIntfName()}, __func__);
  intfStatus6StatelessDel(intf->intfId());
  doStartStatelessDhclientQueryTimer();
  return true;
}

// A lease is handed back so that the address is free for the next attempt, or for the configuration that the
// switch boots into. A release that still runs goes on.
void ZeroTouchSm::doReleaseLease() {
  if (!choosenIntf() || dhcpClients_->dhclient.releases()) return;
  if (!dhcpClients_->dhclient.start(allocDhclientReleaseCommandline(), true,
                                    {choosenIntf()->kernelIntfName()}, __func__))
    SM_TRACE(1, " - Failed to alloc dhclient command line");
}

void ZeroTouchSm::doReleaseLease6() {
  if (!choosenIntf() || dhcpClients_->dhclient6.releases()) return;
  if (!dhcpClients_->dhclient6.start(allocDhclient6ReleaseCommandline(), true,
                                     {choosenIntf()->kernelIntfName()}, __func__))
    SM_TRACE(1, " - Failed to alloc dhclient v6 command line");
}

}  // namespace ZeroTouch
