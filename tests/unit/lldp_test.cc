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

std::vector<std::uint8_t> const lldpFrame{0x01, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x88, 0xcc};

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

TEST_F(Lldp, a_port_that_hears_its_neighbour_keeps_its_speed_for_120_seconds) {
  auto const pam = listeningPort("Ethernet1");
  platform.episd->intfStatus(id("Ethernet1"))->linkStatusIs(Interface::LinkStatus::down);
  pam->receive(lldpFrame);
  EXPECT_EQ(hearing(), "") << "without a link";
  platform.episd->intfStatus(id("Ethernet1"))->linkStatusIs(Interface::LinkStatus::up);
  pam->receive(lldpFrame);
  time.advance(100);
  pam->receive(lldpFrame);
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
    pam->receive(lldpFrame);
    EXPECT_EQ(hearing(), "Ethernet1");
    if (goes == Goes::socket) pams()->intfPamDel(id("Ethernet1"));
    if (goes == Goes::port) removePort("Ethernet1");
    if (goes == Goes::provisioning) platform.config->enabledIs(false);
    EXPECT_EQ(hearing(), "");
    pams()->intfPamDel(id("Ethernet1"));  // the platform follows, maybe while the stop is still pending
    EXPECT_EQ(known(), goes == Goes::socket ? "Ethernet1" : "");
    pam->receive(lldpFrame);
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
  pam->receive(lldpFrame);
  EXPECT_EQ(hearing(), "");
  sm().doStateTransition(State::stateDhcpQuery, State::stateRetry, ZeroTouch::TransitionCause::noBootFile);
  time.settle();
  pam->receive(lldpFrame);
  EXPECT_EQ(hearing(), "Ethernet1");
}
