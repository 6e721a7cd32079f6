// The speeds that each port can be tried at, and cycling multi-speed ports through them between retries: a
// port whose far end runs at another speed never gets a link, and so never an answer. Ports that have a link
// or hear a neighbour are left alone.
#include <array>

#include "zerotouch/agent/Events.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

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

constexpr std::string_view separator = ", ";

// A list in which a separator follows each name, as "[a, b]".
Kel::String bracketed(Kel::String const& names) {
  return "[" + names.substr(0, names.size() - std::min(names.size(), separator.size())) + "]";
}

// The mode to try after `mode`: the same one with auto-negotiation where that may be tried, else the next one
// in order, and after the last the first.
std::pair<EthLinkMode, bool> following(LinkModes const& modes, EthLinkMode mode, bool autoneg) {
  auto const current = modes.mode().find(mode);
  if (current != modes.mode().end() && current->second && !autoneg) return {mode, true};
  auto next = modes.mode().upper_bound(mode);
  if (next == modes.mode().end()) next = modes.mode().begin();
  return {next->first, false};
}

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

void ZeroTouchSm::configureMultiSpeedInterfaces() {
  if (intfSpeedToggleRetryCounter() % maxIntfSpeedToggleRetryCount() == 0) {
    toggleIntfSpeed();
    intfSpeedToggleRetryCounterIs(1);
  } else if (maxIntfSpeedToggleRetryCount() > intfSpeedToggleRetryCounter()) {
    intfSpeedToggleRetryCounterIs(static_cast<std::uint16_t>(intfSpeedToggleRetryCounter() + 1));
  }
}

void ZeroTouchSm::toggleIntfSpeed() {
  Kel::String heldByLldp;
  Kel::String heldByLink;
  std::map<Kel::String, Kel::String> changed;  // names by mode, put into the attribute once for all ports
  for (auto const& intfId : episd()->intfStatus().keys()) {
    auto const& name = intfId.stringValue();
    auto const port = episd()->intfStatus(intfId);
    if (!port) continue;
    if (intfNoSpeedChangePool().contains(intfId)) {
      if (port->linkStatus() == Interface::LinkStatus::up) heldByLink.append(name).append(separator);
      if (!port->active()) {
        SM_TRACE(5, " Interface " << name << " is inactive currently, not toggling speed on it ");
      }
      continue;
    }
    if (intfLldpPool().contains(intfId)) {
      heldByLldp.append(name).append(separator);
      continue;
    }
    auto const modes = linkModesOnIntf(intfId);
    if (!nextLinkModeForIntf().contains(intfId) || !modes) {
      SM_TRACE(5, " Interface " << name << " has no supported speeds to toggle ");
      continue;
    }
    EthLinkMode const mode = nextLinkModeForIntf(intfId);
    bool const autoneg = nextAnegModeForIntf(intfId);
    auto const [nextMode, nextAutoneg] = following(*modes, mode, autoneg);
    nextLinkModeForIntfIs(intfId, nextMode);
    nextAnegModeForIntfIs(intfId, nextAutoneg);
    SM_TRACE(5, " Interface " << name << " newLinkMode: " << stringValue(mode) << " newAnegMode: " << autoneg
                              << " nextLinkMode: " << stringValue(nextMode)
                              << " nextAnegMode: " << nextAutoneg);
    changed[getLinkModeAsString(mode, autoneg)].append(name).append(separator);
    portConfig_->linkModeIs(intfId, mode, autoneg);
  }
  for (auto const& [text, names] : changed) intfsSpeedChangedIs(text, names);
  if (!heldByLldp.empty()) {
    SM_TRACE(5, " Not toggling speed on " << bracketed(heldByLldp)
                                          << " because they are still receiving lldp packets ");
  }
  if (!heldByLink.empty()) {
    SM_TRACE(5, " Not toggling speed on " << bracketed(heldByLink) << " beacuse their link status is UP ");
  }
  for (auto const& [mode, names] : intfsSpeedChanged()) {
    ZTP_INTERFACE_SPEED.log(mode, bracketed(names));
    SM_TRACE(5, " Setting interfaces " << bracketed(names) << " linkModeLocal to " << mode);
  }
  intfsSpeedChangedDelAll();
}

}  // namespace ZeroTouch
