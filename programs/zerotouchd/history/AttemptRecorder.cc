#include "programs/zerotouchd/history/AttemptRecorder.h"

#include <utility>

#include "platform/kel/Clock.h"
#include "platform/model/values/Grammar.h"

namespace {

using ZeroTouch::AnswerFamily;
using ZeroTouch::TransitionCause;
using State = ZeroTouch::ProvisioningState;

Kel::String nameOf(AnswerFamily family) {
  return family == AnswerFamily::dhcpv4   ? "DHCPv4"
         : family == AnswerFamily::dhcpv6 ? "DHCPv6"
                                          : "DHCPv6 stateless";
}

bool isSuccess(TransitionCause cause) {
  return cause == TransitionCause::configInstalled || cause == TransitionCause::scriptSucceeded;
}

// The text of an attribute that the entity may have, or "".
Kel::String textOf(Kel::Entity const& entity, char const* name) {
  auto const* const attribute = entity.entityType()->attribute(name);
  if (attribute == nullptr) return "";
  auto const value = attribute->get(entity, "");
  auto const* const text = value.as<std::string>();
  return text != nullptr ? *text : "";
}

}  // namespace

AttemptRecorder::AttemptRecorder(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine,
                                 Ring<History::Attempt>& attempts)
    : machine_(machine),
      attempts_(attempts),
      states_(machine, &ZeroTouch::ZeroTouchSmModel::NotifieeConst::onCurrentState, this,
              &AttemptRecorder::stateEntered) {}

void AttemptRecorder::stateEntered() {
  switch (machine_->currentState()) {
    case State::stateRetry:
      return end(machine_->lastFailureCause(), false);
    case State::stateInit:
      return end(machine_->transitionReason(), false);
    case State::stateShutdown:
      return end(machine_->transitionReason(), isSuccess(machine_->transitionCause()));
    default:
      if (running_ == 0) begin();
      noteAnswer();
  }
}

void AttemptRecorder::begin() {
  attempt_ = {};
  attempt_.number = machine_->attempt();
  attempt_.started = Kel::now();
  running_ = attempts_.add(attempt_);
}

void AttemptRecorder::noteAnswer() {
  auto const answer = machine_->chosenAnswer();
  if (!answer || !machine_->choosenIntf()) return;
  History::Attempt noted = attempt_;
  noted.port = machine_->choosenIntf()->intfName();
  noted.family = nameOf(answer->family());
  if (answer->result()) noted.server = shortened(textOf(*answer->result(), "server"));
  noted.url = shortened(Grammar::withoutPasswords(answer->url()));
  if (noted.port == attempt_.port && noted.family == attempt_.family && noted.url == attempt_.url) return;
  attempt_ = noted;
  attempts_.replace(running_, attempt_);
}

void AttemptRecorder::end(Kel::String const& outcome, bool success) {
  if (running_ == 0) return;
  noteAnswer();
  attempt_.ended = Kel::now();
  attempt_.outcome = shortened(outcome);
  attempt_.success = success;
  attempts_.replace(std::exchange(running_, 0), attempt_);
}
