// The verbs of the command line. Each prints what it has found or done; when it cannot do it, it throws one
// of the exceptions below, or one of Statebase::Client's.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/kel/EntityType.h"
#include "platform/statebase/Client.h"

namespace ZeroTouchCommand {

// The verb makes no sense now, or what it asked for did not come about; the message says why.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The words of the command line make no sense.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host that was followed has closed the connection.
class HostGone : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What was waited for has not come about; `code` is the ExitCode (Failure.h) that says why.
class WaitedInVain : public std::runtime_error {
 public:
  WaitedInVain(int reason, std::string const& text) : std::runtime_error(text), code(reason) {}
  int code;
};

// The caller may not do this.
class NotPermitted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What was printed says why the verb ends with this ExitCode.
class SaidAlready : public std::runtime_error {
 public:
  explicit SaidAlready(int reason) : std::runtime_error("the output says it"), code(reason) {}
  int code;
};

// What every verb has.
struct Context {
  std::string socketPath = "/run/zerotouch/statebase.sock";
  bool json = false;

  Kel::Value call(std::string const& method, Kel::ValueMap params) const {
    return Statebase::Client(socketPath).call(method, std::move(params));
  }
  // Calls `loop`, and throws HostGone when the host goes away in it.
  template <typename Loop>
  void whileHostRuns(Loop const& loop) const {
    try {
      loop();
    } catch (Statebase::ConnectionError const&) {
      throw HostGone("the host has gone away: " + socketPath);
    }
  }
};

// Waits for `until`, which is "provisioned", "failed" or the name of a state, at most `timeout` seconds, and
// shows the status then. Throws WaitedInVain, after it has shown the status too, when that has not come
// about.
void waitForStatus(Context const& context, std::string const& until, Kel::Seconds timeout);
// `until` names the state at which it ends; with "" it goes on until interrupted.
void watch(Context const& context, std::string const& until);

// Which ports are shown: all, those with a link, or everything about one.
struct PortChoice {
  std::string name;  // of the port or its device; "" for a table
  bool up = false;
};
void showPorts(Context const& context, PortChoice const& choice);

// Which events are shown. The texts are as given on the command line.
struct EventChoice {
  std::string since;          // "10min", "14:03" or "2026-03-01 14:03:22"; "" for all
  std::string severity;       // "warning" or "4": that one and those that are worse; "" for all
  std::uint64_t last = 0;     // only so many, the last ones; 0 for all
  std::uint64_t attempt = 0;  // those of one attempt, by its number; 0 for all
};
void showEvents(Context const& context, EventChoice const& choice);
// The past ones of the choice, and then what happens.
void followEvents(Context const& context, EventChoice const& choice);

void showAttempts(Context const& context);
void showHistory(Context const& context);
// `event` is the name of an event, in upper or lower case; with "" it lists all events.
void explain(Context const& context, std::string const& event);
// `file` is the file to write; "" is the standard output.
void report(Context const& context, std::string const& file);

void enable(Context const& context);
void disable(Context const& context);
// The system reloads. Unless `sure`, whoever sits at a terminal is asked first.
void cancel(Context const& context, bool sure);

void getPath(Context const& context, std::string const& path);
void listPath(Context const& context, std::string const& path);
// `value` is JSON or, where it is none, a string.
void setPath(Context const& context, std::string const& path, std::string const& value);

// What sign and verify are given. Neither needs a host.
struct SigningWords {
  std::string file, output, certificate, key, validUntil;  // output: "" for the file's name and ".cms"
  std::vector<std::string> serials;
};
void sign(Context const& context, SigningWords const& words);
struct VerifyingWords {
  std::string file, signers, serial;  // serial: "" when it does not count
};
void verify(Context const& context, VerifyingWords const& words);

// Which switch is played, and where. Needs no host.
struct RehearsalWords {
  std::string interface, url;  // one of them: the link whose servers are asked, or only a boot file
  std::string serial, model, revision, mac;  // "" for this machine's own
  std::string config;                        // platform.toml; "" for that of this machine, if it has one
  bool four = false, six = false, stateless = false;  // whom to ask; none means all
  double seconds = 5;                                 // how long to listen
};
void rehearse(Context const& context, RehearsalWords const& words);

}  // namespace ZeroTouchCommand
