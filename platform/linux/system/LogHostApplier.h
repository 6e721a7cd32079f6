// Lets rsyslog send the log to the configured servers: a drop-in of our own, and a command that makes rsyslog
// read it.
//
// Only the servers of the default VRF are used. The drop-in is known by its first line, so that one that was
// left behind is found and removed.
#pragma once

#include <memory>

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/system/Commands.h"

namespace Linux {

class LogHostApplier {
 public:
  LogHostApplier(Entities const& entities, Kel::String path, CommandLine reloadCommand);
  LogHostApplier(LogHostApplier const&) = delete;
  LogHostApplier& operator=(LogHostApplier const&) = delete;

  // Removes a drop-in that an earlier boot has left behind, for a rsyslog that does not run yet.
  static void removeLeftBehind(Kel::String const& path);

  // Removes the drop-in and starts the command; false when there was none of ours.
  bool undo();
  // The same, and what is configured counts no more.
  void stop();
  // Whether the command runs, or is to run again.
  bool busy() const { return command_ != nullptr; }

 private:
  void apply();
  Kel::String contents();
  bool replace(std::optional<Kel::String> const& contents);
  void reload();
  void handleReloaded(Kel::String const& failure);

  Kel::Ptr<LogMgr::LogConfig const> config_;
  Kel::String path_;
  CommandLine reloadCommand_;
  Dropped dropped_;
  Kel::String failure_;  // what was warned of last
  std::unique_ptr<Command> command_;
  bool again_ = false;  // the file has changed since the command was started
  Kel::Alarm pass_{[this] { apply(); }};
  bool stopped_ = false;
  Kel::EntryReactors<L3::VrfName> vrfs_;
};

}  // namespace Linux
