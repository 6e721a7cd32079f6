#include "programs/zerotouch-reporter/Reporter.h"

#include <iostream>

#include "platform/kel/Format.h"
#include "platform/kel/Loop.h"
#include "platform/kel/WholeFile.h"
#include "platform/model/values/Grammar.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch-reporter/CloudEvent.h"

namespace {

constexpr Kel::Seconds lastChance = 5;  // for what waits when the system goes down
constexpr Kel::Seconds together = 0.5;  // changes that come within it are written as one

void say(Kel::String const& text) {
  std::cerr << "zerotouch-reporter: " << Kel::printable(text) << std::endl;
}

}  // namespace

Reporter::Reporter(ReporterSettings settings)
    : settings_(std::move(settings)),
      spool_(settings_.spoolFolder, settings_.spoolBytes),
      sender_(settings_.collector, spool_, [this] { changed(); }),
      host_(settings_.socketPath, spool_.hostPosition(),
            [this](Kel::String const& serial, HostEvents::Event const& event) { take(serial, event); }) {
  if (settings_.firstOfBoot) takeOutcome();
  sender_.send();
  changed();
}

void Reporter::take(Kel::String const& serial, HostEvents::Event const& event) {
  add(serial, "zerotouch." + event.name, event.time, event.data, event.position);
}

void Reporter::takeOutcome() {
  outcome_ = lastOutcome();
  if (!outcome_) return;
  outcomeNumber_ = spool_.next();
  add(outcome_->serial, outcome_->provisioned ? "zerotouch.provisioned" : "zerotouch.failed", outcome_->ended,
      outcome_->data, spool_.hostPosition());
}

void Reporter::add(Kel::String const& serial, Kel::String const& type, Kel::Seconds time, Kel::ValueMap data,
                   HostPosition position) {
  CloudEvent const event{.id = Kel::format("%s-%d", spool_.instance(), spool_.next()),
                         .source = serial.empty() ? "unknown" : serial,
                         .type = type,
                         .time = time,
                         .sequence = spool_.next(),
                         .data = std::move(data)};
  if (auto const failure = spool_.add(jsonOf(event), position); !failure.empty()) say(failure);
  sender_.send();
  status_.in(together);
}

void Reporter::finish() {
  finishing_ = true;
  giveUp_.in(lastChance);
  changed();
}

void Reporter::changed() {
  bool const delivered = spool_.waiting().empty() || spool_.waiting().front().number > outcomeNumber_;
  if (outcome_ && delivered && sender_.failure().empty()) {
    if (auto const failure = outcomeReported(*outcome_); !failure.empty()) say(failure);
    outcome_.reset();
  }
  if (sender_.failure() != said_ && !sender_.failure().empty())
    say(sender_.failure() + "; it is tried again");
  if (sender_.failure().empty() && !said_.empty()) say("the collector takes events again");
  said_ = sender_.failure();
  if (finishing_ && (spool_.waiting().empty() || !said_.empty())) Kel::Loop::instance().stop(0);
  status_.in(together);
}

void Reporter::writeStatus() {
  auto const counts = spool_.counts();
  Kel::ValueMap status{{"url", Grammar::withoutPasswords(settings_.collector.url)},
                       {"delivered", counts.delivered},
                       {"waiting", counts.waiting},
                       {"dropped", counts.dropped},
                       {"failure", sender_.failure()},
                       {"hostIsRunning", host_.connected()}};
  if (sender_.nextTry() != Kel::never) status.emplace_back("nextTry", sender_.nextTry());
  Kel::replaceFile(settings_.statusPath, Statebase::dumpJson(std::move(status)) + "\n", 0644, false);
}
