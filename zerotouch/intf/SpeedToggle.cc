// Cycling multi-speed ports through their speeds between retries: a port whose far end runs at another speed
// never gets a link, and so never an answer. Ports that have a link or hear a neighbour are left alone.
#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

namespace {

using Interface::EthLinkMode;

constexpr std::string_view separator = ", ";

// Names that were joined with a separator behind each, in brackets.
Kel::String bracketed(Kel::String const& names) {
  return "[" + names.substr(0, names.size() - std::min(names.size(), separator.size())) + "]";
}

// What follows a mode: the same one negotiated, where that may be tried, else the next one up, and from the
// last back to the first.
std::pair<EthLinkMode, bool> following(LinkModes const& modes, EthLinkMode mode, bool autoneg) {
  auto const current = modes.mode().find(mode);
  if (current != modes.mode().end() && current->second && !autoneg) return {mode, true};
  auto next = modes.mode().upper_bound(mode);
  if (next == modes.mode().end()) next = modes.mode().begin();
  return {next->first, false};
}

}  // namespace

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
  std::map<Kel::String, Kel::String> changed;  // names by mode; a switch has thousands of ports
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
    applyLinkMode(intfId, mode, autoneg);
  }
  for (auto const& [text, names] : changed) intfsSpeedChangedIs(text, names);
  if (!heldByLldp.empty()) {
    SM_TRACE(5, " Not toggling speed on " << bracketed(heldByLldp)
                                          << " because they are still receiving lldp packets ");
  }
  if (!heldByLink.empty()) {
    SM_TRACE(5, " Not toggling speed on " << bracketed(heldByLink) << " beacuse their link status is UP ");
  }
  reportSpeedChanges();
}

void ZeroTouchSm::applyLinkMode(Wire::IntfId const& intfId, EthLinkMode mode, bool autoneg) {
  bool const created = !epicd()->intfConfig().contains(intfId);
  auto const config = epicd()->intfConfigIs(intfId);
  speedSet_.try_emplace(intfId, created);
  if (!autoneg) {
    config->linkModeLocalIs(mode);
  } else if (mode == EthLinkMode::linkMode40G) {
    config->linkModeLocalIs(EthLinkMode::linkModeAutoneg40G);
  } else {
    config->linkModeLocalIs(EthLinkMode::linkModeAutoneg);
    updateAdvertisedModes(config, mode);
  }
}

void ZeroTouchSm::updateAdvertisedModes(Kel::Ptr<Interface::EthPhyIntfConfig> const& config,
                                        EthLinkMode mode) {
  Interface::EthLinkModeSet advertised;
  switch (mode) {
    case EthLinkMode::linkMode25G:
      advertised.mode25G = true;
      break;
    case EthLinkMode::linkMode50G:
      advertised.mode50G = true;
      break;
    case EthLinkMode::linkMode100G:
      advertised.mode100G = true;
      break;
    default:
      KEL_ASSERT(0 && "autoneg for linkMode not supported", "0 && \"autoneg for linkMode not supported\"");
  }
  config->advertisedModesLocalIs(advertised);
  config->advertisedModesConfiguredLocalIs(true);
  config->advertisedModesConfiguredForSfp1000BaseTIs(false);
}

void ZeroTouchSm::restoreSpeeds() {
  for (auto const& [intfId, created] : std::exchange(speedSet_, {})) {
    if (auto const config = epicd()->intfConfig(intfId)) {
      config->linkModeLocalIs(EthLinkMode::linkModeDefault);
      config->advertisedModesConfiguredLocalIs(false);
      if (created) epicd()->intfConfigDel(intfId);
    }
  }
}

void ZeroTouchSm::reportSpeedChanges() {
  for (auto const& [mode, names] : intfsSpeedChanged()) {
    ZTP_INTERFACE_SPEED.log(mode, bracketed(names));
    SM_TRACE(5, " Setting interfaces " << bracketed(names) << " linkModeLocal to " << mode);
  }
  intfsSpeedChangedDelAll();
}

}  // namespace ZeroTouch
