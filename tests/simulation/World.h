// A switch and its surroundings for the agent to live in: everything around it, and what must be true of it.
#pragma once

#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Log.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/testing/FakeChildRunner.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "tests/simulation/FakeCurl.h"
#include "tests/simulation/Limits.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

// Bits from which choices are drawn, so that the same bits always choose the same.
class Choice {
 public:
  explicit Choice(std::uint64_t bits) : bits_(bits) {}
  unsigned of(unsigned count) {
    auto const chosen = static_cast<unsigned>(bits_ % count);
    bits_ /= count;
    drawn_ += " " + std::to_string(chosen);
    return chosen;
  }
  bool chance(unsigned oneIn) { return of(oneIn) == 0; }
  template <typename T>
  T among(std::initializer_list<T> values) {
    return values.begin()[of(static_cast<unsigned>(values.size()))];
  }
  // What was chosen so far, each as the number of the alternative.
  std::string const& drawn() const { return drawn_; }

 private:
  std::uint64_t bits_;
  std::string drawn_;
};

class World {
 public:
  static constexpr unsigned portCount = 4;
  // Bits for addPort and answer: a port that works, an answer that has everything.
  static constexpr std::uint64_t workingPort = 41, fullAnswer = 1 + 256;

  // `policy`: what platform.toml asks for beyond the usual behaviour, drawn from these bits; 0 for nothing.
  // `recorded`: the history is printed as it happens.
  World(std::uint64_t bits, std::uint64_t policy, bool recorded);
  // The simplest world: a fixed system whose inventory is known, three ports that work, a router that wants
  // DHCPv6 on the second and one that wants stateless DHCPv6 on the third.
  World();
  ~World();
  World(World const&) = delete;
  World& operator=(World const&) = delete;

  // --- What stands around the agent ---

  // The last is the port-channel.
  static std::string portName(unsigned index) {
    return index < portCount ? "Ethernet" + std::to_string(index + 1) : "Port-Channel1";
  }
  static Wire::IntfId port(unsigned index) { return Wire::IntfId(portName(index)); }
  static Kel::Name device(unsigned index);
  void addPort(unsigned index, Choice& choice);
  void removePort(unsigned index);
  // An answer as the hook reports it: the record is replaced, the boot file comes last.
  void answer(unsigned index, bool six, Choice& choice);
  void report(unsigned index, bool six, Kel::String const& reason);
  void removeResults(bool six);
  // The configured addresses become active on all ports, or all are lost.
  void addressesAre(bool active);
  void hearLldp(unsigned index);
  // A packet socket that is wanted is lost, or opened anew.
  void socketChanges(unsigned index);
  // The children that run, in the order of their start.
  std::vector<Kel::Ptr<Kel::ChildSiginfo>> running() const;

  // --- The agent ---

  ZeroTouch::ZeroTouchSm& sm() const { return *agent->ztSm(); }
  State state() const { return sm().currentState(); }
  bool shuttingDown() const { return (state() | sm().transitionState()) >= State::stateShutdown; }
  void drop();  // the agent ends

  // --- What must be true ---

  // Looks at everything, once the loop has come to rest.
  void check();
  void require(bool condition, std::string const& what) {
    if (!condition && violation.empty()) violation = what;
  }
  std::string violation;  // the first; "" while there is none

  // A line of the history, if there is one.
  void note(std::string const& text) const;

  // When the clean-up script's deletions arrive: while it runs, once the loop runs again, or never.
  enum class CleanUp { prompt, later, never };
  CleanUp cleanUp = CleanUp::prompt;
  Kel::Seconds cleanUpTakes = 0;
  void finishCleanUp();
  // Time passes, but the loop does not run: it is held up by something.
  void standStill(Kel::Seconds seconds);
  bool hostEnds = false;               // in order
  bool expectDisable = false;          // the guard entry has been earned
  Kel::Seconds deadline = Kel::never;  // by which the state must have been left
  std::function<void(State from, State to)> onTransition = [](State, State) {};

  Kel::testing::SimulatedTime time;
  Kel::testing::FakeChildRunner children;
  FakeCurl curl;
  ZeroTouch::MountedEntities platform;
  Kel::Ptr<ZeroTouch::AgentCreator> agent;

 private:
  void handleState();
  void openSocket(Wire::IntfId const& intfId);
  void checkNotStuck();
  void checkOwners();
  void checkPorts();
  void checkAtRest();
  void checkEnding();
  void checkDownload();
  std::string knownPorts() const;
  std::string identity() const;
  std::string identityOfAnswer() const;

  bool flashIsFlushed();
  void drawPolicy(std::uint64_t bits);

  bool recorded_;
  std::mt19937_64 random_;  // the agent's own
  int logSink_ = 0;
  unsigned answers_ = 0;
  unsigned reloads_ = 0;
  bool cleansUp_ = false;
  bool cleansUp6_ = false;
  bool warned_ = false;  // an event has said what is wrong since the last failure
  State last_ = State::stateInit;
  std::string identity_;               // of the answer that was chosen last
  std::string frozen_;                 // the ports that were known when the view of them was frozen
  std::set<Wire::IntfId> configured_;  // interfaces whose configuration is not the agent's
  Kel::Reactor stateWatch_, forwarding_, sockets_;
};
