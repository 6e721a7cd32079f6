#include "zerotouch/intf/ZeroTouchPamMan.h"

namespace ZeroTouch {

ZeroTouchPamMan::ZeroTouchPamMan(Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                                 Kel::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir,
                                 Kel::Ptr<KernelNetInfo::Status const> kernelNetInfoStatus)
    : ZeroTouchPamManModel(std::move(name), std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir),
                           std::move(kernelNetInfoStatus)) {
  handleInitialized();
}

void ZeroTouchPamMan::handleInitialized() {
  if (initialized()) return;
  deviceIntfStatusDirIs(Kel::makePtr<Interface::DeviceIntfStatusDir>("disd"));
  pamDesiredIntfDirIs(Kel::makePtr<Interface::PamDesiredIntfDir>("pdid"));
  ethDevPamCollectionIs(Kel::makePtr<Interface::EthDevPamCollection>("edpc"));
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
