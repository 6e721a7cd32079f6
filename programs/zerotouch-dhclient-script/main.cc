// zerotouch-dhclient-script, the hook that the DHCP client runs: tells the state tree what happened on a
// port. It configures nothing; that is for who follows the state tree.
#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include "platform/statebase/Client.h"
#include "programs/zerotouch-dhclient-script/Dhcpcd.h"
#include "programs/zerotouch-dhclient-script/Message.h"

namespace {

constexpr char const* name = "zerotouch-dhclient-script";
constexpr char const* defaultSocket = "/run/zerotouch/statebase.sock";

// Any exit code but 0 makes the client decline an answer. After TIMEOUT it offers an old lease, which nobody
// has confirmed: it is to let go of that.
int exitCode = 0;

// The program ends after this many seconds, and sooner when the host waits for it.
constexpr unsigned deadline = 5;
constexpr unsigned deadlineOfHost = 1;
// How long connecting and sending may each take, in seconds, when the host is too busy to answer.
constexpr double patience = 4;
constexpr double patienceOfHost = 0.1;
// A host that cannot be reached, for instance since it is being started again, is tried this often, which
// leaves enough of the deadline to say that it was in vain.
constexpr int attempts = 42;
constexpr int pauseBetweenAttempts = 100;  // milliseconds

// The program may have been stuck in writing to its standard error, so that is tested first.
void onDeadline(int) {
  constexpr std::string_view text = "zerotouch-dhclient-script: gave up, it took too long\n";
  pollfd output{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  if (poll(&output, 1, 0) == 1) {
    [[maybe_unused]] ssize_t const written = write(STDERR_FILENO, text.data(), text.size());
  }
  _exit(exitCode);
}

// The client may have been started with the signal blocked.
void endWithin(unsigned seconds) {
  std::signal(SIGALRM, onDeadline);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGALRM);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  alarm(seconds);
}

void warn(std::string const& text) {
  std::cerr << name << ": " << text << std::endl;
  syslog(LOG_DAEMON | LOG_WARNING, "%s", text.c_str());
}

// Returns why the host was not told; "" when it was.
std::string trySend(Hook::Message const& message, std::string const& socket, double seconds) try {
  Statebase::Client(socket, seconds).notify(message.method, message.params);
  return "";
} catch (Statebase::ConnectionError const& error) {
  return error.what();
}

void send(Hook::Message const& message, std::string_view socket, bool hostWaits) {
  std::string const path(socket.empty() ? defaultSocket : socket);
  std::string reason = trySend(message, path, hostWaits ? patienceOfHost : patience);
  // A host that waits is the one that has the socket, so nothing changes meanwhile.
  for (int i = 1; i < attempts && !reason.empty() && !hostWaits; ++i) {
    poll(nullptr, 0, pauseBetweenAttempts);
    reason = trySend(message, path, patience);
  }
  if (!reason.empty()) warn("the state tree was not told: " + reason);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << name << " " ZEROTOUCH_VERSION << std::endl;
    return 0;
  }
  Hook::Environment environment = Hook::environmentOf(environ);
  if (Hook::isOfDhcpcd(environment)) environment = Hook::fromDhcpcd(environment);
  bool const hostWaits = Hook::hostWaits(environment);
  exitCode = Hook::variable(environment, "reason") == "TIMEOUT" ? 1 : 0;
  endWithin(hostWaits ? deadlineOfHost : deadline);
  std::signal(SIGPIPE, SIG_IGN);
  openlog(name, 0, LOG_DAEMON);

  // A port that has its answer by now has not failed.
  Hook::LeaseLock const lock(environment);
  if (lock.isOverdue(environment)) return exitCode;
  // The lease is written down before the message is sent, since the message may make the host stop the
  // client.
  std::string const leaseError = Hook::keepLease(environment);
  Hook::Complaints complaints;
  auto message = Hook::messageFor(environment, complaints);
  // The message is sent before the warnings are written, since writing them can take long.
  if (message) send(*message, Hook::variable(environment, "STATEBASESOCKNAME"), hostWaits);
  if (!leaseError.empty()) warn(leaseError);
  for (auto const& line : complaints.lines()) warn(line);
  return exitCode;
}
