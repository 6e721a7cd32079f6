// Hearing LLDP on the ports, and what that spares them.
#include "tests/unit/support/Ports.h"

namespace {

// A socket whose frames a test hands in.
struct TestPam : Wire::Pam {
  using Pam::Pam;
  void receive(std::vector<std::uint8_t> received) {
    frame = std::move(received);
    readableCountIs(readableCount() + 1);
  }
  std::vector<std::uint8_t> rxPkt() override { return std::exchange(frame, {}); }
  std::vector<std::uint8_t> frame;
};

// A frame of `size` bytes whose two-byte fields from offset 12 on are `fields`.
std::vector<std::uint8_t> frame(std::size_t size, std::vector<std::uint16_t> const& fields) {
  std::vector<std::uint8_t> bytes{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 2, 0, 0, 0, 0, 1};
  for (auto const field : fields) {
    bytes.push_back(static_cast<std::uint8_t>(field >> 8));
    bytes.push_back(static_cast<std::uint8_t>(field));
  }
  bytes.resize(size);
  return bytes;
}

// Opens and closes sockets within the call that asks for it.
struct PromptSockets : Interface::PamDesiredIntfDir::NotifieeConst {
  explicit PromptSockets(ZeroTouch::ZeroTouchPamMan const& manager)
      : NotifieeConst(manager.pamDesiredIntfDir()), open(manager.ethDevPamCollection()) {}
  void onIntfDesired(Wire::IntfId const& intfId) override {
    if (notifier().intfDesired(intfId)) {
      open->intfPamIs(Kel::makePtr<TestPam>(intfId));
    } else {
      open->intfPamDel(intfId);
    }
  }
  Kel::Ptr<Interface::EthDevPamCollection> open;
};

// Makes a port routed, and no longer so, within the call that asks for it.
struct PromptForwarding : L3::Intf::ConfigDir::NotifieeConst {
  explicit PromptForwarding(ZeroTouch::MountedEntities const& entities)
      : NotifieeConst(entities.l3ConfigDir), ports(entities.episd) {}
  void onIntfConfig(Wire::IntfId const& intfId) override {
    using enum Interface::IntfForwardingModel;
    if (auto const port = ports->intfStatus(intfId)) {
      port->forwardingModelIs(notifier().intfConfig(intfId) ? routed : unconfigured);
    }
  }
  Kel::Ptr<Interface::AllEthPhyIntfStatusDir> ports;
};

}  // namespace

class Lldp : public PortTest {
 protected:
  // A linked port whose socket the platform has opened.
  Kel::Ptr<TestPam> listeningPort(std::string const& name) {
    auto const port = addPort(name, routed, {"10g", "40g"});  // a link alone does not spare such a port
    port->linkStatusIs(Interface::LinkStatus::up);
    if (!agent) inSetup();
    auto const pam = Kel::makePtr<TestPam>(id(name));
    pams()->intfPamIs(pam);
    return pam;
  }
  Kel::Ptr<Interface::EthDevPamCollection> const& pams() { return agent->ztPamMan()->ethDevPamCollection(); }
  std::string hearing() { return names(sm().intfLldpPool()); }
};

TEST_F(Lldp, only_lldp_frames_on_a_linked_port_count) {
  using enum Interface::LinkStatus;
  auto const pam = listeningPort("Ethernet1");
  for (auto const& [received, link, counts] :
       std::vector<std::tuple<std::vector<std::uint8_t>, Interface::LinkStatus, bool>>{
           {frame(60, {0x88cc}), up, true},
           {frame(14, {0x88cc}), up, true},
           {frame(60, {0x8100, 0x0fff, 0x88cc}), up, true},
           {frame(60, {0x8100, 1, 0x8100, 2, 0x88cc}), up, false},
           {frame(13, {0x88cc}), up, false},
           {frame(14, {0x8100}), up, false},
           {frame(17, {0x8100, 1, 0x88cc}), up, false},
           {frame(60, {0x0800}), up, false},
           {{}, up, false},
           {frame(60, {0x88cc}), down, false}}) {
    platform.episd->intfStatus(id("Ethernet1"))->linkStatusIs(link);
    pam->receive(received);
    EXPECT_EQ(hearing(), counts ? "Ethernet1" : "");
    sm().intfLldpPoolDelAll();
  }
}

TEST_F(Lldp, a_port_that_hears_its_neighbour_keeps_its_speed_for_120_seconds) {
  auto const pam = listeningPort("Ethernet1");
  pam->receive(frame(60, {0x88cc}));
  time.advance(100);
  pam->receive(frame(60, {0x88cc}));
  time.advance(119);
  events.clear();
  sm().toggleIntfSpeed();
  EXPECT_EQ(takeEvents(), Strings{});
  EXPECT_EQ(hearing(), "Ethernet1");
  time.advance(1);
  EXPECT_EQ(hearing(), "");
  sm().toggleIntfSpeed();
  EXPECT_EQ(events.size(), 1);
}

TEST_F(Lldp, a_watch_goes_with_its_socket_or_port_and_takes_the_port_out_of_the_pool) {
  enum class Goes { socket, port, provisioning };
  for (Goes const goes : {Goes::socket, Goes::port, Goes::provisioning}) {
    auto const pam = listeningPort("Ethernet1");
    pam->receive(frame(60, {0x88cc}));
    EXPECT_EQ(hearing(), "Ethernet1");
    if (goes == Goes::socket) pams()->intfPamDel(id("Ethernet1"));
    if (goes == Goes::port) removePort("Ethernet1");
    if (goes == Goes::provisioning) platform.config->enabledIs(false);
    EXPECT_EQ(hearing(), "");
    pams()->intfPamDel(id("Ethernet1"));  // the platform follows, maybe while the stop is still pending
    EXPECT_EQ(known(), goes == Goes::socket ? "Ethernet1" : "");
    pam->receive(frame(60, {0x88cc}));
    EXPECT_EQ(hearing(), "");
    startOver();
  }
}

TEST_F(Lldp, a_socket_that_comes_while_the_view_is_frozen_is_watched_from_the_next_retry_on) {
  addPort("Ethernet1", routed)->linkStatusIs(Interface::LinkStatus::up);
  inSetup();
  sm().currentStateIs(State::stateDhcpQuery);
  sm().doCancelTimer();
  auto const pam = Kel::makePtr<TestPam>(id("Ethernet1"));
  pams()->intfPamIs(pam);
  pam->receive(frame(60, {0x88cc}));
  EXPECT_EQ(hearing(), "");
  sm().doStateTransition(State::stateDhcpQuery, State::stateRetry);
  time.settle();
  pam->receive(frame(60, {0x88cc}));
  EXPECT_EQ(hearing(), "Ethernet1");
}

TEST_F(Lldp, a_platform_may_react_within_the_call_that_asks) {
  for (bool const immediate : {false, true}) {
    Environment scoped;
    if (immediate) scoped.set("ZEROTOUCH_FORCE_IMMEDIATE_STATE_TRANSITIONS", "1");
    atRest();
    inventoryIs(EntityMib::InitStatus::initialized);
    auto const sockets = Kel::makePtr<PromptSockets>(*agent->ztPamMan());
    auto const forwarding = Kel::makePtr<PromptForwarding>(platform);
    auto const expectPorts = [&](std::string const& expected) {
      time.settle();
      EXPECT_EQ((Strings{known(), registered(), socketsWanted(), names(pams()->intfPam())}),
                Strings(4, expected));
      for (auto const& [intfId, port] : platform.episd->intfStatus()) {
        port->linkStatusIs(Interface::LinkStatus::up);
        if (auto const pam = pams()->intfPam(intfId)) {
          static_cast<TestPam&>(*pam).receive(frame(60, {0x88cc}));
        }
      }
      EXPECT_EQ(hearing(), expected);
    };
    addPort("Ethernet1", unconfigured);
    addPort("Ethernet2", unconfigured);
    platform.config->enabledIs(true);
    expectPorts("Ethernet1 Ethernet2");
    addPort("Ethernet3", unconfigured);
    removePort("Ethernet1");
    expectPorts("Ethernet2 Ethernet3");
    platform.episd->intfStatusIs(Kel::makePtr<Interface::EthPhyIntfStatus>(id("Ethernet2")));
    platform.episd->intfStatus(id("Ethernet2"))->forwardingModelIs(routed);
    expectPorts("Ethernet2 Ethernet3");
    EXPECT_EQ(sm().phyIntfStatus(id("Ethernet2"))->ethIntfStatus(),
              platform.episd->intfStatus(id("Ethernet2")));

    time.advance(50);  // into the first retry
    EXPECT_EQ(sm().currentState(), State::stateRetry);
    platform.config->enabledIs(false);
    expectPorts("");
    EXPECT_TRUE(platform.ip6Config->intf().empty() && platform.l3ConfigDir->intfConfig().empty());
    platform.config->enabledIs(true);
    expectPorts("Ethernet2 Ethernet3");
    EXPECT_EQ(runningTimer(), "InterfacesSetupTimer");
    startOver();
  }
}
