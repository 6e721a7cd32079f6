// Ports for the agent under test.
#pragma once

#include "tests/unit/support/AgentTest.h"

class PortTest : public AgentTest {
 protected:
  using Forwarding = Interface::IntfForwardingModel;
  static constexpr Forwarding unconfigured = Forwarding::unconfigured;
  static constexpr Forwarding bridged = Forwarding::bridged;
  static constexpr Forwarding routed = Forwarding::routed;
  using Port = Kel::Ptr<Interface::EthPhyIntfStatus>;

  static Wire::IntfId id(std::string const& name) { return Wire::IntfId(name); }

  // An active port without a link, which can run at the given speeds ("10g", "25g", "40g", "100g").
  Port addPort(std::string const& name, Forwarding forwarding, std::vector<std::string> const& speeds = {},
               Interface::AutonegCapability autoneg = Interface::AutonegCapability::none) {
    auto const port = Kel::makePtr<Interface::EthPhyIntfStatus>(id(name));
    port->deviceNameIs("dev-" + name);
    port->forwardingModelIs(forwarding);
    port->activeIs(true);
    port->linkStatusIs(Interface::LinkStatus::down);
    port->autonegCapabilityIs(autoneg);
    Interface::EthLinkModeSet capabilities;
    for (auto const& speed : speeds) {
      capabilities.mode10G |= speed == "10g";
      capabilities.mode25G |= speed == "25g";
      capabilities.mode40G |= speed == "40g";
      capabilities.mode100G |= speed == "100g";
    }
    port->linkModeCapabilitiesIs(capabilities);
    platform.aisd->intfStatusIs(port);
    platform.episd->intfStatusIs(port);
    return port;
  }

  // Starts a run and stops time in stateSetupInterfaces.
  Sm& inSetup() {
    inventoryIs(EntityMib::InitStatus::initialized);
    platform.config->enabledIs(true);
    agent = createAgent();
    time.settle();
    EXPECT_EQ(sm().currentState(), State::stateSetupInterfaces);
    return sm();
  }
  Sm& inQuery() {
    inSetup();
    time.advance(30);
    EXPECT_EQ(sm().currentState(), State::stateDhcpQuery);
    return sm();
  }

  template <typename Collection>
  static std::string names(Collection const& collection) {
    std::string result;
    for (auto const& [intfId, value] : collection)
      result += (result.empty() ? "" : " ") + intfId.stringValue();
    return result;
  }
};
