#include "programs/zerotouchd/Children.h"

#include <unistd.h>

#include <csignal>
#include <sstream>

#include "programs/zerotouchd/Events.h"

namespace {

constexpr int patience = 1;            // seconds that the host waits for the end of what it has killed
constexpr int secondsToEnd = 1;        // that a script has which was asked to end, when the host stops
constexpr Kel::Seconds nextTry = 0.1;  // for a group whose members have not ended yet

}  // namespace

Children::Children(Kel::String const& runDirectory, std::string parent)
    : memory_(runDirectory + "/children", Kel::BootMemory::inNamespace("pid")), parent_(std::move(parent)) {
  endLeftovers();
  Kel::childRunnerIs(this);
}

Children::~Children() {
  Kel::childRunnerIs(nullptr);
  for (auto& contained : contained_) {
    contained.status = {};
    bool const runs = contained.child && !contained.child->ended() && contained.child->pid() > 1;
    if (runs && contained.signalled) Kel::endsWithin(contained.child->pid(), secondsToEnd);
    contained.group.end(patience);
  }
}

Kel::Ptr<Kel::ChildSiginfo> Children::run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
  auto child = runner_.run(argv, stdinFd, stdoutFd, stderrFd);
  std::erase_if(running_, [](auto const& other) { return startTime(other.first) != other.second; });
  if (auto const start = startTime(child->pid()); start != 0) running_[child->pid()] = start;
  write();
  return child;
}

Kel::Ptr<Kel::ChildSiginfo> Children::runContained(char const* const* argv, int stdinFd, int stdoutFd,
                                                   int stderrFd) {
  for (auto& other : contained_) endContained(other);
  Contained& contained = contained_.emplace_back(ProcessGroup::make(parent_), stdoutFd, stderrFd);
  write();  // a host that is killed right after the start has written down the group already
  int const out = contained.out.writeEnd();
  int const err = contained.err.writeEnd();
  int const group = contained.group.openFolder();
  contained.child =
      runner_.runApart(argv, stdinFd, out >= 0 ? out : stdoutFd, err >= 0 ? err : stderrFd, group);
  if (group >= 0) close(group);
  contained.out.closeWriteEnd();
  contained.err.closeWriteEnd();
  contained.group.leaderIs(contained.child->pid());
  // This is the record's first reactor, so that whoever reads the output at the end of the child finds all of
  // it.
  contained.status =
      Kel::Reactor(contained.child, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, [this, &contained] {
        if (contained.child->ended()) handleEnd(contained);
      });
  write();
  return contained.child;
}

void Children::handleEnd(Contained& contained) {
  contained.out.drain();
  contained.err.drain();
  bool const succeeded = contained.child->statusCode() == Kel::ChildSiginfo::exited &&
                         contained.child->exitStatus() == 0 && !contained.signalled;
  if (!succeeded) endContained(contained);
}

// The members are killed here; the record goes on a later pass, once all of them have ended.
void Children::endContained(Contained& contained) {
  contained.over = true;
  contained.group.end();
  endGroups_.in(0);
}

void Children::endGroups() {
  auto const ended = std::erase_if(contained_, [](Contained const& contained) {
    bool const runs = contained.child && !contained.child->ended();
    return contained.over && contained.group.end() && !runs;
  });
  if (ended > 0) write();
  for (auto const& contained : contained_) {
    if (contained.over) endGroups_.in(nextTry);
  }
}

int Children::runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) {
  return runner_.runAndWait(path, stdinFd, stdoutFd, stderrFd, timeout);
}

int Children::kill(pid_t pid, int signal) {
  for (auto& contained : contained_) {
    if (!contained.child || contained.child->pid() != pid || contained.child->ended()) continue;
    contained.signalled = true;
    if (signal == SIGKILL) endContained(contained);
  }
  return runner_.kill(pid, signal);
}

void Children::reap(pid_t pid) { runner_.reap(pid); }

// The lines of the file: the process id and the time of the start of a child, and for a contained one its
// group.
void Children::endLeftovers() const {
  std::istringstream file(memory_.contents().value_or(""));
  for (Kel::String line; std::getline(file, line);) {
    std::istringstream words(line);
    pid_t pid = 0;
    std::uint64_t start = 0;
    Kel::String group;
    words >> pid >> start >> group;
    bool const lives = pid > 1 && start != 0 && startTime(pid) == start;
    if (lives) say("ending process " + std::to_string(pid) + ", which an earlier host has left behind");
    if (group.empty()) {
      if (lives) ::kill(pid, SIGKILL);
    } else if (auto const contained = ProcessGroup::of(line)) {
      contained->end(patience);
    }
  }
}

// When this fails, the next host does not end what this one leaves behind, and nothing else is lost.
void Children::write() const {
  Kel::String text;
  for (auto const& [pid, start] : running_) text += std::to_string(pid) + " " + std::to_string(start) + "\n";
  for (auto const& contained : contained_) text += contained.group.asText() + "\n";
  memory_.keep(text);
}
