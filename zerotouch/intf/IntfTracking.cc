// Which ports and port-channels take part in provisioning.
#include <cstdlib>

#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

constexpr std::string_view managementPrefix = "Management";

bool routed(Interface::EthIntfStatus const& port) {
  return port.forwardingModel() == Interface::IntfForwardingModel::routed;
}

void describe(IntfStatus& record, IntfType type) {
  record.intfTypeIs(type);
  record.intfNameIs(record.intfId().stringValue());
  record.kernelIntfNameIs(record.ethIntfStatus()->deviceName());
}

// The first record, ports before port-channels, that `matches`.
template <typename Matches>
Kel::Ptr<IntfStatus> findRecord(ZeroTouchSmModel const& sm, Matches const& matches) {
  for (auto const& [intfId, record] : sm.phyIntfStatus()) {
    if (matches(*record)) return record;
  }
  for (auto const& [intfId, record] : sm.lagIntfStatus()) {
    if (matches(*record)) return record;
  }
  return nullptr;
}

}  // namespace

bool ignoredAsManagement(Kel::String const& intfName) {
  return intfName.starts_with(managementPrefix) && std::getenv("ZEROTOUCH_IGNORE_MANAGEMENT") != nullptr;
}

bool ZeroTouchSm::shouldProcessIntfStatus() const { return mayActIn(stateSetupInterfaces() | stateRetry()); }

void ZeroTouchSm::doSetupInterfaces() {
  SM_TRACE(5, "");
  ports_->handleRunStart();
  handleEthPhyIntfStatus();
  handleEthLagIntfStatus();
  ports_->lookAtSkipped();
}

void ZeroTouchSm::handleEthPhyIntfStatus(Wire::IntfId intfId) {
  if (!enabled() || !shouldProcessIntfStatus()) {
    ports_->skipEthPhy(intfId);
    return;
  }
  if (episd()->intfStatus(intfId)) {
    portConfig_->layer3Is(intfId);
    doRegisterEthPhyIntf(intfId.stringValue());
    addKnownLinkMode(intfId);
  } else {
    doUnregisterEthPhyIntf(intfId.stringValue());
    linkModesOnIntfDel(intfId);
    nextLinkModeForIntfDel(intfId);
    nextAnegModeForIntfDel(intfId);
    if (!portConfig_->layer3Del(intfId)) ports_->skipEthPhy(intfId);
  }
}

void ZeroTouchSm::handleEthPhyIntfStatus() {
  for (auto const& intfId : episd()->intfStatus().keys()) handleEthPhyIntfStatus(intfId);
}

void ZeroTouchSm::handleEthLagIntfStatus(Wire::IntfId intfId) {
  if (!shouldProcessIntfStatus()) {
    ports_->skipLag(intfId);
    return;
  }
  if (elisd()->intfStatus(intfId)) {
    portConfig_->layer3Is(intfId);
    doRegisterLagIntf(intfId.stringValue());
  } else {
    doUnregisterLagIntf(intfId.stringValue());
    if (!portConfig_->layer3Del(intfId)) ports_->skipLag(intfId);
  }
}

void ZeroTouchSm::handleEthLagIntfStatus() {
  for (auto const& intfId : elisd()->intfStatus().keys()) handleEthLagIntfStatus(intfId);
}

void ZeroTouchSm::doRegisterEthPhyIntf(Kel::String intfName) {
  if (ignoredAsManagement(intfName)) return;
  Wire::IntfId const intfId(intfName);
  auto const port = episd()->intfStatus(intfId);
  if (!port) return;
  auto record = phyIntfStatus(intfId);
  if (record && record->ethIntfStatus() != port) {
    // The port was removed and made again while the view was frozen; the old record watches one that is gone.
    doUnregisterEthPhyIntf(intfName);
    record = nullptr;
  }
  if (!record) {
    record = phyIntfStatusIs(intfId, port);
    describe(*record, IntfType::intfTypePhysical);
    if (routed(*port)) doRegisterIntf(record);
    pamDesiredIntfDir()->intfDesiredIs(intfId, true);
  } else if (routed(*port)) {
    SM_TRACE(5, " " << intfName << " registering, routed interface");
    doRegisterIntf(record);
  } else {
    SM_TRACE(5, " " << intfName << " unregistering, non-routed interface");
    doUnregisterIntf(record);
  }
  ports_->reconcileLldpWatch(record);
}

void ZeroTouchSm::doUnregisterEthPhyIntf(Kel::String intfName) {
  Wire::IntfId const intfId(intfName);
  if (auto const record = phyIntfStatus(intfId)) {
    doUnregisterIntf(record);
    ports_->lldpWatchDel(record);
  }
  pamDesiredIntfDir()->intfDesiredDel(intfId);
  phyIntfStatusDel(intfId);
}

void ZeroTouchSm::doRegisterLagIntf(Kel::String intfName) {
  Wire::IntfId const intfId(intfName);
  auto const lag = elisd()->intfStatus(intfId);
  if (!lag) return;
  auto record = lagIntfStatus(intfId);
  if (record && record->ethIntfStatus() != lag) {
    doUnregisterLagIntf(intfName);
    record = nullptr;
  }
  if (!record) {
    record = lagIntfStatusIs(intfId, lag);
    describe(*record, IntfType::intfTypeLag);
  }
  if (routed(*lag)) {
    SM_TRACE(5, " " << intfName << " registering, routed lag interface");
    doRegisterIntf(record);
    SM_TRACE(5, " " << intfName << " registered for use");
  } else {
    SM_TRACE(5, " " << intfName << " unregistering, non-routed lag interface");
    doUnregisterIntf(record);
  }
}

void ZeroTouchSm::doUnregisterLagIntf(Kel::String intfName) {
  Wire::IntfId const intfId(intfName);
  if (auto const record = lagIntfStatus(intfId)) doUnregisterIntf(record);
  lagIntfStatusDel(intfId);
}

void ZeroTouchSm::doRegisterIntf(Kel::Ptr<IntfStatus> const& record) { intfStatusIs(record); }

void ZeroTouchSm::doUnregisterIntf(Kel::Ptr<IntfStatus> const& record) { intfStatusDel(record->intfId()); }

void ZeroTouchSm::findIntfStatusForKernelIntf(Kel::String kernelName, Kel::Ptr<IntfStatus>& out) const {
  SM_TRACE(5, " kernelIntfName: " << kernelName);
  out = findRecord(*this, [&](IntfStatus const& record) { return record.kernelIntfName() == kernelName; });
}

void ZeroTouchSm::findIntfStatusForInterface(Kel::String intfName, Kel::Ptr<IntfStatus>& out) const {
  out = findRecord(*this, [&](IntfStatus const& record) { return record.intfName() == intfName; });
}

}  // namespace ZeroTouch
