// The DHCP clients: which interfaces are asked, with what command lines and files, what is said when nobody
// answers, and the release of leases.
#include <spawn.h>
#include <sys/wait.h>

#include "tests/unit/support/Ports.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/dhcp/DhcpClient.h"

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
  // Adds a routed port whose link is up. IPv6 is asked for only where `device` is one of this machine.
  Port addUpPort(std::string const& name, std::string const& device) {
    auto const port = addPort(name, routed);
    port->deviceNameIs(device);
    port->operStatusIs(Interface::OperStatus::up);
    return port;
  }
  void hearRouter(std::string const& port, bool managed) {
    platform.raPacketStatus->raPacketIs(id(port))->managedIs(managed);
  }
  std::vector<std::string> commands() {
    std::vector<std::string> result;
    for (auto const& child : children.started) {
      std::string line;
      for (auto const& word : child.argv) line += (line.empty() ? "" : " ") + word;
      result.push_back(line);
    }
    return result;
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
  addUpPort("Ethernet5", "all")->operStatusIs(Interface::OperStatus::down);
  hearRouter("Ethernet1", true);
  hearRouter("Ethernet5", true);  // DHCPv6 asks on a port without a link too
  hearRouter("Ethernet2", true);  // a device that does not exist has no IPv6
  hearRouter("Ethernet4", true);
  inQuery();
  EXPECT_EQ(commands(), (Strings{head + v4 + "lo d2", head + v6 + "lo all"}));
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
                                v4 + "lo d2 dev-Ethernet3 all"});
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_DHCPv4_QUERY: Sending DHCPv4 request on [ lo, d2, dev-Ethernet3, all ]"});
}

TEST_F(DhcpClients, the_first_answer_with_a_boot_file_is_taken) {
  addUpPort("Ethernet1", "d1");
  addUpPort("Ethernet2", "d2");
  inQuery();
  for (auto const* const device : {"d2", "d1"})
    platform.dhcpStatus->intfDhcpStatusIs(device)->bootFileNameIs("http://h/c");
  time.settle();
  EXPECT_EQ(sm().choosenIntf()->intfName(), "Ethernet2");
}

// Ports 1 and 2 are asked, in attempt after attempt, by what platform.toml says of their answers.
class DhcpRules : public DhcpClients {
 protected:
  DhcpRules() {
    Kel::activityManager()->localEntityIs(ZeroTouch::policyName, policy);
    addUpPort("Ethernet1", "d1");
    addUpPort("Ethernet2", "lo");
  }
  ~DhcpRules() override { Kel::activityManager()->localEntityDel(ZeroTouch::policyName); }

  void answer(std::string const& device, std::string const& bootFile, bool six = false,
              std::string const& server = "10.0.0.1") {
    auto const& results = platform.dhcpStatus;
    six ? results->intfDhcp6StatusDel(device) : results->intfDhcpStatusDel(device);
    auto const result = six ? results->intfDhcp6StatusIs(device) : results->intfDhcpStatusIs(device);
    result->serverIs(server);
    result->bootFileNameIs(bootFile);
    time.settle();
  }
  // The port whose answer was taken, and its URL; "" for none.
  std::string taken() {
    return sm().choosenIntf() ? sm().choosenIntf()->intfName() + " " + sm().chosenAnswer()->url() : "";
  }
  // The attempt fails, and the next query begins.
  void fail() {
    sm().doStateTransition(State::stateInvalid, State::stateRetry,
                           ZeroTouch::TransitionCause::downloadFailed);
    platform.dhcpStatus->intfDhcpStatusDelAll();
    EXPECT_TRUE(time.advanceUntil([this] { return sm().currentState() == State::stateDhcpQuery; }, 100));
  }

  Kel::Ptr<ZeroTouch::Policy> policy = Kel::makePtr<ZeroTouch::Policy>();
};

TEST_F(DhcpRules, a_port_whose_answer_has_failed_waits_for_the_others) {
  policy->dhcp()->afterFailureIs(ZeroTouch::AfterFailure::othersFirst);
  hearRouter("Ethernet2", false);
  inQuery();
  answer("d1", "http://bad/c");
  EXPECT_EQ(taken(), "Ethernet1 http://bad/c");
  fail();
  answer("d1", "http://bad/c");
  EXPECT_EQ(taken(), "");
  EXPECT_EQ(sm().standsBack(id("Ethernet1")), "the download has failed");
  answer("lo", "http://good/c");
  EXPECT_EQ(taken(), "Ethernet2 http://good/c");
  fail();
  EXPECT_TRUE(sm().standsBack().empty()) << "both have failed once";
  answer("d1", "http://bad/c");
  fail();
  answer("d1", "http://bad/c");
  takeEvents();
  time.advance(15);
  EXPECT_EQ(sm().currentState(), State::stateStatelessDhcpQuery) << "where the other one is asked";
  time.advance(5);
  EXPECT_EQ(taken(), "Ethernet1 http://bad/c") << "since nobody else has answered";
  platform.aisd->intfStatus(id("Ethernet2"))->operStatusIs(Interface::OperStatus::down);
  platform.raPacketStatus->raPacketDelAll();
  fail();
  EXPECT_TRUE(sm().standsBack().empty()) << "there is no other port to wait for";
}

TEST_F(DhcpRules, a_better_offer_may_come_for_a_while) {
  policy->dhcp()->offersIs(2);
  struct Offer {
    char const* device;
    bool six;
    char const* bootFile;
  };
  struct {
    std::vector<Offer> offers;  // at once
    char const *first, *last;   // what is taken before and after the wait
  } const cases[] = {
      {{{"d1", false, "http://a/c"}}, "Ethernet1 http://a/c", "Ethernet1 http://a/c"},
      {{{"d1", false, "gopher://a"}}, "", "Ethernet1 "},
      {{{"d1", false, "gopher://a"}, {"lo", true, "http://b/c"}}, "", "Ethernet2 http://b/c"},
      {{{"d1", true, "http://a/c"}, {"lo", true, "http://b/c"}}, "", "Ethernet1 http://a/c"},
      {{{"lo", true, "http://b/c"}, {"d1", false, "http://a/c"}},
       "Ethernet1 http://a/c",
       "Ethernet1 http://a/c"},
      {{{"lo", false, "gopher://b"}, {"lo", true, "http://b/c"}}, "", "Ethernet2 http://b/c"},
  };
  inQuery();
  for (auto const& c : cases) {
    time.advance(1);
    for (auto const& offer : c.offers) answer(offer.device, offer.bootFile, offer.six);
    EXPECT_EQ(taken(), c.first);
    if (*c.first == '\0') {
      EXPECT_EQ(sm().timer()->purpose(), "a better offer, which may come for 2 s");
    }
    time.advance(2);
    EXPECT_EQ(taken(), c.last);
    platform.dhcpStatus->intfDhcp6StatusDelAll();
    fail();
  }
}

TEST_F(DhcpRules, answers_of_other_servers_do_not_count) {
  policy->dhcp()->serverIs("10.0.0.1");
  policy->dhcp()->serverIs("00:03:00:01");
  for (int run : {1, 2}) {
    SCOPED_TRACE(run);
    run == 1 ? void(inQuery()) : void();
    std::size_t const before = children.started.size();
    answer("lo", "http://evil/c", false, "10.0.0.9");
    answer("lo", "http://evil/c", false, "10.0.0.9");
    answer("lo", "http://evil/c", true, "00:03:00:02");
    EXPECT_EQ(taken(), "");
    EXPECT_EQ(children.started.size(), before + 1) << "the client asks again, once";
    EXPECT_EQ(sm().ignoredAnswer("lo"), "10.0.0.9 is none of the servers that count");
    EXPECT_EQ(sm().ignoredAnswer6("lo"), "00:03:00:02 is none of the servers that count");
    std::string const config = TemporaryFolder::contentOf(ZeroTouch::dhclientConfigPath);
    EXPECT_TRUE(config.ends_with("\nreject 10.0.0.9;\n"));
    EXPECT_EQ(config.find("reject"), config.rfind("reject"));
    answer("lo", "http://good/c", true, "00:03:00:01");
    EXPECT_EQ(taken(), "Ethernet2 http://good/c");
    EXPECT_EQ(sm().ignoredAnswer6("lo"), "");
    platform.config->enabledIs(false);
    platform.dhcpStatus->intfDhcp6StatusDelAll();
    time.settle();
    platform.config->enabledIs(true);
    time.advance(30);
  }
}

TEST_F(DhcpRules, patient_clients_ask_less_often) {
  policy->dhcp()->clientTimingIs(ZeroTouch::ClientTiming::rfc);
  inQuery();
  EXPECT_NE(TemporaryFolder::contentOf(ZeroTouch::dhclientConfigPath)
                .find("\ntimeout 58;\ninitial-interval 4;\nbackoff-cutoff 8;\n"),
            std::string::npos);
  time.advance(59);
  EXPECT_EQ(sm().currentState(), State::stateDhcpQuery);
}

TEST_F(DhcpClients, stateless_interfaces_are_asked_one_after_the_other_once_the_others_are_silent) {
  // All are lo: only a real device has a switch for IPv6.
  for (auto const* const port : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}) {
    addUpPort(port, "lo");
    hearRouter(port, port == std::string("Ethernet4"));
  }
  inQuery();
  takeEvents();
  children.started.clear();
  time.advance(15);
  std::string const query = "ZTP_STATELESS_DHCPv6_QUERY: Sending stateless DHCPv6 request on [ lo ]";
  EXPECT_EQ(takeEvents(), (Strings{"ZTP_DHCPv4_QUERY_FAIL: Failed to get a valid DHCPv4 response",
                                   "ZTP_DHCPv6_QUERY_FAIL: Failed to get a valid DHCPv6 response", query}));
  time.advance(15);
  EXPECT_EQ(commands(), (Strings(3, head + stateless + "lo")));
  for (auto const& start : children.started) EXPECT_EQ(start.signals, std::vector{SIGTERM});
  EXPECT_EQ(takeEvents(),
            (Strings{query, query,
                     "ZTP_STATELESS_DHCPv6_QUERY_FAIL: Failed to get a valid stateless "
                     "configuration parameters over DHCPv6 response",
                     "ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 1)"}));
}

TEST_F(DhcpClients, a_release_that_runs_is_left_alone_until_the_next_query) {
  addUpPort("Ethernet1", "lo");
  hearRouter("Ethernet1", true);
  inQuery();
  sm().doReleaseLease();  // none is chosen
  EXPECT_EQ(children.started.size(), 2);
  sm().choosenIntfIs(sm().phyIntfStatus(id("Ethernet1")));
  for (int i : {0, 1}) {
    SCOPED_TRACE(i);
    sm().doReleaseLease();
    sm().doReleaseLease6();
    EXPECT_EQ(commands(),
              (Strings{head + v4 + "lo", head + v6 + "lo", head + v4 + "-r lo", head + v6 + "-r lo"}));
  }
  for (std::size_t asks : {0, 1}) EXPECT_EQ(children.started[asks].signals, std::vector{SIGTERM});
  sm().nextStateIs(State::stateRetry);
  EXPECT_EQ(children.started.size(), 4);
  EXPECT_TRUE(children.started[2].signals.empty() && children.started[3].signals.empty());
  children.started[2].child->exitedIs(0);
  time.advance(15.1);
  EXPECT_EQ(children.started[3].signals, std::vector{SIGTERM});
  EXPECT_EQ(commands().back(), head + v6 + "lo");
}

TEST_F(DhcpClients, the_configuration_files_tell_who_asks) {
  platform.entityMibStatus->systemMacAddrIs(*Wire::EthAddr::fromString("02:1a:b3:0a:0b:0c"));
  auto const chassis = platform.entityMibStatus->rootIs();
  chassis->modelNameIs("M\"\n");
  chassis->serialNumIs("\x80");
  std::string const id = "send dhcp-client-identifier 02:1a:b3:0a:0b:0c;\n";
  std::string const four = id + "send vendor-class-identifier \"Ostrel;M\\\"\\012;\x80\";\n";
  std::string const six = id +
                          "send dhcp6.vendor-opts 00:00:7e:d9:00:01:00:0c:"
                          "4f:73:74:72:65:6c:3b:4d:22:0a:3b:ffffff80;\n";
  inSetup();
  EXPECT_EQ(TemporaryFolder::contentOf(ZeroTouch::dhclientConfigPath), four);
  EXPECT_EQ(TemporaryFolder::contentOf(ZeroTouch::dhclient6ConfigPath), six);
  platform.config->enabledIs(false);
  time.settle();
  platform.config->enabledIs(true);  // a second start in the same boot appends
  EXPECT_EQ(TemporaryFolder::contentOf(ZeroTouch::dhclientConfigPath), four + four);

  flash.write("/template", "timeout 9;\n\n# end");
  flash.write("/empty", "");
  // A folder opens like a file, and then cannot be read.
  for (auto const* const base : {"/template", "/empty", "/none", "/", "/template"})
    EXPECT_TRUE(ZeroTouch::appendTemplate(flash.path(base).c_str(), flash.path("/made").c_str()));
  EXPECT_EQ(flash.read("/made"), "timeout 9;\n\n# endtimeout 9;\n\n# end");
  EXPECT_FALSE(ZeroTouch::appendTemplate("/none", "/none/made"));
  sm().addIdentifierStatementsToDhclientConfig(flash.path("/other").c_str(), "v5");
  EXPECT_EQ(flash.read("/other"), id);

  // What was copied counts, not the size of the template: this one has 0 bytes until it is read.
  EXPECT_EQ(ZeroTouch::appendTemplate("/proc/version", flash.path("/of-proc").c_str()),
            TemporaryFolder::contentOf("/proc/version").size());
}

TEST_F(DhcpClients, clients_of_an_earlier_run_are_ended_and_nobody_else) {
  auto const leftover = [this](std::string const& pid) {
    std::ofstream(ZeroTouch::dhclientPidFilePath) << pid;
    children.strayed.clear();
    children.reaped.clear();
    ZeroTouch::doKillRunningDhclient(ZeroTouch::dhclientPidFilePath);
    return std::filesystem::exists(ZeroTouch::dhclientPidFilePath);
  };
  std::string const client = flash.path("/dhclient");
  std::filesystem::copy_file("/bin/sleep", client);
  struct {
    std::vector<char const*> argv;
    bool isClient;
  } cases[] = {{{client.c_str(), "1000"}, true},
               {{"/bin/sh", "-c", "kill -STOP $$", "script", ZeroTouch::dhclientPidFilePath}, true},
               {{"/bin/sleep", "1000"}, false}};
  for (auto& c : cases) {
    c.argv.push_back(nullptr);
    pid_t pid = 0;
    auto* const argv = const_cast<char* const*>(c.argv.data());
    ASSERT_EQ(posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ), 0);
    EXPECT_FALSE(leftover(std::to_string(pid) + "\n")) << argv[0];
    using Signals = std::vector<std::pair<pid_t, int>>;
    EXPECT_EQ(children.strayed, c.isClient ? Signals({{pid, SIGKILL}}) : Signals()) << argv[0];
    EXPECT_EQ(children.reaped, c.isClient ? std::vector{pid} : std::vector<pid_t>()) << argv[0];
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  for (std::string const& nobody :
       {std::string("99999999"), std::string("garbage"), std::to_string(getpid())}) {
    EXPECT_TRUE(leftover(nobody)) << nobody;
    EXPECT_TRUE(children.strayed.empty()) << nobody;
  }
}
