// A command that an operator configured, at work: nobody waits for it, and it is killed when it takes too
// long.
#pragma once

#include <functional>
#include <vector>

#include "platform/kel/Child.h"
#include "platform/linux/Timer.h"

namespace Linux {

// The program, found in PATH unless it has a "/", and its arguments.
using CommandLine = std::vector<Kel::String>;

// For messages: the words with blanks between them.
Kel::String stringValue(CommandLine const& commandLine);

class Command {
 public:
  // `failure` is "" or what was wrong, as "exit status 1". Called once, on a later pass of the loop, and may
  // delete the command.
  using Done = std::function<void(Kel::String const& failure)>;

  // `variable` ("NAME=value") is added to the environment of the command, unless it is empty. A command that
  // is deleted runs on; nobody is told of its end.
  Command(CommandLine const& commandLine, Kel::String const& variable, Kel::Seconds limit, Done done);
  ~Command();
  Command(Command const&) = delete;
  Command& operator=(Command const&) = delete;

 private:
  class EndReactor;

  void handleEnd();
  void handleLimit();

  Kel::Seconds limit_;
  Done done_;
  bool tooLong_ = false;
  Kel::Ptr<Kel::ChildSiginfo> child_;
  Kel::Ptr<EndReactor> endReactor_;
  Timer timer_;
};

}  // namespace Linux
