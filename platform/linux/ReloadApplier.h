// Carries out a request to reload: runs the configured command, again and again until it has succeeded.
#pragma once

#include <memory>

#include "platform/linux/Command.h"
#include "platform/linux/Entities.h"

namespace Linux {

class ReloadApplier {
 public:
  // `onRequest` is called before the command is run for the first time.
  ReloadApplier(Entities const& entities, CommandLine command, std::function<void()> onRequest);
  ~ReloadApplier();
  ReloadApplier(ReloadApplier const&) = delete;
  ReloadApplier& operator=(ReloadApplier const&) = delete;

 private:
  class Reactor;

  void handleReloadTime();
  void run();
  void handleEnd(Kel::String const& failure);

  Kel::Ptr<System::Reload::Config const> config_;
  CommandLine commandLine_;
  std::function<void()> onRequest_;
  std::unique_ptr<Command> command_;
  Timer next_{[this] { run(); }};
  Kel::Ptr<Reactor> reactor_;
};

}  // namespace Linux
