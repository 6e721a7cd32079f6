// Plays every event in every situation of a run, one at a time. A table says where each leads; an event that
// leads nowhere leaves the running timer alone.
#include <gtest/gtest.h>

#include <csignal>

#include "platform/kel/Loop.h"
#include "tests/simulation/World.h"

namespace {

using enum ZeroTouch::ProvisioningState;

constexpr Kel::Seconds longEnough = 100'000;
constexpr char const* script = "/tmp/zt-download";
// Bits for an answer that has everything but a boot file.
constexpr std::uint64_t noBootFile = 1 + 7 * 1536;

// --- The situations: what a run is doing, and how it gets there from the one before ---

struct Situation {
  char letter;  // in the table below
  char const* name;
  State state;
  char const* timer;
};

constexpr Situation situations[] = {
    {'I', "at rest", stateInit, ""},
    {'S', "ports are set up", stateSetupInterfaces, "InterfacesSetupTimer"},
    {'Q', "DHCP is asked", stateDhcpQuery, "DhclientQueryTimer"},
    {'6', "stateless DHCPv6 is asked", stateStatelessDhcpQuery, "StatelessDhclientQueryTimer"},
    {'A', "the identity is applied", stateSetupSystemIdentity, "SystemIdentitySetupTimer"},
    {'F', "the file is downloaded", stateFetchConfig, "ConfigFetchTimer"},
    {'B', "the back-off", stateRetryFetchConfig, "ConfigFetchRetryTimer"},
    {'X', "the script runs", stateCopyConfigOrExecScript, "ScriptExecTimer"},
    {'Y', "the flash is flushed after it", stateCopyConfigOrExecScript, "ScriptExecTimer"},
    {'R', "the retry waits", stateRetry, "RetryWaitTimer"},
    {'C', "the retry waits for the clean-up", stateRetry, "RetryWaitTimer"},
    {'L', "leases are released", stateShutdown, "LeaseReleaseTimer"},
    {'W', "the standby is waited for", stateShutdown, "StartupFileSyncWaitTimer"},
    {'D', "the reload is requested", stateShutdown, ""},
};

class Walk {
 public:
  Walk() {
    world.curl.result = CURLE_COULDNT_CONNECT;
    world.curl.hangs = true;
    world.time.settle();
  }

  // From rest up to a situation.
  void to(char letter) {
    if (letter == 'I') return;
    world.platform.config->enabledIs(true);
    world.time.settle();
    if (letter == 'S') return;
    world.time.advance(30);
    if (letter == 'Q') return;
    if (letter == '6') return world.time.advance(15);
    answer(0, false, World::fullAnswer);
    world.time.settle();
    if (letter == 'A') return;
    addresses(true);
    world.time.advance(5);
    if (letter == 'F') return;
    if (letter == 'B') {
      world.curl.hangs = false;
      world.time.advance(1);
      world.curl.hangs = true;
      return;
    }
    if (letter == 'L' || letter == 'W' || letter == 'D') return shutDown(letter);
    transfer("#!/bin/sh\n");
    if (letter == 'X') return;
    endOf(script, letter == 'Y' ? 0 : 1, 0);
    world.time.settle();
    if (letter == 'Y') return;
    world.cleanUp = World::CleanUp::never;
    if (letter == 'C') world.time.advance(15);
  }

  void shutDown(char letter) {
    if (letter == 'W') {
      Kel::activityManager()->config()->cellTypeIs("modular");
      world.platform.fileReplicationStatus->entryIs("RedSup")->synchronizedIs(false);
    }
    cancel();
    world.time.settle();
    if (letter == 'L') return;
    endOf("-r", 0, 0);
    world.time.settle();
  }

  // The letter of where the run is now; '?' for nowhere in the list.
  char situation() const {
    for (auto const& s : situations) {
      if (world.state() != s.state || timerName() != s.timer) continue;
      bool const cleansUp = s.letter == 'C', flushes = s.letter == 'Y';
      if (flushes != (world.sm().flashFlush() != nullptr)) continue;
      if (s.state != stateRetry || world.sm().awaitsDhcpCleanup() == cleansUp) return s.letter;
    }
    return '?';
  }
  std::string timerName() const { return world.sm().timerActive() ? world.sm().timer()->name() : ""; }

  // --- What may happen; false when it cannot happen here ---

  bool timerTicks() {
    auto const timer = world.sm().timer();
    if (!world.sm().timerActive() || timer->interval() >= timer->timeout()) return false;
    world.time.advance(timer->interval());
    return true;
  }
  bool timerEnds() {
    auto const timer = world.sm().timer();
    if (!world.sm().timerActive()) return false;
    auto const before = world.state();
    return world.time.advanceUntil([&] { return world.state() != before || world.sm().timer() != timer; },
                                   longEnough);
  }
  // Ends the last child whose command line holds `argument`, also one that was asked to end and that the
  // agent has forgotten.
  bool endOf(std::string const& argument, std::uint8_t status, int signal) {
    Kel::Ptr<Kel::ChildSiginfo> child;
    for (auto const& start : world.children.started) {
      for (auto const& word : start.argv) {
        if (word == argument && !start.child->ended()) child = start.child;
      }
    }
    if (!child) return false;
    if (signal != 0) {
      child->killedIs(signal);
    } else {
      child->exitedIs(status);
    }
    return true;
  }
  bool answer(unsigned port, bool six, std::uint64_t bits) {
    Choice choice(bits);
    world.answer(port, six, choice);
    return true;
  }
  bool allFail() {
    for (unsigned i = 0; i < 3; ++i) world.report(i, false, "FAIL");
    return true;
  }
  bool resultsGo() {
    bool const any = !world.platform.dhcpStatus->intfDhcpStatus().empty();
    world.removeResults(false);
    world.removeResults(true);
    return any;
  }
  bool addresses(bool active) {
    auto const& config = world.platform.ipConfig->ipIntfConfig(World::port(0));
    bool const applied = config && !config->addrWithMask().address.isZero();
    world.addressesAre(false);  // so that it is news in every situation
    if (active) world.addressesAre(true);
    return applied;
  }
  bool transfer(char const* body) {
    world.curl.hangs = false;
    world.curl.result = body != nullptr ? CURLE_OK : CURLE_COULDNT_CONNECT;
    if (body != nullptr) world.curl.body = body;
    bool const runs = world.sm().curlCBData() != nullptr;
    if (runs) world.time.advance(1);
    return runs;
  }
  bool disable() {
    world.platform.config->enabledIs(false);
    return true;
  }
  bool cancel() {
    if (world.platform.config->cancelled()) return false;
    world.expectDisable = world.expectDisable || (world.platform.config->enabled() && !world.shuttingDown());
    world.platform.config->cancelledIs(true);
    return true;
  }
  auto port(unsigned index) { return world.platform.episd->intfStatus(World::port(index)); }
  bool lldp() {
    bool const hears = world.sm().ethDevPamCollection()->intfPam(World::port(0)) != nullptr;
    world.hearLldp(0);
    return hears;
  }

  World world;
};

// --- The table: each event, and where it leads from each situation ---
//
// The letters are those of the situations; '.' stays there, with the same timer; '-' cannot happen there.

struct Event {
  char const* name;
  char const* leadsTo;
  bool (*happens)(Walk&);
};

constexpr char columns[] = "ISQ6AFBXYRCLWD";
Event const events[] = {
    {"the timer ticks", "---R..--------", [](Walk& w) { return w.timerTicks(); }},
    {"the timer ends", "-Q6RRRFRRCQ-W-", [](Walk& w) { return w.timerEnds(); }},
    {"it ends without the address", "-Q6RRRRRRCQ-W-",
     [](Walk& w) { return w.addresses(false), w.timerEnds(); }},
    {"the DHCPv4 client ends", "--.........D..", [](Walk& w) { return w.endOf("-4", 0, 0); }},
    {"the DHCPv6 client is killed", "--.........D..", [](Walk& w) { return w.endOf("-6", 0, SIGKILL); }},
    {"the stateless client ends", "---.----------", [](Walk& w) { return w.endOf("-S", 1, 0); }},
    {"the release ends", "---------..D..", [](Walk& w) { return w.endOf("-r", 0, 0); }},
    {"the script succeeds", "-------Y------", [](Walk& w) { return w.endOf(script, 0, 0); }},
    {"the flush succeeds", "--------L-----", [](Walk& w) { return w.endOf("-f", 0, 0); }},
    {"the flush fails", "--------R-----", [](Walk& w) { return w.endOf("-f", 1, 0); }},
    {"the flush is killed", "--------R-----", [](Walk& w) { return w.endOf("-f", 0, SIGKILL); }},
    {"nothing can flush", "--------L-----", [](Walk& w) { return w.endOf("-f", 127, 0); }},
    {"the host ends in order", "........L.....",
     [](Walk& w) { return w.world.hostEnds = true, w.world.sm().handleHostEnd(), true; }},
    {"the script fails", "-------R------", [](Walk& w) { return w.endOf(script, 3, 0); }},
    {"the script is killed", "-------R------", [](Walk& w) { return w.endOf(script, 0, SIGSEGV); }},
    {"DHCPv4 answers", "..AA..........", [](Walk& w) { return w.answer(1, false, World::fullAnswer); }},
    {"DHCPv6 answers", "..AA..........", [](Walk& w) { return w.answer(2, true, World::fullAnswer); }},
    {"an answer names no boot file", "..............",
     [](Walk& w) { return w.answer(1, false, noBootFile); }},
    {"DHCPv4 fails on all ports", "..........Q...", [](Walk& w) { return w.allFail(); }},
    {"the results go", "----......Q...", [](Walk& w) { return w.resultsGo(); }},
    {"the address becomes active", "----......-...", [](Walk& w) { return w.addresses(true); }},
    {"it does so after a tick", "----F.....-...",
     [](Walk& w) {
       if (w.world.state() == stateSetupSystemIdentity) w.world.time.advance(5);
       return w.addresses(true);
     }},
    {"the address vanishes", "----......-...", [](Walk& w) { return w.addresses(false); }},
    {"the transfer succeeds", "-----L--------", [](Walk& w) { return w.transfer("hostname sw1\n"); }},
    {"a script arrives", "-----X--------", [](Walk& w) { return w.transfer("#!/bin/sh\n"); }},
    {"the transfer fails", "-----B--------", [](Walk& w) { return w.transfer(nullptr); }},
    {"the asked port goes", "..............", [](Walk& w) { return w.world.removePort(0), true; }},
    {"another port goes", "..............", [](Walk& w) { return w.world.removePort(1), true; }},
    {"a port comes", "..............",
     [](Walk& w) {
       Choice choice(World::workingPort);
       return w.world.addPort(3, choice), true;
     }},
    {"the asked port becomes switched", "..............",
     [](Walk& w) {
       bool const routed = w.port(0)->forwardingModel() == Interface::IntfForwardingModel::routed;
       return w.port(0)->forwardingModelIs(Interface::IntfForwardingModel::bridged), routed;
     }},
    {"the asked port's link goes", "..............",
     [](Walk& w) { return w.port(0)->operStatusIs(Interface::OperStatus::down), true; }},
    {"LLDP is heard", "-.............", [](Walk& w) { return w.lldp(); }},
    {"a router goes", "..............",
     [](Walk& w) { return w.world.platform.raPacketStatus->raPacketDel(World::port(1)), true; }},
    {"the inventory goes", "..............",
     [](Walk& w) { return w.world.platform.entityMibStatus->rootDel(), true; }},
    {"the standby is synchronised", "..............",
     [](Walk& w) {
       return w.world.platform.fileReplicationStatus->entryIs("RedSup")->synchronizedIs(true), true;
     }},
    {"the script's limit changes", ".......XY.....",
     [](Walk& w) { return w.world.platform.config->scriptExecTimeoutIs(7), true; }},
    {"the run's time is up", "..............",
     [](Walk& w) { return w.world.platform.config->maxRunTimeIs(0), true; }},
    {"the operator enables", "S.............",
     [](Walk& w) { return w.world.platform.config->enabledIs(true), true; }},
    {"the operator disables", ".IIIIIIIIII...", [](Walk& w) { return w.disable(); }},
    {"the operator cancels", ".DDDLLLLLLD---", [](Walk& w) { return w.cancel(); }},
};

// Plays an event in a situation, and returns the letter of the table for where it leads. `stop` asks for the
// end of the run before the event, in the same pass of the loop.
char outcome(Event const& event, char from, std::string& violation, bool (Walk::*stop)() = nullptr) {
  Walk walk;
  walk.to(from);
  EXPECT_EQ(walk.situation(), from);
  auto const timer = walk.world.sm().timer();
  if (stop != nullptr) (walk.*stop)();
  bool const happens = event.happens(walk);
  walk.world.time.settle();
  walk.world.check();
  violation = walk.world.violation;
  if (stop != nullptr) return walk.situation();
  bool const same = walk.situation() == from && walk.world.sm().timer() == timer;
  return !happens ? '-' : same ? '.' : walk.situation();
}

}  // namespace

TEST(Walk, every_event_leads_from_every_situation_where_the_table_says) {
  for (auto const& event : events) {
    std::string seen, violation;
    for (char const from : std::string(columns)) {
      seen += outcome(event, from, violation);
      EXPECT_EQ(violation, "") << event.name << " in " << from;
    }
    EXPECT_EQ(seen, event.leadsTo) << event.name;
  }
}

TEST(Walk, nothing_that_follows_a_stop_in_the_same_pass_holds_it_up) {
  std::string const enables = "the operator enables";
  for (auto const& event : events) {
    for (char const from : std::string("SQ6AFBXYRC")) {
      std::string violation;
      bool const again = event.name == enables;
      EXPECT_EQ(outcome(event, from, violation, &Walk::disable), again ? 'S' : 'I') << event.name << from;
      EXPECT_EQ(violation, "") << event.name << " after a disable in " << from;
      char const reached = outcome(event, from, violation, &Walk::cancel);
      EXPECT_TRUE(reached == 'L' || reached == 'D')
          << event.name << " in " << from << " leads to " << reached;
      EXPECT_EQ(violation, "") << event.name << " after a cancel in " << from;
    }
  }
}

TEST(Walk, states_that_are_entered_within_the_call_that_asks_for_them_are_the_same) {
  setenv("ZEROTOUCH_FORCE_IMMEDIATE_STATE_TRANSITIONS", "", 1);
  for (char const situation : std::string(columns)) {
    Walk walk;
    walk.world.platform.config->enabledIs(situation != 'I');
    EXPECT_EQ(walk.world.state(), situation == 'I' ? stateInit : stateSetupInterfaces);
    walk.to(situation);
    EXPECT_EQ(walk.situation(), situation);
    walk.world.check();
    EXPECT_EQ(walk.world.violation, "") << situation;
  }
  unsetenv("ZEROTOUCH_FORCE_IMMEDIATE_STATE_TRANSITIONS");
}
