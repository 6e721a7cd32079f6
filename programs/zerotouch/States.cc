#include "programs/zerotouch/States.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/model/agent.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

using State = ZeroTouch::ProvisioningState;
using ZeroTouch::TransitionCause;

constexpr std::pair<State, char const*> inWords[] = {
    {State::stateInit, "at rest"},
    {State::stateSetupInterfaces, "setting up the ports"},
    {State::stateDhcpQuery, "asking for addresses"},
    {State::stateStatelessDhcpQuery, "asking for a boot file alone"},
    {State::stateSetupSystemIdentity, "applying the DHCP answer"},
    {State::stateFetchConfig, "downloading"},
    {State::stateRetryFetchConfig, "waiting to download again"},
    {State::stateCopyConfigOrExecScript, "installing or running the file"},
    {State::stateRetry, "waiting to start over"},
    {State::stateShutdown, "reloading"},
};

constexpr std::pair<TransitionCause, char const*> outcomes[] = {
    {TransitionCause::configInstalled, "provisioned"},
    {TransitionCause::scriptSucceeded, "provisioned"},
    {TransitionCause::provisioningCancelled, "cancelled"},
    {TransitionCause::runTimeOver, "out of time"},
};

}  // namespace

std::string stateInWords(std::string const& name) {
  auto const* const found =
      std::ranges::find_if(inWords, [&](auto const& entry) { return stringValue(entry.first) == name; });
  return found == std::end(inWords) ? name : std::string(found->second) + " (" + name + ")";
}

std::string stateInWords(Kel::Value const& status) {
  std::string const words = stateInWords(memberText(at(status, {"sm"}), "currentState"));
  std::string const end = outcome(status);
  return end.empty() ? words : end + ", " + words;
}

std::string outcome(Kel::Value const& status) {
  Kel::Value const& machine = at(status, {"sm"});
  if (memberText(machine, "currentState") != stringValue(State::stateShutdown)) return "";
  std::string const cause = memberText(machine, "transitionCause");
  auto const* const found =
      std::ranges::find_if(outcomes, [&](auto const& entry) { return stringValue(entry.first) == cause; });
  return found == std::end(outcomes) ? "" : found->second;
}

void checkState(std::string const& option, std::string const& name) {
  std::vector<std::string> names;
  for (auto const& [state, words] : inWords) names.push_back(stringValue(state));
  if (std::ranges::find(names, name) != names.end()) return;
  std::string const meant = didYouMean(name, names);
  std::string known;
  for (auto const& one : names) known += (known.empty() ? " (the states are " : ", ") + one;
  throw WrongUsage(option + ": there is no state '" + name + "'" + (meant.empty() ? known + ")" : meant));
}

}  // namespace ZeroTouchCommand
