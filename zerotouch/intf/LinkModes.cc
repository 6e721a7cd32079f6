// The speeds that each port can be tried at.
#include <array>

#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {

using Interface::EthLinkMode;
using Interface::EthLinkModeSet;

struct Speed {
  EthLinkMode mode;
  bool EthLinkModeSet::*capability;
  char const* word;
  bool negotiable;  // on a port that can negotiate
};

constexpr std::array speeds{
    Speed{EthLinkMode::linkMode10G, &EthLinkModeSet::mode10G, "10g", false},
    Speed{EthLinkMode::linkMode25G, &EthLinkModeSet::mode25G, "25g", true},
    Speed{EthLinkMode::linkMode40G, &EthLinkModeSet::mode40G, "40g", true},
    Speed{EthLinkMode::linkMode50G, &EthLinkModeSet::mode50G, "50g", true},
    Speed{EthLinkMode::linkMode50G1, &EthLinkModeSet::mode50G1, "50g-1", false},
    Speed{EthLinkMode::linkMode100G, &EthLinkModeSet::mode100G, "100g", true},
    Speed{EthLinkMode::linkMode100G2, &EthLinkModeSet::mode100G2, "100g-2", false},
    Speed{EthLinkMode::linkMode200G4, &EthLinkModeSet::mode200G4, "200g-4", false},
    Speed{EthLinkMode::linkMode400G8, &EthLinkModeSet::mode400G8, "400g-8", false},
};

}  // namespace

void ZeroTouchSm::initializeLinkModes() {
  for (auto const& intfId : episd()->intfStatus().keys()) addKnownLinkMode(intfId);
}

void ZeroTouchSm::addKnownLinkMode(Wire::IntfId intfId) {
  linkModesOnIntfDel(intfId);
  nextLinkModeForIntfDel(intfId);
  nextAnegModeForIntfDel(intfId);
  auto const port = episd()->intfStatus(intfId);
  if (!port) return;
  if (port->autonegCapability() == Interface::AutonegCapability::baseT) {
    SM_TRACE(5, " Setting Base-T interface " << intfId.stringValue() << " to default ");
    return;
  }
  auto const modes = linkModesOnIntfIs(intfId);
  bool const negotiates = port->autonegCapability() == Interface::AutonegCapability::capable;
  for (Speed const& speed : speeds) {
    if (port->linkModeCapabilities().*speed.capability)
      modes->modeIs(speed.mode, speed.negotiable && negotiates);
  }
  if (modes->mode().empty()) return;
  modes->modeIs(EthLinkMode::linkModeDefault, false);
  nextLinkModeForIntfIs(intfId, EthLinkMode::linkModeDefault);
  nextAnegModeForIntfIs(intfId, false);
}

Kel::String ZeroTouchSm::getLinkModeAsString(Interface::EthLinkMode mode, bool autoneg) const {
  if (mode == EthLinkMode::linkModeDefault) return "default speed";
  for (Speed const& speed : speeds) {
    if (speed.mode == mode) return Kel::String(autoneg ? "auto " : "forced ") + speed.word;
  }
  return stringValue(mode);
}

}  // namespace ZeroTouch
