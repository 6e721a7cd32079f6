// fleet_simulation: boots many switches under simulated time and prints what came of it, for scripts/fleet.
// Arguments: NAME=VALUE, from the table below.
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "fleet/Simulation.h"
#include "platform/kel/ActivityManager.h"
#include "zerotouch/agent/Policy.h"

namespace {

// The agent's files have fixed names in these folders.
bool makeFoldersPrivate() {
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return false;
  for (char const* const folder : {"/run", "/tmp"}) {
    if (mount("tmpfs", folder, "tmpfs", 0, "size=16m") != 0) return false;
  }
  setenv("FILESYSTEM_ROOT", "/tmp/root", 1);
  std::filesystem::create_directories("/tmp/root/flash");
  return true;
}

using Take = std::function<void(double)>;
std::map<std::string, Take> arguments(Fleet::Setting& setting, ZeroTouch::Policy& policy) {
  auto const pacing = policy.pacing();
  auto const download = policy.download();
  auto const dhcp = policy.dhcp();
  return {
      {"switches", [&](double v) { setting.switches = static_cast<std::uint32_t>(v); }},
      {"leases_per_second", [&](double v) { setting.leasesPerSecond = v; }},
      {"looks", [&](double v) { setting.looks = static_cast<std::size_t>(v); }},
      {"bytes_per_second", [&](double v) { setting.bytesPerSecond = v; }},
      {"file_bytes", [&](double v) { setting.fileBytes = v; }},
      {"patience", [&](double v) { setting.patience = v; }},
      {"seed", [&](double v) { setting.seed = static_cast<std::uint64_t>(v); }},
      {"pacing.start_jitter", [=](double v) { pacing->startJitterIs(v); }},
      {"pacing.retry_jitter", [=](double v) { pacing->retryJitterIs(v); }},
      {"pacing.retry_backoff_max", [=](double v) { pacing->retryBackoffMaxIs(v); }},
      {"pacing.retry_after", [=](double v) { pacing->retryAfterIs(v != 0); }},
      {"download.stall_limit", [=](double v) { download->stallLimitIs(v); }},
      {"download.resume", [=](double v) { download->resumeIs(v != 0); }},
      {"dhcp.client_timing",
       [=](double v) {
         dhcp->clientTimingIs(v != 0 ? ZeroTouch::ClientTiming::rfc : ZeroTouch::ClientTiming::brisk);
       }},
  };
}

bool take(std::map<std::string, Take> const& known, std::string const& argument) {
  auto const equals = argument.find('=');
  auto const found = known.find(argument.substr(0, equals));
  if (found == known.end() || equals == std::string::npos) return false;
  char* end = nullptr;
  double const value = std::strtod(argument.c_str() + equals + 1, &end);
  if (*end != '\0' || end == argument.c_str() + equals + 1 || !(value >= 0)) return false;
  found->second(value);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Fleet::Setting setting;
  auto const policy = Kel::makePtr<ZeroTouch::Policy>();
  auto const known = arguments(setting, *policy);
  for (int i = 1; i < argc; ++i) {
    if (take(known, argv[i])) continue;
    std::fprintf(stderr, "%s: this cannot be simulated\n", argv[i]);
    return 2;
  }
  if (setting.switches == 0 || setting.bytesPerSecond <= 0 || setting.patience <= 0) {
    std::fprintf(stderr, "switches, bytes_per_second and patience must be more than 0\n");
    return 2;
  }
  if (!makeFoldersPrivate()) {
    std::fprintf(stderr, "no folders of its own: %s\n", std::strerror(errno));
    return 1;
  }
  Kel::activityManager()->localEntityIs(ZeroTouch::policyName, policy);
  Fleet::Result const result = Fleet::simulate(setting);
  nlohmann::json const shown = {
      {"switches", setting.switches},
      {"provisioned", result.provisioned},
      {"queries", result.queries},
      {"messages", result.messages},
      {"lost_answers", result.lostAnswers},
      {"downloads", result.downloads},
      {"given_up", result.givenUp},
      {"bytes_sent", result.bytesSent},
      {"downloads_at_once", result.downloadsAtOnce},
      {"replays", result.replays},
  };
  std::printf("%s\n", shown.dump().c_str());
  return 0;
}
