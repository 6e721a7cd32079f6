#include "zerotouch/intf/LldpWatch.h"

#include <algorithm>
#include <array>

#include "platform/kel/ActivityManager.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

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

constexpr char const* intfStatusManagerName = "zerotouch/intfStatusManagerRoot";
constexpr char const* ethDevPamManagerName = "zerotouch/ethDevPamManager";

// packet(7)'s ETH_P_ALL: frames of all EtherTypes.
constexpr std::uint16_t allProtocols = 3;

constexpr Wire::EthAddr listenAddr{{0x01, 0x80, 0xc2, 0x00, 0x00, 0x02}};

// Classic BPF operations (bpf(4)): load a word or half-word at an absolute offset, jump if equal, return.
constexpr std::uint16_t loadWord = 0x20;
constexpr std::uint16_t loadHalf = 0x28;
constexpr std::uint16_t jumpIfEqual = 0x15;
constexpr std::uint16_t giveBack = 0x06;

// Passes LLDP frames (IEEE 802.1AB) to the nearest bridge, untagged or with one 802.1Q tag. Offsets are into
// the Ethernet frame; jumps count from the next instruction.
constexpr std::array<Interface::FilterInstruction, 11> lldpFilter{{
    {loadWord, 0, 0, 2},              // 0: destination, bytes 2 to 5
    {jumpIfEqual, 0, 8, 0xc200000e},  // 1: else 10
    {loadHalf, 0, 0, 0},              // 2: destination, bytes 0 and 1
    {jumpIfEqual, 0, 6, 0x0180},      // 3: else 10
    {loadHalf, 0, 0, 12},             // 4: EtherType
    {jumpIfEqual, 3, 0, 0x88cc},      // 5: LLDP: 9
    {jumpIfEqual, 0, 3, 0x8100},      // 6: tagged, else 10
    {loadHalf, 0, 0, 16},             // 7: inner EtherType
    {jumpIfEqual, 0, 1, 0x88cc},      // 8: LLDP: 9, else 10
    {giveBack, 0, 0, 65535},          // 9: the whole frame
    {giveBack, 0, 0, 0},              // 10: nothing
}};

using Frame = std::vector<std::uint8_t>;

// In network byte order; 0 past the end of the frame.
std::uint16_t halfWord(Frame const& frame, std::size_t offset) {
  if (offset + 2 > frame.size()) return 0;
  return static_cast<std::uint16_t>(frame[offset] << 8 | frame[offset + 1]);
}

}  // namespace

IntfPamSm::IntfPamSm(Kel::String name, Kel::Ptr<Wire::Pam> const& pam, ZeroTouchSm* ztSm,
                     IntfStatus* intfStatus)
    : IntfPamSmModel(std::move(name), pam),
      ztSm_(ztSm),
      intfStatus_(intfStatus),
      intfLldpClock_(Kel::activityManager()->config()->clock()),
      hold_([this] { handleLldpTimeout(); }, intfLldpClock_) {
  handleInitialized();
}

void IntfPamSm::handleInitialized() {
  if (initialized()) return;
  readable_ =
      Kel::Reactor(pam(), &Wire::Pam::NotifieeConst::onReadableCount, this, &IntfPamSm::handlePamReadable);
  initializedIs(true);
}

void IntfPamSm::handlePamReadable() {
  Frame const frame = pam()->rxPkt();
  if (frame.size() < minFrame) return;
  std::uint16_t etherType = halfWord(frame, etherTypeOffset);
  std::size_t header = minFrame;
  if (etherType == etherTypeTagged) {
    KEL_TRACE(traceZeroTouchSm, 5,
              "IntfPamSm::" << __func__ << " Received 802.1Q-tagged frame with VLAN ID "
                            << (halfWord(frame, tagControlOffset) & vlanIdMask));
    etherType = halfWord(frame, innerEtherTypeOffset);
    header = std::min(frame.size(), innerEtherTypeOffset + 2);
  }
  if (etherType == etherTypeLldp) {
    handleLldpFrame(neighbourOf(std::span(frame).subspan(header)));
  } else {
    KEL_TRACE(traceZeroTouchSm, 5,
              "IntfPamSm::" << __func__ << " Received frame with incorrect EtherType " << etherType
                            << "-- ignoring");
  }
}

void IntfPamSm::handleLldpFrame(LldpNeighbour const& told) {
  intfIdIs(intfStatus_->intfId());
  if (intfStatus_->ethIntfStatus()->linkStatus() != Interface::LinkStatus::up) return;
  heardTimeIs(Kel::now());
  neighbourIs(told.system);
  neighbourPortIs(told.port);
  hold_.at(Kel::now() + lldpHold);
  ztSm_->intfLldpPoolIs(intfStatus_->ethIntfStatus());
}

void IntfPamSm::handleLldpTimeout() {
  ztSm_->intfLldpPoolDel(intfId());
  hold_.cancel();
}

// The LLDP watch of a port exists while the platform holds a packet socket for it.
void ZeroTouchSm::Ports::reconcileLldpWatch(Kel::Ptr<IntfStatus> const& record) {
  if (!sm_.ethDevPamCollection()) return;
  Kel::String const& name = record->intfName();
  auto const pam = sm_.ethDevPamCollection()->intfPam(record->intfId());
  auto const watch = record->intfPamSm(name);
  if (watch && watch->pam() != pam) lldpWatchDel(record);
  if (pam && !record->intfPamSm(name)) {
    record->intfPamSmIs(Kel::makePtr<IntfPamSm>(name, pam, &sm_, record.get()));
    SM_TRACE(5, " " << name << " pam created");
  }
}

// The port leaves the pool too: the clock that would take it out goes with the watch.
void ZeroTouchSm::Ports::lldpWatchDel(Kel::Ptr<IntfStatus> const& record) {
  if (record->intfPamSm().empty()) return;
  record->intfPamSmDelAll();
  sm_.intfLldpPoolDel(record->intfId());
  SM_TRACE(5, " " << record->intfName() << " pam deleted");
}

void ZeroTouchSm::handleEthDevPam(Wire::IntfId intfId) {
  if (shouldProcessIntfStatus()) {
    doRegisterEthPhyIntf(intfId.stringValue());
  } else {
    ports_->skipEthPhy(intfId);
  }
}

void ZeroTouchSm::handleEthDevPam() {
  for (auto const& intfId : ethDevPamCollection()->intfPam().keys()) handleEthDevPam(intfId);
}

ZeroTouchPamMan::ZeroTouchPamMan(Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                                 Kel::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir,
                                 Kel::Ptr<KernelNetInfo::Status const> kernelNetInfoStatus)
    : ZeroTouchPamManModel(std::move(name), std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir),
                           std::move(kernelNetInfoStatus)) {
  handleInitialized();
}

ZeroTouchPamMan::~ZeroTouchPamMan() {
  Kel::activityManager()->localEntityDel(ethDevPamManagerName);
  Kel::activityManager()->localEntityDel(intfStatusManagerName);
}

void ZeroTouchPamMan::handleInitialized() {
  if (initialized()) return;
  deviceIntfStatusDirIs(Kel::makePtr<Interface::DeviceIntfStatusDir>("disd"));
  pamDesiredIntfDirIs(Kel::makePtr<Interface::PamDesiredIntfDir>("pdid"));
  ethDevPamCollectionIs(Kel::makePtr<Interface::EthDevPamCollection>("edpc"));

  auto const root = Kel::makePtr<Interface::NetNsIntfStatusManagerRoot>(
      allIntfStatusDir(), allIntfStatusLocalDir(), KernelNetInfo::NamespaceName());
  root->deviceIntfStatusDirIs(deviceIntfStatusDir());
  root->kernelNetInfoStatusIs(kernelNetInfoStatus());
  intfStatusManagerRootIs(root);

  auto const manager = Kel::makePtr<Interface::EthDevPamManager>(pamDesiredIntfDir(), ethDevPamCollection(),
                                                                 deviceIntfStatusDir());
  manager->ethProtocolIs(allProtocols);
  for (std::uint16_t i = 0; i < lldpFilter.size(); ++i) manager->filterProgramIs(i, lldpFilter[i]);
  manager->listenAddrIs(listenAddr);
  manager->enabledIs(true);
  ethDevPamManagerIs(manager);

  Kel::activityManager()->localEntityIs(intfStatusManagerName, root);
  Kel::activityManager()->localEntityIs(ethDevPamManagerName, manager);
  initializedIs(true);
}

Kel::Ptr<ZeroTouchPamMan> zeroTouchPamManFactory(
    Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
    Kel::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir,
    Kel::Ptr<KernelNetInfo::Status const> const& kernelNetInfoStatus) {
  return Kel::makePtr<ZeroTouchPamMan>(std::move(name), allIntfStatusDir, allIntfStatusLocalDir,
                                       kernelNetInfoStatus);
}

}  // namespace ZeroTouch
