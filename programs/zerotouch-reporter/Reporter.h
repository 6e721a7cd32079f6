// Takes the events of the host into the spool, has them sent, and says how far that has come.
#pragma once

#include <optional>

#include "platform/kel/Loop.h"
#include "programs/zerotouch-reporter/HostEvents.h"
#include "programs/zerotouch-reporter/Outcome.h"
#include "programs/zerotouch-reporter/Sender.h"

struct ReporterSettings {
  CollectorConfig collector;
  Kel::String socketPath;
  Kel::String spoolFolder;
  std::uint64_t spoolBytes = 1 << 20;
  Kel::String runFolder;  // for what is forgotten at a reboot
};

class Reporter {
 public:
  explicit Reporter(ReporterSettings settings);
  Reporter(Reporter const&) = delete;
  Reporter& operator=(Reporter const&) = delete;

  // Sends what waits for a last time, and stops the loop then, or after a few seconds.
  void finish();

 private:
  void take(Kel::String const& serial, HostEvents::Event const& event);
  void takeOutcome();
  void addOutcome();
  void add(Kel::String const& serial, Kel::String const& type, Kel::Seconds time, Kel::ValueMap data,
           HostPosition position, Kel::String id = "");
  void changed();
  void writeStatus();

  ReporterSettings settings_;
  Spool spool_;
  Sender sender_;
  HostEvents host_;
  std::optional<Outcome> outcome_;   // waits to be delivered
  std::uint64_t outcomeNumber_ = 0;  // its number in the spool
  bool finishing_ = false;
  Kel::String said_;  // the last failure that was told
  Kel::Alarm status_{[this] { writeStatus(); }};
  Kel::Alarm giveUp_{[] { Kel::Loop::instance().stop(0); }};
};
