#include "programs/zerotouchd/LastWords.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <map>
#include <sstream>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "programs/zerotouchd/Events.h"

namespace {

constexpr char const* stopped = "was stopped";
constexpr std::array crashes{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS};

int file = -1;
std::map<int, struct sigaction> before;  // what each signal would have done

void write(std::string_view text) {
  if (file >= 0) [[maybe_unused]]
    auto const written = ::write(file, text.data(), text.size());
}

// Calls nothing that a signal handler may not call.
void onCrash(int signal, siginfo_t* info, void*) {
  write("crashed (SIG");
  char const* const name = sigabbrev_np(signal);
  write(name != nullptr ? name : "?");
  write(")\n");
  sigaction(signal, &before.find(signal)->second, nullptr);
  // A fault of the processor comes again when the handler returns.
  bool const comesAgain = info->si_code > 0;
  if (!comesAgain) raise(signal);
}

}  // namespace

LastWords::LastWords(Kel::String const& runDirectory)
    : memory_(runDirectory + "/last-words", Kel::BootMemory::inNamespace("uts")) {
  if (auto const left = memory_.contents()) {
    std::istringstream lines(*left);
    lines >> starts_;
    starts_ = std::min(starts_, 1'000'000U) + 1;
    std::getline(lines >> std::ws, lastEnd_);
    lastEnd_ = lastEnd_.empty() ? "was killed, by somebody or since memory ran out"
                                : Kel::printable(lastEnd_, Kel::longestShown);
  }
  if (Kel::String const failure = memory_.keep(std::to_string(starts_) + "\n"); !failure.empty())
    ::say(failure, warningPriority);
  file = open(memory_.path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  Kel::assertionRecordIs(file);
  for (int const signal : crashes) {
    struct sigaction action {};
    action.sa_sigaction = onCrash;
    action.sa_flags = SA_SIGINFO;
    sigaction(signal, &action, &before[signal]);
  }
}

LastWords::~LastWords() {
  for (auto const& [signal, action] : before) sigaction(signal, &action, nullptr);
  Kel::assertionRecordIs(-1);
  close(std::exchange(file, -1));
}

bool LastWords::lastCrashed() const { return !lastEnd_.empty() && !lastEnd_.starts_with(stopped); }

void LastWords::say(Kel::String const& how) const { write(how + "\n"); }
