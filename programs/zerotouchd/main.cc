// zerotouchd, the agent host: its options, and what it does when it is not to run as a host.
#include <CLI/CLI.hpp>
#include <iostream>

#include "platform/kel/Format.h"
#include "platform/kel/Trace.h"
#include "platform/linux/system/LogHostApplier.h"
#include "platform/statebase/InitialValues.h"
#include "programs/zerotouchd/Check.h"
#include "programs/zerotouchd/DhcpClient.h"
#include "programs/zerotouchd/Host.h"
#include "programs/zerotouchd/TrustCheck.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitBadInput = 2;
constexpr char const* defaultConfigPath = "/etc/zerotouch/platform.toml";

struct Options {
  std::string config = defaultConfigPath;
  std::string initialValues;
  std::string trace;
  bool openTree = false;
  bool check = false;
  bool settle = false;
};

HostConfig configOf(Options const& options, TomlFiles* files = nullptr) {
  return readHostConfig(options.config, options.config != defaultConfigPath, files);
}

// Says what the host would do, and what is wrong: with the files, or with them on this system.
int check(Options const& options) try {
  TomlFiles files;
  HostConfig const config = configOf(options, &files);
  checkDhcpClient(config);
  loadAgent(config.library);
  auto [text, mistakes] = forecast(config, files);
  for (auto const& file : files.files) std::cout << Kel::printable(file) << ": ok\n";
  if (files.files.empty()) std::cout << options.config << ": no such file, so the built-in values count\n";
  std::cout << "\n" << text << std::flush;
  auto const untrusted = checkTrust(*config.policy.entity->authenticity(), std::cout);
  mistakes.insert(mistakes.end(), untrusted.begin(), untrusted.end());
  for (auto const& mistake : mistakes) say(mistake, errorPriority);
  return mistakes.empty() ? 0 : exitFailed;
} catch (BadInput const& error) {
  say(error.what(), errorPriority);
  return exitBadInput;
} catch (std::runtime_error const& error) {
  say(error.what(), errorPriority);
  return exitFailed;
}

int settle(Options const& options) {
  HostConfig const config = configOf(options);
  Kel::logSinkIs(Kel::logToSystem);
  say(stringValue(provisioningAtBoot(config.runDirectory)));
  if (config.linuxAdapter) Linux::LogHostApplier::removeLeftBehind(config.system.logDropIn);
  return 0;
}

// What is wrong with the options or the configuration is found here, before anything of the system is
// touched.
int run(Options const& options) {
  if (auto const error = Kel::traceIs(options.trace); !error.empty()) throw BadInput("--trace: " + error);
  HostConfig const config = configOf(options);
  checkDhcpClient(config);
  if (auto const missing = missingDhcpClient(config); !missing.empty()) say(missing, errorPriority);
  return Host(config, options.initialValues, options.openTree).run();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("The zero-touch provisioning agent's host: runs the agent and serves its state.",
               "zerotouchd");
  app.add_option("--config", options.config, "What this system is and how the host runs")
      ->capture_default_str();
  app.add_option(
      "--initial-values", options.initialValues,
      "A JSON file with values for entities of the state tree, for tests and for trying things out");
  app.add_option("--trace", options.trace, "Trace levels, as in ZeroTouchSm=9 or *=3");
  app.add_flag(
      "--open-tree", options.openTree,
      "Let root write every entity from outside, for tests and for trying things out; never on a switch");
  app.add_flag("--check", options.check,
               "Only say what the configuration would do here: exit code 0 when it is right, 1 when it does "
               "not fit to this system, 2 when it is wrong");
  app.add_flag("--settle", options.settle,
               "Only take back what the last boot has left behind: DISABLE=NextReload, and the log servers");
  app.set_version_flag("--version", "zerotouchd " ZEROTOUCH_VERSION, "Print the version and exit");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? 0 : exitBadInput;
  }
  if (options.check) return check(options);
  try {
    if (options.settle) return settle(options);
    return run(options);
  } catch (BadInput const& error) {
    say(error.what(), errorPriority);
    return exitBadInput;
  } catch (Statebase::InitialValuesError const& error) {
    say(error.what(), errorPriority);
    return exitBadInput;
  } catch (std::exception const& error) {
    say(error.what(), errorPriority);
    return exitFailed;
  }
}
