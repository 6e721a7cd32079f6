#include "zerotouch/sm/Cause.h"

namespace ZeroTouch {

namespace {

char const* sentence(TransitionCause cause) {
  switch (cause) {
    case TransitionCause::none:
      return "";
    case TransitionCause::agentStarted:
      return "the agent has started";
    case TransitionCause::provisioningEnabled:
      return "provisioning is enabled";
    case TransitionCause::portsSetUp:
      return "the ports are set up";
    case TransitionCause::dhcpQueryOver:
      return "no DHCP server has named a boot file yet";
    case TransitionCause::bootFileNamed:
      return "DHCP has named a boot file";
    case TransitionCause::addressActive:
      return "the address is active";
    case TransitionCause::identitySettled:
      return "what DHCP brought is active";
    case TransitionCause::downloadFailed:
      return "the download has failed";
    case TransitionCause::downloadAgain:
      return "the download is tried again";
    case TransitionCause::fileReceived:
      return "the download is complete";
    case TransitionCause::noPortAsked:
      return "no port could be asked for a boot file";
    case TransitionCause::noBootFile:
      return "no DHCP server has named a boot file";
    case TransitionCause::statelessUnanswered:
      return "no DHCP server has named a boot file, nor has a stateless DHCPv6 server";
    case TransitionCause::statelessTimeout:
      return "the stateless DHCPv6 query has taken too long";
    case TransitionCause::identityNotActive:
      return "what DHCP brought did not become active in time";
    case TransitionCause::bootFileNotUrl:
      return "the boot file cannot be downloaded";
    case TransitionCause::downloadNotStarted:
      return "the download cannot be started";
    case TransitionCause::downloadRefusedAtOnce:
      return "the download has failed at its start";
    case TransitionCause::downloadTimeout:
      return "the download has taken too long";
    case TransitionCause::addressLost:
      return "the address is no longer active";
    case TransitionCause::downloadTriesUsedUp:
      return "the download has failed too often";
    case TransitionCause::fileEmpty:
      return "the downloaded file is empty";
    case TransitionCause::scriptFailed:
      return "the script has failed";
    case TransitionCause::scriptKilled:
      return "the script was ended by a signal";
    case TransitionCause::scriptTimeout:
      return "the script has taken too long";
    case TransitionCause::attemptUndone:
      return "what the attempt applied is undone";
    case TransitionCause::dhcpResultsGone:
      return "what the attempt applied is undone, and its DHCP results are gone";
    case TransitionCause::dhcpResultsRemain:
      return "the DHCP results of the attempt have not gone in time";
    case TransitionCause::provisioningDisabled:
      return "provisioning is disabled";
    case TransitionCause::provisioningCancelled:
      return "an operator has cancelled provisioning";
    case TransitionCause::configInstalled:
      return "the configuration is installed";
    case TransitionCause::scriptSucceeded:
      return "the script has succeeded";
    case TransitionCause::runTimeOver:
      return "provisioning has run out of time";
    case TransitionCause::configNotInstalled:
      return "the configuration cannot be installed";
  }
  return "";
}

Problem problemOf(TransitionCause cause) {
  switch (cause) {
    case TransitionCause::noPortAsked:
      return Problem::noPortTakesPart;
    case TransitionCause::noBootFile:
    case TransitionCause::statelessUnanswered:
    case TransitionCause::statelessTimeout:
      return Problem::noAnswer;
    case TransitionCause::identityNotActive:
      return Problem::addressNotActive;
    case TransitionCause::addressLost:
      return Problem::addressLost;
    case TransitionCause::bootFileNotUrl:
      return Problem::bootFileBare;
    case TransitionCause::downloadNotStarted:
      return Problem::downloadImpossible;
    case TransitionCause::downloadFailed:
    case TransitionCause::downloadRefusedAtOnce:
    case TransitionCause::downloadTriesUsedUp:
      return Problem::downloadOther;
    case TransitionCause::downloadTimeout:
      return Problem::serverSilent;
    case TransitionCause::fileEmpty:
      return Problem::fileEmpty;
    case TransitionCause::configNotInstalled:
      return Problem::flashUnwritable;
    case TransitionCause::scriptFailed:
      return Problem::scriptFailed;
    case TransitionCause::scriptKilled:
      return Problem::scriptKilled;
    case TransitionCause::scriptTimeout:
      return Problem::scriptSlow;
    default:
      return Problem::none;
  }
}

}  // namespace

Cause::Cause(TransitionCause why, Kel::String about)
    : kind(why), argument(std::move(about)), problem(problemOf(why)) {}

Cause::Cause(TransitionCause why, Trouble about)
    : kind(why),
      argument(std::move(about.text)),
      problem(about.problem != Problem::none ? about.problem : problemOf(why)) {}

Kel::String Cause::reason() const {
  if (argument.empty()) return sentence(kind);
  return Kel::String(sentence(kind)) + (kind == TransitionCause::bootFileNamed ? " on " : ": ") + argument;
}

bool Cause::isSuccess() const {
  return kind == TransitionCause::configInstalled || kind == TransitionCause::scriptSucceeded;
}

}  // namespace ZeroTouch
