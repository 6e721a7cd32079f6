#include "programs/zerotouch-dhclient/dhcpcd/Dhcpcd.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Process.h"
#include "programs/zerotouch-dhclient/Shim.h"
#include "programs/zerotouch-dhclient/dhcpcd/Configuration.h"
#include "programs/zerotouch-dhclient/dhcpcd/Release6.h"
#include "programs/zerotouch-dhclient/dhcpcd/Room.h"
#include "programs/zerotouch-dhclient/dhcpcd/Watcher.h"

namespace {

// The variables of the hook, besides those that dhcpcd sets.
std::vector<std::string> variables(Arguments const& asked) {
  auto result = asked.environment;
  result.insert(result.end(), {"ZEROTOUCH_LEASES=" + asked.leaseFile, "ZEROTOUCH_CLIENT=dhcpcd"});
  return result;
}

std::vector<std::string> report(Arguments const& asked, char const* reason, std::string const& device) {
  auto result = variables(asked);
  result.insert(result.end(), {std::string("reason=") + reason, "interface=" + device});
  return result;
}

std::vector<std::string> commandLine(std::string const& program, std::string const& config,
                                     Arguments const& asked) {
  std::vector<std::string> result = {program, "-B", "-M", "-q", asked.isV6 ? "-6" : "-4", "-f", config};
  // A stateless query is over once it has its answer.
  if (asked.isStateless) result.push_back("-1");
  for (auto const& variable : variables(asked)) result.insert(result.end(), {"-e", variable});
  result.insert(result.end(), asked.devices.begin(), asked.devices.end());
  return result;
}

std::string pathVariable() {
  char const* const path = std::getenv("PATH");
  return std::string("PATH=") + (path != nullptr ? path : "/usr/sbin:/usr/bin:/sbin:/bin");
}

// dhcpcd never says that nobody answers. The hook writes down who has an answer.
void reportUnanswered(Arguments const& asked) {
  auto const answered = devicesWithLease(asked.leaseFile);
  for (auto const& device : asked.devices) {
    if (std::ranges::find(answered, device) == answered.end())
      start(asked.script, report(asked, "FAIL", device));
  }
}

// Runs the hook, and waits for it.
void say(Arguments const& asked, char const* reason, std::string const& device) {
  if (asked.script.empty()) return;
  start(asked.script, report(asked, reason, device));
  while (wait(nullptr) > 0) {
  }
}

}  // namespace

int Dhcpcd::query(Arguments const& asked, pid_t) {
  std::string config = asked.config;
  if (!asked.leaseFile.empty()) {
    // It lives on for a moment when it is stopped; whoever comes next waits for that.
    waitForRelease(asked.leaseFile, true);
    // Before the leases of servers that are passed over are forgotten, they are handed back.
    if (!asked.isV6) config = configFor(config, asked.leaseFile, asked.devices);
    forgetLeases(asked.leaseFile, asked.isV6 ? identifierOf(asked.config) : std::string());
  }
  if (!asked.pidFile.empty()) writeFile(asked.pidFile, std::to_string(getpid()) + "\n");
  Wishes const wishes = wishesIn(readContents(config));
  for (auto const& name : wishes.unknown)
    std::fprintf(stderr, "zerotouch-dhclient: dhcpcd is not asked for '%s', whose code is not known\n",
                 name.c_str());
  std::string const own = asked.leaseFile + ".dhcpcd";
  unlink(own.c_str());  // whatever somebody may have put there
  if (!writeFile(own, configurationOf(wishes, asked))) return cannotExecute;
  return runInRoom([&] {
    return watchClient({.client = commandLine(path_, own, asked),
                        .environment = {pathVariable()},
                        .patience = asked.isV6 ? 0 : wishes.timeout,
                        .late = [&] { reportUnanswered(asked); }});
  });
}

int Dhcpcd::release(Arguments const& asked, pid_t) {
  for (int const signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_IGN);
  if (!asked.leaseFile.empty()) waitForRelease(asked.leaseFile, true);
  if (asked.isV6) {
    releaseAll6(asked.leaseFile);
  } else {
    releaseAll(asked.leaseFile, asked.config);
  }
  for (auto const& device : asked.devices) say(asked, asked.isV6 ? "RELEASE6" : "RELEASE", device);
  return 0;
}
