// The verbs of the command line. Each adds itself to the program and is called back when it is the one given.
#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

#include "platform/kel/EntityType.h"
#include "platform/statebase/Client.h"

namespace ZeroTouchCommand {

// A verb that makes no sense now; the message says why.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Words that make no sense at all.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host that was followed has closed the connection.
class HostGone : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What every verb has.
struct Context {
  std::string socketPath = "/run/zerotouch/statebase.sock";
  bool json = false;

  Kel::Value call(std::string const& method, Kel::ValueMap params) const {
    return Statebase::Client(socketPath).call(method, std::move(params));
  }
  // Calls `loop`, in which a host that was reached may go away.
  template <typename Loop>
  void whileHostRuns(Loop const& loop) const {
    try {
      loop();
    } catch (Statebase::ConnectionError const&) {
      throw HostGone("the host has gone away: " + socketPath);
    }
  }
};

// `examples`: lines for the end of its help, without the indentation.
CLI::App* addVerb(CLI::App& program, std::string const& name, std::string const& does,
                  std::vector<std::string> const& examples);

void addStatus(CLI::App& program, Context const& context);
void addWatch(CLI::App& program, Context const& context);
void addPorts(CLI::App& program, Context const& context);
void addEvents(CLI::App& program, Context const& context);
void addExplain(CLI::App& program, Context const& context);
void addReport(CLI::App& program, Context const& context);
// enable, disable, cancel
void addControls(CLI::App& program, Context const& context);
// get, set, list
void addTreeVerbs(CLI::App& program, Context const& context);

}  // namespace ZeroTouchCommand
