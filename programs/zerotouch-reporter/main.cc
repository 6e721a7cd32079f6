// zerotouch-reporter: posts the events of the agent to a collector.
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <filesystem>
#include <iostream>

#include "platform/kel/Loop.h"
#include "programs/zerotouch-reporter/Reporter.h"
#include "programs/zerotouchd/config/HostConfig.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitBadInput = 2;
constexpr char const* defaultConfigPath = "/etc/zerotouch/platform.toml";

ReporterSettings settingsOf(HostConfig const& config) {
  auto const& trust = *config.policy.entity->authenticity();
  // A folder of its own: zerotouchd takes the run directory for the sign that it has run in this boot.
  Kel::String const folder = config.runDirectory + "-reporter";
  return {.collector = {.url = config.reporter.url,
                        .proxyFromEnvironment = config.proxyFromEnvironment,
                        .ca = trust.httpsCa(),
                        .certificate = trust.httpsCertificate(),
                        .key = trust.httpsKey()},
          .socketPath = config.socketPath,
          .spoolFolder = config.reporter.spool,
          .spoolBytes = config.reporter.spoolSize,
          .runFolder = folder};
}

int run(std::string const& path) try {
  HostConfig const config = readHostConfig(path, path != defaultConfigPath);
  if (config.reporter.url.empty()) {
    // The service starts at every boot, and has nothing to tell its journal then.
    if (isatty(STDERR_FILENO) != 0)
      std::cerr << "zerotouch-reporter: " << path << " names no collector ([reporter] url)" << std::endl;
    return 0;
  }
  ReporterSettings const settings = settingsOf(config);
  std::filesystem::create_directories(settings.runFolder.c_str());
  curl_global_init(CURL_GLOBAL_DEFAULT);
  std::signal(SIGPIPE, SIG_IGN);
  Reporter reporter(settings);
  for (int const signal : {SIGTERM, SIGINT})
    Kel::Loop::instance().onSignal(signal, [&reporter] { reporter.finish(); });
  return Kel::Loop::instance().run();
} catch (BadInput const& error) {
  std::cerr << "zerotouch-reporter: " << error.what() << std::endl;
  return exitBadInput;
} catch (std::exception const& error) {
  std::cerr << "zerotouch-reporter: " << error.what() << std::endl;
  return exitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  std::string config = defaultConfigPath;
  CLI::App app("Posts what happens on this switch to the collector that platform.toml names.",
               "zerotouch-reporter");
  app.add_option("--config", config, "What this system is, and where the collector is")
      ->capture_default_str();
  app.set_version_flag("--version", std::string("zerotouch-reporter ") + ZEROTOUCH_VERSION);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? 0 : exitBadInput;
  }
  return run(config);
}
