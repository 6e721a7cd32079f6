// The DHCP clients: which interfaces are asked, with what command lines and files, and the release of leases.
#include <fstream>

#include "tests/unit/support/Ports.h"
#include "zerotouch/dhcp/DhclientFiles.h"

class DhcpClients : public PortTest {
 protected:
  DhcpClients() {
    environment.unset("ZEROTOUCH_DHCLIENT");
    environment.unset("STATEBASEPORT");
    environment.set("STATEBASESOCKNAME", "/run/s");
    Kel::activityManager()->config()->systemNameIs("");
    for (auto const* const file : {ZeroTouch::dhclientConfigPath, ZeroTouch::dhclient6ConfigPath,
                                   ZeroTouch::dhclientPidFilePath, ZeroTouch::dhclient6PidFilePath})
      std::filesystem::remove(file);
  }
  // A routed port whose link is up; `device` is one of this machine's where IPv6 counts.
  Port addUpPort(std::string const& name, std::string const& device) {
    auto const port = addPort(name, routed);
    port->deviceNameIs(device);
    port->operStatusIs(Interface::OperStatus::up);
    return port;
  }
  void hearRouter(std::string const& port, bool managed) {
    platform.raPacketStatus->raPacketIs(id(port))->managedIs(managed);
  }
  Sm& inQuery() {
    inSetup();
    time.advance(30);
    EXPECT_EQ(sm().currentState(), State::stateDhcpQuery);
    return sm();
  }
  void choose(std::string const& port) { sm().choosenIntfIs(sm().phyIntfStatus(id(port))); }
  std::vector<std::string> commands() {
    std::vector<std::string> result;
    for (auto const& child : children.started) {
      std::string line;
      for (auto const& word : child.argv) line += (line.empty() ? "" : " ") + word;
      result.push_back(line);
    }
    return result;
  }
  static std::string read(std::string const& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  std::string const head =
      "/sbin/dhclient -d -q --ignore-preinit -sf /usr/bin/zerotouch-dhclient-script -e SYSNAME=sy "
      "-e STATEBASESOCKNAME=/run/s ";
  std::string const v4 =
      "-4 -cf /var/run/zerotouch-dhclient.conf -lf /var/run/zerotouch-dhclient.leases "
      "-pf /var/run/zerotouch-dhclient.pid ";
  std::string const v6 =
      "-6 -cf /var/run/zerotouch-dhclient6.conf -lf /var/run/zerotouch-dhclient6.leases "
      "-pf /var/run/zerotouch-dhclient6.pid ";
  std::string const stateless =
      "-6 -S -cf /var/run/zerotouch-dhclient6.conf -lf /var/run/zerotouch-dhclient6Stateless.leases "
      "-pf /var/run/zerotouch-dhclient6Stateless.pid ";
};

TEST_F(DhcpClients, each_family_asks_on_the_interfaces_that_can_answer) {
  addUpPort("Ethernet1", "lo");
  addUpPort("Ethernet2", "d2");
  addPort("Ethernet3", routed)->operStatusIs(Interface::OperStatus::down);
  addPort("Ethernet4", bridged)->operStatusIs(Interface::OperStatus::up);
  hearRouter("Ethernet1", true);
  hearRouter("Ethernet2", true);  // a device that does not exist has no IPv6
  hearRouter("Ethernet4", true);
  inQuery();
  EXPECT_EQ(commands(), (Strings{head + v4 + "lo d2", head + v6 + "lo"}));
  takeEvents();
  for (auto const* const set : {"ZEROTOUCH_IGNORE_OPERSTATUS", "ZEROTOUCH_DHCLIENT", "STATEBASEPORT"})
    environment.set(set, "/x");
  environment.unset("STATEBASESOCKNAME");
  Kel::activityManager()->config()->systemNameIs("sw1");
  platform.raPacketStatus->raPacketDelAll();
  children.started.clear();
  sm().doStartDhcpQuery();
  EXPECT_EQ(commands(), Strings{"/x -d -q --ignore-preinit -sf /usr/bin/zerotouch-dhclient-script "
                                "-e SYSNAME=sw1 -e STATEBASEPORT=/x " +
                                v4 + "lo d2 dev-Ethernet3"});
  EXPECT_EQ(takeEvents(), Strings{"ZTP_DHCPv4_QUERY: Sending DHCPv4 request on [ lo, d2, dev-Ethernet3 ]"});
}

TEST_F(DhcpClients, without_a_usable_interface_only_ipv6_is_asked) {
  addUpPort("Ethernet1", "lo")->operStatusIs(Interface::OperStatus::down);
  hearRouter("Ethernet1", true);
  inQuery();
  EXPECT_EQ(commands(), Strings{head + v6 + "lo"});
}

TEST_F(DhcpClients, stateless_interfaces_are_asked_one_after_the_other) {
  // All three are lo: only a real device has a switch for IPv6.
  for (auto const* const port : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
    addUpPort(port, "lo");
    hearRouter(port, false);
  }
  inQuery();
  takeEvents();
  children.started.clear();
  time.advance(15);
  EXPECT_EQ(sm().currentState(), State::stateStatelessDhcpQuery);
  std::string const query = "ZTP_STATELESS_DHCPv6_QUERY: Sending stateless DHCPv6 request on [ lo ]";
  EXPECT_EQ(takeEvents(), (Strings{"ZTP_DHCPv4_QUERY_FAIL: Failed to get a valid DHCPv4 response", query}));
  time.advance(10);
  EXPECT_EQ(commands(), (Strings(3, head + stateless + "lo")));
  EXPECT_EQ(names(sm().intfStatus6Stateless()), "");
  for (int i : {0, 1}) EXPECT_EQ(children.started[i].signals, std::vector{SIGTERM});
  time.advance(5);
  EXPECT_EQ(children.last().signals, std::vector{SIGTERM});
  EXPECT_EQ(sm().currentState(), State::stateRetry);
  EXPECT_EQ(takeEvents(),
            (Strings{query, query,
                     "ZTP_STATELESS_DHCPv6_QUERY_FAIL: Failed to get a valid stateless "
                     "configuration parameters over DHCPv6 response",
                     "ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 1)"}));
}

TEST_F(DhcpClients, a_retry_releases_the_leases_and_leaves_a_running_release_alone) {
  addUpPort("Ethernet1", "lo");
  inQuery();
  sm().doReleaseLease();  // none is chosen
  EXPECT_EQ(children.started.size(), 1);
  choose("Ethernet1");
  children.started[0].signals.clear();
  sm().doReleaseLease();
  sm().doReleaseLease6();
  EXPECT_EQ(children.started[0].signals, std::vector{SIGTERM});
  Strings const releases = {head + v4 + "lo", head + v4 + "-r lo", head + v6 + "-r lo"};
  EXPECT_EQ(commands(), releases);
  sm().doReleaseLease();
  sm().doReleaseLease6();
  EXPECT_EQ(commands(), releases);
  EXPECT_TRUE(children.started[1].signals.empty() && children.started[2].signals.empty());

  sm().nextStateIs(State::stateRetry);
  EXPECT_EQ(commands(), releases);
  children.started[1].child->exitedIs(0);
  EXPECT_FALSE(sm().dhclientChildProcess());
  EXPECT_EQ(runningTimer(), "RetryWaitTimer");
  time.advance(15.1);  // what has not ended by now is stopped, and the next query starts
  EXPECT_EQ(children.started[2].signals, std::vector{SIGTERM});
  EXPECT_EQ(sm().currentState(), State::stateDhcpQuery);
  EXPECT_FALSE(sm().choosenIntf());
  EXPECT_EQ(commands().back(), head + v4 + "lo");
}

TEST_F(DhcpClients, the_reload_waits_for_the_first_release_to_end) {
  addUpPort("Ethernet1", "lo");
  inQuery();
  choose("Ethernet1");
  platform.config->cancelledIs(true);
  time.settle();
  EXPECT_EQ(runningTimer(), "LeaseReleaseTimer");
  ASSERT_EQ(children.started.size(), 3);
  EXPECT_EQ(platform.reloadConfig->reloadTime(), 0);
  children.started[1].child->exitedIs(0);
  EXPECT_EQ(children.started[2].signals, std::vector{SIGTERM});
  EXPECT_NE(platform.reloadConfig->reloadTime(), 0);
  children.started[2].child->killedIs(SIGTERM);
  EXPECT_EQ(runningTimer(), "");
}

TEST_F(DhcpClients, the_configuration_files_tell_who_asks) {
  platform.entityMib->systemMacAddrIs(*Wire::EthAddr::fromString("02:1a:b3:0a:0b:0c"));
  auto const chassis = platform.entityMib->rootIs();
  chassis->modelNameIs("M\"\n");
  chassis->serialNumIs("\x80");
  std::string const id = "send dhcp-client-identifier 02:1a:b3:0a:0b:0c;\n";
  std::string const four = id + "send vendor-class-identifier \"Ostrel;M\\\"\\012;\x80\";\n";
  std::string const six = id +
                          "send dhcp6.vendor-opts 00:00:7e:d9:00:01:00:0c:"
                          "4f:73:74:72:65:6c:3b:4d:22:0a:3b:ffffff80;\n";
  inSetup();
  EXPECT_EQ(read(ZeroTouch::dhclientConfigPath), four);
  EXPECT_EQ(read(ZeroTouch::dhclient6ConfigPath), six);
  platform.config->enabledIs(false);
  time.settle();
  platform.config->enabledIs(true);  // a second start in the same boot appends
  EXPECT_EQ(read(ZeroTouch::dhclientConfigPath), four + four);

  std::ofstream(flash.path("/template")) << "timeout 9;\n\n# end";
  std::ofstream(flash.path("/empty"));
  for (auto const* const base : {"/template", "/empty", "/none", "/template"})
    EXPECT_TRUE(ZeroTouch::appendTemplate(flash.path(base).c_str(), flash.path("/made").c_str()));
  EXPECT_EQ(flash.read("/made"), "timeout 9;\n\n# endtimeout 9;\n\n# end");
  EXPECT_FALSE(ZeroTouch::appendTemplate("/none", "/none/made"));
  sm().addIdentifierStatementsToDhclientConfig(flash.path("/other").c_str(), "v5");
  EXPECT_EQ(flash.read("/other"), id);
}

TEST_F(DhcpClients, clients_of_an_earlier_run_are_ended) {
  auto const leftover = [this](std::string const& pid) {
    std::ofstream(ZeroTouch::dhclientPidFilePath) << pid;
    children.strayed.clear();
    ZeroTouch::doKillRunningDhclient(ZeroTouch::dhclientPidFilePath);
    return std::filesystem::exists(ZeroTouch::dhclientPidFilePath);
  };
  EXPECT_FALSE(leftover(std::to_string(getppid()) + "\n"));
  EXPECT_EQ(children.strayed, (std::vector<std::pair<pid_t, int>>{{getppid(), SIGKILL}}));
  EXPECT_EQ(children.reaped, std::vector{getppid()});
  for (std::string const& nobody :
       {std::string("99999999"), std::string("garbage"), std::to_string(getpid())}) {
    EXPECT_TRUE(leftover(nobody)) << nobody;
    EXPECT_TRUE(children.strayed.empty()) << nobody;
  }
}
