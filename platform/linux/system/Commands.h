// The commands of the operator's configuration: how one is run, and the reload, which is one.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/kel/Child.h"
#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"

namespace Linux {

// The program, found in PATH unless it has a "/", and its arguments.
using CommandLine = std::vector<Kel::String>;

// For messages: the words with blanks between them.
Kel::String stringValue(CommandLine const& commandLine);

// A command that an operator configured, at work: nobody waits for it, and it is killed when it takes too
// long.
class Command {
 public:
  // `failure` is "" or what was wrong, as "exit status 1". Called once, on a later pass of the loop, and may
  // delete the command.
  using Done = std::function<void(Kel::String const& failure)>;

  // `variable` ("NAME=value") is added to the environment of the command, unless it is empty. A command that
  // is deleted runs on; nobody is told of its end.
  Command(CommandLine const& commandLine, Kel::String const& variable, Kel::Seconds limit, Done done);
  Command(Command const&) = delete;
  Command& operator=(Command const&) = delete;

 private:
  void handleEnd();
  void handleLimit();

  Kel::Seconds limit_;
  Done done_;
  bool tooLong_ = false;
  Kel::Ptr<Kel::ChildSiginfo> child_;
  Kel::Reactor end_;
  Kel::Alarm timeOut_;
};

// The files of the system that the adapter writes, and the commands that it runs.
struct SystemConfig {
  Kel::String resolvConf = "/etc/resolv.conf";
  Kel::String logDropIn = "/etc/rsyslog.d/50-zerotouch.conf";
  CommandLine logReloadCommand = {"systemctl", "try-restart", "rsyslog.service"};
  CommandLine reloadCommand = {"systemctl", "reboot"};

  bool operator==(SystemConfig const&) const = default;
};

// Carries out a request to reload: runs the configured command, again and again until it has succeeded.
class ReloadApplier {
 public:
  // `onRequest` is called before the command is run for the first time.
  ReloadApplier(Entities const& entities, CommandLine command, std::function<void()> onRequest);
  ReloadApplier(ReloadApplier const&) = delete;
  ReloadApplier& operator=(ReloadApplier const&) = delete;

 private:
  void handleReloadTime();
  void run();
  void handleEnd(Kel::String const& failure);

  Kel::Ptr<System::Reload::Config const> config_;
  CommandLine commandLine_;
  std::function<void()> onRequest_;
  std::unique_ptr<Command> command_;
  Kel::Alarm next_{[this] { run(); }};
  Kel::Reactor reactor_;
};

}  // namespace Linux
