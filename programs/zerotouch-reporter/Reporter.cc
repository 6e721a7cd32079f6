#include "programs/zerotouch-reporter/Reporter.h"

#include <filesystem>
#include <iostream>

#include "platform/kel/Format.h"
#include "platform/kel/Loop.h"
#include "platform/kel/WholeFile.h"
#include "platform/model/values/Grammar.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch-reporter/CloudEvent.h"

namespace {

constexpr Kel::Seconds lastChance = 2;  // for what waits when the system goes down
constexpr unsigned onlyOurs = 0600;
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
  takeOutcome();
  sender_.send();
  changed();
}

void Reporter::take(Kel::String const& serial, HostEvents::Event const& event) {
  add(serial, "zerotouch." + event.name, event.time, event.data, event.position);
}

// Once in a boot, before the runs of this boot come to an end. A crash before the mark is there leads to a
// second event, which has the same id.
void Reporter::takeOutcome() {
  Kel::String const mark = settings_.runFolder + "/outcome-taken";
  if (std::filesystem::exists(mark.c_str())) return;
  outcome_ = lastOutcome();
  if (outcome_) addOutcome();
  if (auto const failure = Kel::replaceFile(mark, "", onlyOurs, false); !failure.empty()) say(failure);
}

void Reporter::addOutcome() {
  outcomeNumber_ = spool_.next();
  add(outcome_->serial, outcome_->provisioned ? "zerotouch.provisioned" : "zerotouch.failed", outcome_->ended,
      outcome_->data, spool_.hostPosition(), Kel::format("run-%.3f", outcome_->started));
}

void Reporter::add(Kel::String const& serial, Kel::String const& type, Kel::Seconds time, Kel::ValueMap data,
                   HostPosition position, Kel::String id) {
  CloudEvent const event{.id = id.empty() ? Kel::format("%s-%d", spool_.instance(), spool_.next()) : id,
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
  sender_.sendNow();
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
  if (finishing_ && !sender_.busy() && (spool_.waiting().empty() || !said_.empty()))
    Kel::Loop::instance().stop(0);
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
  Kel::replaceFile(settings_.runFolder + "/status.json", Statebase::dumpJson(std::move(status)) + "\n", 0644,
                   false);
}
