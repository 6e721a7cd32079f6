#include "platform/linux/Command.h"

#include <csignal>

#include "platform/kel/Format.h"

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

class Command::EndReactor : public Kel::ChildSiginfo::NotifieeConst {
 public:
  EndReactor(Kel::Ptr<Kel::ChildSiginfo> const& child, Command& command)
      : NotifieeConst(child), command_(command) {}
  void onStatusCode() override { command_.handleEnd(); }

 private:
  Command& command_;
};

Command::Command(CommandLine const& commandLine, Kel::String const& variable, Kel::Seconds limit, Done done)
    : limit_(limit), done_(std::move(done)), timer_([this] { handleLimit(); }) {
  std::vector<char const*> argv{env, "--"};
  if (!variable.empty()) argv.push_back(variable.c_str());
  for (auto const& word : commandLine) argv.push_back(word.c_str());
  argv.push_back(nullptr);
  child_ = Kel::run(argv.data(), -1, -1, -1, -1);
  endReactor_ = Kel::makePtr<EndReactor>(child_, *this);
  timer_.in(limit_);
}

Command::~Command() = default;

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
  timer_.cancel();
  Done const done = std::move(done_);
  done(failure);
}

}  // namespace Linux
