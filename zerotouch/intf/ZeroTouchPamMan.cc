#include "zerotouch/intf/ZeroTouchPamMan.h"

#include <array>

#include "platform/kel/ActivityManager.h"

namespace ZeroTouch {

namespace {

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

}  // namespace

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
