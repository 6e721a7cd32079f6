// The report on a run: what it is made of (where provisioning stands, and the host's history, in plain
// structures), and the parts of the page.
#pragma once

#include <string>
#include <vector>

#include "platform/kel/Types.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

struct Run {
  struct State {
    Kel::Seconds time, end;
    std::string name, reason;
  };
  struct Timer {
    std::string name;
    Kel::Seconds started, timeout, ended;  // a timer that runs counts as ended now
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
  struct Attempt {
    std::string number;
    Kel::Seconds started, ended;  // one that goes on counts as ended now
    std::string port, family, url, outcome;
    bool success, goesOn;
  };
  struct Event {
    Kel::Seconds time;
    std::uint64_t severity;
    std::string name, message;
  };

  Kel::Seconds now = 0;
  Kel::Seconds start = 0;  // when the run left stateInit, or else when the history begins
  Kel::Seconds end = 0;    // now, or shortly after the last state began when the run is over
  Kel::Value status;       // as fetchStatus() gives it
  std::string model, serial, systemMac;
  std::vector<State> states;
  std::vector<Timer> timers;
  std::vector<PortReport> ports;
  std::vector<Change> changes;
  std::vector<Event> events;
  std::vector<Attempt> attempts;
};

// What `report --json` prints: {time, status, inventory, states, timers, ports, changes, events, attempts}.
// When no host runs, it is what the flash remembers.
Kel::Value fetchRun(Context const& context);
// The same as plain structures.
Run runOf(Kel::Value const& fetched);

// Whether the change was one of the system's settings, and not a wish of the operator or the reload.
bool isApplied(Run::Change const& change);

// The picture of a run over time: its states, what was applied, its ports and its events. It is HTML: an SVG
// element for wide screens, one for narrow ones, and a legend.
std::string timeline(Run const& run);

// The tables of attempts, states, events, ports, what was applied, and timers, as HTML, the newest rows
// first.
std::string details(Run const& run);

}  // namespace ZeroTouchCommand
