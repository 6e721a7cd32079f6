#include "tests/simulation/Actions.h"

#include <array>

#include "platform/kel/WholeFile.h"

namespace {

using enum ZeroTouch::ProvisioningState;

void timePasses(World& world, Choice& choice) {
  world.time.advance(choice.among({0.0, 0.4, 1.0, 2.0, 5.0, 5.0, 15.0, 15.0, 30.0, 45.0, 90.0, 300.0}));
}

void standsStill(World& world, Choice& choice) {
  world.standStill(choice.among({1.0, 5.0, 15.0, 16.0, 31.0, 95.0}));
}

void answer(World& world, Choice& choice) {
  unsigned const index = choice.of(World::portCount + 1);
  bool const six = choice.chance(3);
  world.answer(index, six, choice);
}

void noAnswer(World& world, Choice& choice) {
  char const* const reason = choice.chance(2) ? "FAIL" : "TIMEOUT";
  unsigned const first = choice.of(World::portCount);
  unsigned const last = choice.chance(2) ? World::portCount - 1 : first;
  for (unsigned i = first; i <= last; ++i) world.report(i, false, reason);
}

void leaseEnds(World& world, Choice& choice) {
  unsigned const index = choice.of(World::portCount);
  bool const all = choice.chance(2);
  if (all) {
    world.removeResults(false);
    world.removeResults(true);
  } else {
    world.platform.dhcpStatus->intfDhcpStatusDel(World::device(index));
    world.platform.dhcpStatus->intfDhcp6StatusDel(World::device(index));
  }
}

void advertisement(World& world, Choice& choice) {
  unsigned const index = choice.of(World::portCount + 1);
  bool const managed = choice.chance(2);
  if (choice.chance(4)) {
    world.platform.raPacketStatus->raPacketDel(World::port(index));
  } else {
    world.platform.raPacketStatus->raPacketIs(World::port(index))->managedIs(managed);
  }
}

void portComesOrGoes(World& world, Choice& choice) {
  unsigned const index = choice.of(World::portCount);
  bool const there = world.platform.episd->intfStatus(World::port(index)) != nullptr;
  bool const replaced = there && choice.chance(3);
  if (there) world.removePort(index);
  if (!there || replaced) world.addPort(index, choice);
}

void portChanges(World& world, Choice& choice) {
  using namespace Interface;
  unsigned const index = choice.of(World::portCount);
  auto const port = world.platform.episd->intfStatus(World::port(index));
  if (!port) return;
  auto const what =
      choice.among({"link up", "operational", "active", "routed", "own device", "100g", "autoneg"});
  bool const on = choice.chance(2);
  auto const is = [what](std::string_view name) { return what == name; };
  auto capabilities = port->linkModeCapabilities();
  capabilities.mode100G = on;
  if (is("link up")) port->linkStatusIs(on ? LinkStatus::up : LinkStatus::down);
  if (is("operational")) port->operStatusIs(on ? OperStatus::up : OperStatus::down);
  if (is("active")) port->activeIs(on);
  if (is("routed")) port->forwardingModelIs(on ? IntfForwardingModel::routed : IntfForwardingModel::bridged);
  if (is("own device")) port->deviceNameIs(on ? World::device(index) : "renamed");
  if (is("100g")) port->linkModeCapabilitiesIs(capabilities);
  if (is("autoneg")) port->autonegCapabilityIs(on ? AutonegCapability::capable : AutonegCapability::none);
}

void lagChanges(World& world, Choice& choice) {
  Wire::IntfId const name("Port-Channel1");
  auto const& lags = world.platform.elisd;
  if (choice.chance(3)) {
    lags->intfStatusDel(name);
    return;
  }
  bool const replaced = !lags->intfStatus(name) || choice.chance(3);
  auto const lag = replaced ? Kel::makePtr<Interface::EthIntfStatus>(name) : lags->intfStatus(name);
  lag->deviceNameIs(choice.chance(4) ? "renamed" : "po1");
  lag->forwardingModelIs(choice.chance(2) ? Interface::IntfForwardingModel::routed
                                          : Interface::IntfForwardingModel::bridged);
  if (replaced) lags->intfStatusIs(lag);
}

void childEnds(World& world, Choice& choice) {
  auto const running = world.running();
  if (running.empty()) return;
  auto const child =
      choice.chance(2) ? running.back() : running[choice.of(static_cast<unsigned>(running.size()))];
  auto const status = choice.among<std::uint8_t>({0, 0, 1, 127});
  if (choice.chance(4)) {
    child->killedIs(9);
  } else {
    child->exitedIs(status);
  }
}

void server(World& world, Choice& choice) {
  auto& curl = world.curl;
  curl.failing = choice.chance(3) ? choice.among({"easyInit", "multiInit", "addHandle", "perform"}) : "";
  curl.hangs = choice.chance(4);
  curl.passes = static_cast<int>(choice.of(4));
  curl.result = choice.chance(2) ? CURLE_COULDNT_CONNECT : CURLE_OK;
  static std::string const signedScript =
      Kel::readFile(PROJECT_FOLDER "/tests/fuzz/corpus/signed_file/der").value_or("");
  curl.body =
      choice.among<std::string>({"hostname sw1\n", "#!/bin/sh\n", "#!/bin/sh\n", "", "#", signedScript});
  curl.hasSocket = choice.chance(2);
  curl.status = choice.chance(8) ? 503 : 200;
  curl.grantsRanges = !choice.chance(4);
}

void inventory(World& world, Choice& choice) {
  bool const there = !choice.chance(3);
  auto const status = choice.chance(4) ? EntityMib::InitStatus::failed : EntityMib::InitStatus::initialized;
  if (there) {
    world.platform.entityMibStatus->rootIs()->initStatusIs(status);
  } else {
    world.platform.entityMibStatus->rootDel();
  }
}

void disable(World& world, Choice&) {
  auto const& sm = world.sm();
  bool const runs = sm.currentState() != sm.stateInit() || sm.transitionState() != sm.stateInvalid();
  bool const stops = runs && world.platform.config->enabled() && !world.shuttingDown();
  world.platform.config->enabledIs(false);
  if (stops) world.require(world.sm().intfNoSpeedChangePool().empty(), "the pool is not empty");
}

void cancel(World& world, Choice& choice) {
  auto const& config = world.platform.config;
  bool const on = !choice.chance(3);
  if (on && !config->cancelled() && config->enabled() && !world.shuttingDown()) world.expectDisable = true;
  config->cancelledIs(on);
}

void limits(World& world, Choice& choice) {
  auto const& config = world.platform.config;
  unsigned const what = choice.of(3);
  if (what == 0) {
    auto const timeout = choice.among<std::uint32_t>({0, 1, 20, 60, 3600});
    bool const changes =
        timeout != config->scriptExecTimeout() && world.state() == stateCopyConfigOrExecScript;
    if (changes && world.sm().fileIsHashPling()) world.deadline = Kel::now() + 2 * timeout;
    config->scriptExecTimeoutIs(timeout);
  } else if (what == 1) {
    config->maxRunTimeIs(choice.among({0.0, 100.0, 1000.0, Kel::never, Kel::never}));
  } else {
    config->maxDownloadSizeIs(choice.chance(4) ? 4 : 1'000'000);
  }
}

void cleanUp(World& world, Choice& choice) {
  unsigned const when = choice.of(3);
  world.cleanUp = std::array{World::CleanUp::prompt, World::CleanUp::later, World::CleanUp::never}[when];
  world.cleanUpTakes = choice.among({0.0, 0.0, 1.0, 10.0});
}

}  // namespace

void progress(World& world, Choice& choice) {
  auto const& sm = world.sm();
  Choice details(choice.of(1u << 30));
  Choice none(0);
  switch (world.state()) {
    case stateInit:
      world.platform.entityMibStatus->rootIs()->initStatusIs(EntityMib::InitStatus::initialized);
      return world.platform.config->enabledIs(true);
    case stateSetupInterfaces:
      return world.time.advance(30);
    case stateDhcpQuery:
    case stateStatelessDhcpQuery:
      if (choice.chance(4)) return world.time.advance(15);
      for (unsigned i = 0; i < World::portCount; ++i) {
        if (!sm.phyIntfStatus(World::port(i))) continue;
        return world.answer(i, choice.chance(3), details);
      }
      return world.addPort(0, choice);
    case stateSetupSystemIdentity:
      world.addressesAre(true);
      return world.time.advance(5);
    case stateFetchConfig:
    case stateRetryFetchConfig:
      if (choice.chance(2)) {
        world.curl.hangs = false;
        world.curl.failing = "";
        world.curl.status = 200;
      }
      return world.time.advance(4);
    case stateCopyConfigOrExecScript: {
      constexpr std::uint64_t endsWell = 8;
      Choice well(endsWell);
      return childEnds(world, choice.chance(2) ? well : none);
    }
    default:
      return childEnds(world, none);
  }
}

namespace {

struct Action {
  char const* name;
  unsigned weight;
  void (*act)(World&, Choice&);
};

constexpr std::array actions = {
    Action{"progress", 30, progress},
    Action{"time", 20, timePasses},
    Action{"standstill", 4, standsStill},
    Action{"answer", 8, answer},
    Action{"no answer", 4, noAnswer},
    Action{"end of a lease", 4, leaseEnds},
    Action{"router advertisement", 6, advertisement},
    Action{"port", 4, portComesOrGoes},
    Action{"port change", 6, portChanges},
    Action{"port-channel", 2, lagChanges},
    Action{"LLDP", 3, [](World& world, Choice& choice) { world.hearLldp(choice.of(World::portCount)); }},
    Action{"addresses", 5, [](World& world, Choice& choice) { world.addressesAre(!choice.chance(4)); }},
    Action{"child's end", 10, childEnds},
    Action{"server", 8, server},
    Action{"socket", 4, [](World& world, Choice&) { world.curl.socketReady(); }},
    Action{"inventory", 2, inventory},
    Action{"enable", 5, [](World& world, Choice&) { world.platform.config->enabledIs(true); }},
    Action{"disable", 4, disable},
    Action{"cancel", 2, cancel},
    Action{"limits", 3, limits},
    Action{"clean-up", 2, cleanUp},
    Action{"standby", 2,
           [](World& world, Choice& choice) {
             world.platform.fileReplicationStatus->entryIs("RedSup")->synchronizedIs(choice.chance(2));
           }},
    Action{"packet socket", 2,
           [](World& world, Choice& choice) { world.socketChanges(choice.of(World::portCount)); }},
};

}  // namespace

std::vector<Step> stepsFrom(std::mt19937_64& random, unsigned count) {
  static std::vector<unsigned> const byWeight = [] {
    std::vector<unsigned> result;
    for (unsigned i = 0; i < actions.size(); ++i) result.insert(result.end(), actions[i].weight, i);
    return result;
  }();
  std::vector<Step> steps(count);
  for (auto& step : steps) step = {byWeight[random() % byWeight.size()], random(), random() % 3 != 0};
  return steps;
}

unsigned actionCount() { return actions.size(); }
char const* actionName(unsigned action) { return actions[action].name; }

void apply(World& world, Step const& step) {
  Choice choice(step.bits);
  world.note(actionName(step.action));
  actions[step.action].act(world, choice);
  world.note("  (chosen:" + choice.drawn() + ")");
  if (!step.settle) return;
  world.finishCleanUp();
  world.time.settle();
}
