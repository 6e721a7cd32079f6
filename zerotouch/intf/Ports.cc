// What is watched of each port and port-channel.
#include "zerotouch/intf/Ports.h"

#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {
// How long a link that has come up protects its port from a change of speed.
constexpr Kel::Seconds linkActiveHold = 120;
}  // namespace

ZeroTouchSm::Ports::Ports(ZeroTouchSm& sm) : sm_(sm) {}

ZeroTouchSm::Ports::~Ports() = default;

void ZeroTouchSm::Ports::ethPhyIntfStatusIs(Wire::IntfId const& intfId) {
  auto const port = sm_.episd()->intfStatus(intfId);
  Kel::follow(ethPhyIntfStatus_, intfId, port,
              [this](auto const& entity) { return Kel::makePtr<KelEthPhyIntfStatus>(entity, sm_); });
  if (!port) sm_.intfNoSpeedChangePoolDel(intfId);
}

void ZeroTouchSm::Ports::ethLagIntfStatusIs(Wire::IntfId const& intfId) {
  using Hooks = Interface::EthIntfStatus::NotifieeConst;
  Kel::follow(ethLagIntfStatus_, intfId, sm_.elisd()->intfStatus(intfId), [&](auto const& lag) {
    return Kel::Reactor(lag, {&Hooks::onDeviceName, &Hooks::onForwardingModel},
                        [this, intfId] { handleEthLagIntf(intfId); });
  });
}

void ZeroTouchSm::Ports::handleRunStart() {
  for (auto const& [intfId, port] : ethPhyIntfStatus_) port->handleRunStart();
}

void ZeroTouchSm::Ports::lookAtSkipped() {
  for (auto const& intfId : std::exchange(skippedEthPhy_, {})) sm_.handleEthPhyIntfStatus(intfId);
  for (auto const& intfId : std::exchange(skippedLag_, {})) sm_.handleEthLagIntfStatus(intfId);
}

// As for a port: the record follows the device's name in any state, the registration while the view is live.
void ZeroTouchSm::Ports::handleEthLagIntf(Wire::IntfId const& intfId) {
  auto const lag = sm_.elisd()->intfStatus(intfId);
  auto const record = sm_.lagIntfStatus(intfId);
  if (record && record->ethIntfStatus() == lag) record->kernelIntfNameIs(lag->deviceName());
  if (!sm_.enabled()) return;
  if (sm_.shouldProcessIntfStatus()) {
    sm_.doRegisterLagIntf(intfId.stringValue());
  } else {
    skipLag(intfId);
  }
}

ZeroTouchSm::Ports::KelEthPhyIntfStatus::KelEthPhyIntfStatus(
    Kel::Ptr<Interface::EthPhyIntfStatus const> const& port, ZeroTouchSm& sm)
    : NotifieeConst(port),
      port_(port),
      sm_(sm),
      intfLinkActiveClock_([this] { handleLinkActiveTimeout(intfId()); }) {
  handleInitialized(intfId());
}

void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleInitialized(Wire::IntfId const& intfId) {
  handleLinkAndActiveStatus(intfId);
}

// DHCP reports carry device names, so a record follows its device's name in any state.
void ZeroTouchSm::Ports::KelEthPhyIntfStatus::onDeviceName() {
  if (auto const record = sm_.phyIntfStatus(intfId()); record && record->ethIntfStatus() == port_) {
    record->kernelIntfNameIs(port_->deviceName());
  }
}

// A port that runs at both may have come up at the wrong one, so its link does not protect its speed.
bool ZeroTouchSm::Ports::KelEthPhyIntfStatus::canRunAt10GAnd40G(Wire::IntfId const& intfId) const {
  if (auto const modes = sm_.linkModesOnIntf(intfId)) {
    return modes->mode().contains(Interface::EthLinkMode::linkMode10G) &&
           modes->mode().contains(Interface::EthLinkMode::linkMode40G);
  }
  // The port's modes have not been taken in yet.
  auto const& capabilities = port_->linkModeCapabilities();
  return capabilities.mode10G && capabilities.mode40G;
}

void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleLinkAndActiveStatus(Wire::IntfId const& intfId) {
  if (canRunAt10GAnd40G(intfId)) {
    KEL_TRACE(traceZeroTouchSm, 5,
              "KelEthPhyIntfStatus::" << __func__ << " Ignoring link status for 10/40G capable "
                                      << intfId.stringValue());
    // The port may be in the pool from before it reported both speeds.
    handleLinkActiveTimeout(intfId);
    return;
  }
  bool const up = port_->linkStatus() == Interface::LinkStatus::up;
  if (up || !port_->active()) {
    sm_.intfNoSpeedChangePoolIs(port_);
    intfLinkActiveClock_.at(up ? Kel::now() + linkActiveHold : Kel::never);
  } else {
    sm_.intfNoSpeedChangePoolDel(intfId);
    intfLinkActiveClock_.cancel();
  }
}

// The end of the last run has emptied the pool; a port whose speed is still to be left alone goes back in.
void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleRunStart() {
  bool const linkHolds = intfLinkActiveClock_.isSet();
  bool const inactive = !port_->active() && port_->linkStatus() != Interface::LinkStatus::up;
  if (linkHolds || (inactive && !canRunAt10GAnd40G(intfId()))) sm_.intfNoSpeedChangePoolIs(port_);
}

// Provisioning has not finished over this link in time, so another speed may be tried.
void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleLinkActiveTimeout(Wire::IntfId const& intfId) {
  sm_.intfNoSpeedChangePoolDel(intfId);
  intfLinkActiveClock_.cancel();
}

void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleForwardingModel() {
  if (!sm_.enabled()) return;
  if (sm_.shouldProcessIntfStatus()) {
    sm_.doRegisterEthPhyIntf(intfId().stringValue());
  } else {
    sm_.ports_->skipEthPhy(intfId());
  }
}

void ZeroTouchSm::Ports::KelEthPhyIntfStatus::handleLinkModeCapabilities(Wire::IntfId const& intfId) {
  if (sm_.enabled()) sm_.addKnownLinkMode(intfId);
}

}  // namespace ZeroTouch
