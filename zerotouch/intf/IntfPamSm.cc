#include "zerotouch/intf/IntfPamSm.h"

#include "platform/kel/ActivityManager.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {

// How long a port counts as hearing its neighbour after a frame.
constexpr Kel::Seconds lldpHold = 120;

constexpr std::size_t minFrame = 14;
constexpr std::size_t etherTypeOffset = 12;
constexpr std::size_t tagControlOffset = 14;
constexpr std::size_t innerEtherTypeOffset = 16;
constexpr std::uint16_t etherTypeTagged = 0x8100;
constexpr std::uint16_t etherTypeLldp = 0x88cc;
constexpr std::uint16_t vlanIdMask = 0x0fff;

using Frame = std::vector<std::uint8_t>;

// In network byte order; 0 past the end of the frame.
std::uint16_t halfWord(Frame const& frame, std::size_t offset) {
  if (offset + 2 > frame.size()) return 0;
  return static_cast<std::uint16_t>(frame[offset] << 8 | frame[offset + 1]);
}

}  // namespace

IntfPamSm::IntfPamSm(Kel::String name, Kel::Ptr<Wire::Pam> const& pam, ZeroTouchSm* ztSm,
                     IntfStatus* intfStatus)
    : IntfPamSmModel(std::move(name), pam), ztSm_(ztSm), intfStatus_(intfStatus) {
  handleInitialized();
}

void IntfPamSm::handleInitialized() {
  if (initialized()) return;
  intfLldpClock_ = Kel::makePtr<KelIntfLldpClock>(Kel::activityManager()->config()->clock(), *this);
  kelPam_ = Kel::makePtr<KelPam>(pam(), *this);
  initializedIs(true);
}

void IntfPamSm::handlePamReadable() {
  Frame const frame = pam()->rxPkt();
  if (frame.size() < minFrame) return;
  std::uint16_t etherType = halfWord(frame, etherTypeOffset);
  if (etherType == etherTypeTagged) {
    KEL_TRACE(traceZeroTouchSm, 5,
              "IntfPamSm::" << __func__ << " Received 802.1Q-tagged frame with VLAN ID "
                            << (halfWord(frame, tagControlOffset) & vlanIdMask));
    etherType = halfWord(frame, innerEtherTypeOffset);
  }
  if (etherType == etherTypeLldp) {
    handleLldpFrame();
  } else {
    KEL_TRACE(traceZeroTouchSm, 5,
              "IntfPamSm::" << __func__ << " Received frame with incorrect EtherType " << etherType
                            << "-- ignoring");
  }
}

void IntfPamSm::handleLldpFrame() {
  intfIdIs(intfStatus_->intfId());
  if (intfStatus_->ethIntfStatus()->linkStatus() != Interface::LinkStatus::up) return;
  heardTimeIs(Kel::now());
  intfLldpClock_->timeMinIs(Kel::now() + lldpHold);
  ztSm_->intfLldpPoolIs(intfStatus_->ethIntfStatus());
}

void IntfPamSm::handleLldpTimeout() {
  ztSm_->intfLldpPoolDel(intfId());
  intfLldpClock_->timeMinIs(Kel::never);
}

// The LLDP watch of a port exists while the platform holds a packet socket for it.
void ZeroTouchSm::reconcileLldpWatch(Kel::Ptr<IntfStatus> const& record) {
  if (!ethDevPamCollection()) return;
  Kel::String const& name = record->intfName();
  auto const pam = ethDevPamCollection()->intfPam(record->intfId());
  auto const watch = record->intfPamSm(name);
  if (watch && watch->pam() != pam) lldpWatchDel(record);
  if (pam && !record->intfPamSm(name)) {
    record->intfPamSmIs(Kel::makePtr<IntfPamSm>(name, pam, this, record.get()));
    SM_TRACE(5, " " << name << " pam created");
  }
}

// The hold clock goes with the watch, so nothing else would take the port out of the pool.
void ZeroTouchSm::lldpWatchDel(Kel::Ptr<IntfStatus> const& record) {
  if (record->intfPamSm().empty()) return;
  record->intfPamSmDelAll();
  intfLldpPoolDel(record->intfId());
  SM_TRACE(5, " " << record->intfName() << " pam deleted");
}

void ZeroTouchSm::handleEthDevPam(Wire::IntfId intfId) {
  if (shouldProcessIntfStatus()) {
    doRegisterEthPhyIntf(intfId.stringValue());
  } else {
    skippedEthPhy_.insert(intfId);
  }
}

void ZeroTouchSm::handleEthDevPam() {
  for (auto const& intfId : ethDevPamCollection()->intfPam().keys()) handleEthDevPam(intfId);
}

}  // namespace ZeroTouch
