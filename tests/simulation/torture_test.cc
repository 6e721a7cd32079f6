// Plays a whole run over and over. Each time another one of the calls that can fail does fail, and the run
// has to end well in spite of it, or to say why it cannot.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "tests/simulation/Runner.h"
#include "tests/unit/support/Faults.h"

namespace {

using enum ZeroTouch::ProvisioningState;

constexpr int cannotStart = 127;
constexpr char const* errors = "/tmp/torture.err";

// A run that does everything: a stateless query without an answer, a download that fails, a script that
// fails, and then a startup configuration.
class WholeRun {
 public:
  WholeRun() {
    world_.curl.hasSocket = true;
    world_.curl.passes = 2;
    world_.children.onRunAndWait = [works = world_.children.onRunAndWait](char const* path) {
      return Faults::fails("runAndWait") ? cannotStart : works(path);
    };
    world_.onTransition = [this](State, State to) {
      if (to != stateFetchConfig) return;
      ++fetches_;
      world_.curl.result = fetches_ == 1 ? CURLE_COULDNT_CONNECT : CURLE_OK;
      world_.curl.body = fetches_ == 2 ? "#!/bin/sh\n" : "hostname sw1\n";
    };
  }

  // What is not as it must be; "" when the reload is requested.
  std::string play() {
    constexpr int manySteps = 100;
    world_.platform.config->enabledIs(true);
    for (int i = 0; i < manySteps && !world_.sm().reloadRequested(); ++i) {
      bool const before = Faults::happened();
      Faults::onIs(true);
      step();
      for (; started_ < world_.children.started.size(); ++started_) {
        if (Faults::fails("spawn")) world_.children.started[started_].child->exitedIs(cannotStart);
      }
      world_.time.settle();
      Faults::onIs(false);
      // When the settings file cannot be written, the run goes on without its entry.
      bool const now = Faults::happened() && !before;
      if (now && !std::filesystem::exists("/tmp/root/flash/zerotouch-config")) world_.expectDisable = false;
      world_.check();
      started_ = world_.children.started.size();
      if (!world_.violation.empty()) return world_.violation;
    }
    if (!world_.sm().reloadRequested()) return std::string("no end, in ") + stringValue(world_.state());
    world_.drop();
    world_.check();
    return world_.violation;
  }

 private:
  void step() {
    auto const driven =
        stateSetupSystemIdentity | stateFetchConfig | stateCopyConfigOrExecScript | stateShutdown;
    bool const answers = world_.state() == stateDhcpQuery && queries_++ > 0;
    if (!answers && (world_.state() & driven) == stateInvalid) return world_.time.advance(15);
    constexpr std::uint64_t overDhcpv4 = 5;
    Choice choice(World::fullAnswer | overDhcpv4 << 30);
    progress(world_, choice);
  }

  World world_;
  std::size_t started_ = 0;
  unsigned queries_ = 0;
  unsigned fetches_ = 0;
};

struct Outcome {
  unsigned calls = 0;
  bool saysWhy = false;  // before it ends by an assertion
  char problem[512] = "";
};

// Plays the run in a process of its own, since an assertion may end it.
Outcome playWith(std::string const& kind, unsigned nth) {
  Shared<Outcome> const shared;
  auto const body = [&] {
    WholeRun run;
    Kel::logSinkIs([&shared](Kel::LogEvent const& event) {
      if (event.name == "DOWNLOAD_NOT_USABLE") shared->saysWhy = true;
    });
    Faults const faults(kind, nth);
    std::snprintf(shared->problem, sizeof shared->problem, "%s", run.play().c_str());
    shared->calls = Faults::calls();
    return true;
  };
  int const status = inChild(body, errors);
  Outcome result = *shared;
  bool const asserted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
  std::string said;
  std::getline(std::ifstream(errors), said);
  // Only a script that cannot be made executable ends the agent after that event.
  bool const saysWhy = result.saysWhy && kind == "chmod";
  if (asserted && !saysWhy && !said.starts_with("Unable to open "))
    std::snprintf(result.problem, sizeof result.problem, "an assertion");
  if (!asserted && status != 0) std::snprintf(result.problem, sizeof result.problem, "ended with %d", status);
  return result;
}

}  // namespace

TEST(Torture, whatever_fails_once_the_run_ends_well_or_says_why_not) {
  auto kinds = Faults::libcCalls();
  for (char const* const kind :
       {"spawn", "runAndWait", "easyInit", "multiInit", "addHandle", "perform", "append"})
    kinds.emplace_back(kind);
  unsigned faults = 0;
  for (auto const& kind : kinds) {
    SCOPED_TRACE(kind);
    auto const whole = playWith(kind, 0);
    EXPECT_STREQ(whole.problem, "") << "without a fault";
    faults += whole.calls;
    for (unsigned nth = 1; nth <= whole.calls; ++nth)
      EXPECT_STREQ(playWith(kind, nth).problem, "") << kind << " " << nth << " of " << whole.calls;
  }
  std::printf("%u faults\n", faults);
  EXPECT_GT(faults, 0U);
}
