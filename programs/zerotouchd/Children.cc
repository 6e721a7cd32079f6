#include "programs/zerotouchd/Children.h"

#include <csignal>
#include <fstream>
#include <sstream>

#include "programs/zerotouchd/Events.h"

namespace {

// When a process was started, in ticks since the boot; 0 when there is none with that id, or only a zombie.
std::uint64_t startTime(pid_t pid) {
  Kel::String line;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  if (!std::getline(file, line)) return 0;
  // The name may hold anything and ends with the last ")". The state follows, and eighteen numbers that do
  // not matter.
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  char state = 0;
  fields >> state;
  Kel::String skipped;
  for (int i = 0; i < 18; ++i) fields >> skipped;
  std::uint64_t start = 0;
  fields >> start;
  return state == 'Z' || state == 'X' ? 0 : start;
}

}  // namespace

Children::Children(Kel::String const& runDirectory)
    : memory_(runDirectory + "/children", Kel::BootMemory::inNamespace("pid")) {
  endLeftovers();
  Kel::childRunnerIs(this);
}

Children::~Children() { Kel::childRunnerIs(nullptr); }

Kel::Ptr<Kel::ChildSiginfo> Children::run(char const* const* argv, int stdinFd, int stdoutFd, int stderrFd) {
  auto child = runner_.run(argv, stdinFd, stdoutFd, stderrFd);
  std::erase_if(running_, [](auto const& other) { return startTime(other.first) != other.second; });
  if (auto const start = startTime(child->pid()); start != 0) running_[child->pid()] = start;
  write();
  return child;
}

int Children::runAndWait(char const* path, int stdinFd, int stdoutFd, int stderrFd, int timeout) {
  return runner_.runAndWait(path, stdinFd, stdoutFd, stderrFd, timeout);
}

int Children::kill(pid_t pid, int signal) { return runner_.kill(pid, signal); }

void Children::reap(pid_t pid) { runner_.reap(pid); }

void Children::endLeftovers() const {
  std::istringstream file(memory_.contents().value_or(""));
  pid_t pid = 0;
  std::uint64_t start = 0;
  while (file >> pid >> start) {
    if (pid <= 1 || start == 0 || startTime(pid) != start) continue;
    say("ending process " + std::to_string(pid) + ", which an earlier host has left behind");
    ::kill(pid, SIGKILL);
  }
}

// When this fails, the next host does not end what this one leaves behind, and nothing else is lost.
void Children::write() const {
  Kel::String text;
  for (auto const& [pid, start] : running_) text += std::to_string(pid) + " " + std::to_string(start) + "\n";
  memory_.keep(text);
}
