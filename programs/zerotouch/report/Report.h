// The report on a run: what it is made of (where provisioning stands, and the host's history, in plain
// structures), and the parts of the page.
#pragma once

#include <string>
#include <vector>

#include "platform/kel/Types.h"
#include "platform/statebase/Client.h"

namespace ZeroTouchCommand {

struct Run {
  struct State {
    Kel::Seconds time, end;
    std::string name, reason;
  };
  struct Timer {
    std::string name;
    Kel::Seconds started, timeout, ended;  // ended: now, while it runs
    bool runs, ranOut;
  };
  struct PortReport {
    Kel::Seconds time;
    std::string port, source, report, detail;
  };
  struct Change {
    Kel::Seconds time;
    std::string what, where, value;
    bool undone;
  };
  struct Event {
    Kel::Seconds time;
    std::uint64_t severity;
    std::string name, message;
  };

  Kel::Seconds now = 0;
  Kel::Seconds start = 0;  // of the run: when stateInit was left, if it was
  Kel::Seconds end = 0;    // now, or shortly after the last state when nothing more is to happen
  Kel::Value status;       // as fetchStatus() gives it
  std::string model, serial, systemMac;
  std::vector<State> states;
  std::vector<Timer> timers;
  std::vector<PortReport> ports;
  std::vector<Change> changes;
  std::vector<Event> events;
};

// For programs: {time, status, inventory, states, timers, ports, changes, events}.
Kel::Value fetchRun(Statebase::Client& host);
// The same, understood.
Run runOf(Kel::Value const& fetched);

// Whether a change is to the system, not a wish of the operator's or the reload.
bool isApplied(Run::Change const& change);

// The picture of a run: its states, what was applied, its ports and its events over time. An SVG element with
// its legend, as HTML.
std::string timeline(Run const& run);

// The tables: states, events, ports, what was applied, and timers, as HTML.
std::string details(Run const& run);

}  // namespace ZeroTouchCommand
