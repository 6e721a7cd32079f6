#include "platform/linux/system/Commands.h"

#include <csignal>

#include "platform/kel/Format.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

// env(1) finds the program in PATH, and ends with 126 or 127 when it cannot run it.
constexpr char env[] = "/usr/bin/env";

}  // namespace

Kel::String stringValue(CommandLine const& commandLine) {
  Kel::String result;
  for (auto const& word : commandLine) result += (result.empty() ? "" : " ") + word;
  return result;
}

Command::Command(CommandLine const& commandLine, Kel::String const& variable, Kel::Seconds limit, Done done)
    : limit_(limit), done_(std::move(done)), timeOut_([this] { handleLimit(); }) {
  std::vector<char const*> argv{env, "--"};
  if (!variable.empty()) argv.push_back(variable.c_str());
  for (auto const& word : commandLine) argv.push_back(word.c_str());
  argv.push_back(nullptr);
  child_ = Kel::run(argv.data(), -1, -1, -1, -1);
  end_ = Kel::Reactor(child_, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, [this] { handleEnd(); });
  timeOut_.in(limit_);
}

void Command::handleLimit() {
  tooLong_ = true;
  Kel::kill(child_->pid(), SIGKILL);
}

void Command::handleEnd() {
  if (!child_->ended()) return;
  Kel::String failure;
  if (tooLong_) {
    failure = Kel::format("not done within %d s", limit_);
  } else if (child_->statusCode() == Kel::ChildSiginfo::killed) {
    failure = Kel::format("killed by signal %d", child_->signal());
  } else if (child_->exitStatus() != 0) {
    failure = Kel::format("exit status %d", child_->exitStatus());
  }
  timeOut_.cancel();
  Done const done = std::move(done_);
  done(failure);
}

namespace {
constexpr Kel::Seconds limit = 60;
constexpr Kel::Seconds retryDelay = 60;
}  // namespace

ReloadApplier::ReloadApplier(Entities const& entities, CommandLine command, std::function<void()> onRequest)
    : config_(entities.reloadConfig),
      commandLine_(std::move(command)),
      onRequest_(std::move(onRequest)),
      reactor_(config_, &System::Reload::Config::NotifieeConst::onReloadTime,
               [this] { handleReloadTime(); }) {}

// A request that comes while an earlier one is being carried out is met by it.
void ReloadApplier::handleReloadTime() {
  if (config_->reloadTime() <= 0) {
    next_.cancel();
    return;
  }
  onRequest_();
  if (!command_) next_.in(0);
}

void ReloadApplier::run() {
  command_ = std::make_unique<Command>(commandLine_, "ZEROTOUCH_RELOAD_REASON=" + config_->reason(), limit,
                                       [this](Kel::String const& failure) { handleEnd(failure); });
}

void ReloadApplier::handleEnd(Kel::String const& failure) {
  command_.reset();
  if (failure.empty() || config_->reloadTime() <= 0) return;
  reloadFailed.log(stringValue(commandLine_), failure, retryDelay);
  next_.in(retryDelay);
}

}  // namespace Linux
