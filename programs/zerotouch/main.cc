// The command line of provisioning: shows and steers what the host does, over the state tree's socket.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace {

using namespace ZeroTouchCommand;

enum ExitCode { ok = 0, failed = 1, wrongUsage = 2, notRunning = 3 };

ExitCode fail(Context const& context, ExitCode code, std::string const& message, Kel::Value const& error) {
  std::string const text =
      context.json ? Statebase::dumpJson(Kel::ValueMap{{"error", error}}) : "zerotouch: " + message;
  std::fprintf(stderr, "%s\n", text.c_str());
  return code;
}

ExitCode fail(Context const& context, ExitCode code, std::string const& message) {
  return fail(context, code, message, Kel::ValueMap{{"message", message}});
}

// Whoever reads our output may stop reading it: no reason for a message.
ExitCode finish(Context const& context) {
  bool const written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (written || errno == EPIPE) return ok;
  return fail(context, failed, std::string("standard output: ") + std::strerror(errno));
}

int usage(CLI::App const& program, CLI::ParseError const& error) {
  return program.exit(error) == 0 ? ok : wrongUsage;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  Context context;
  CLI::App program("Shows and steers zero-touch provisioning.");
  program.name("zerotouch");
  program.add_option("--socket", context.socketPath, "The host's socket")
      ->envname("STATEBASESOCKNAME")
      ->capture_default_str();
  program.add_flag("--json", context.json, "Output for programs");
  program.require_subcommand(1);
  program.fallthrough();
  addStatus(program, context);
  addWatch(program, context);
  addPorts(program, context);
  addEvents(program, context);
  addControls(program, context);
  addTreeVerbs(program, context);
  try {
    program.parse(argc, argv);
    return finish(context);
  } catch (CLI::RequiredError const& error) {
    auto const extras = program.remaining();
    if (extras.empty()) return usage(program, error);
    return fail(context, wrongUsage,
                "there is no verb '" + extras.front() + "'; zerotouch --help lists them");
  } catch (CLI::ParseError const& error) {
    return usage(program, error);
  } catch (Statebase::ConnectionError const& error) {
    return fail(context, notRunning, std::string("cannot reach the host: ") + error.what());
  } catch (Statebase::CallError const& error) {
    return fail(context, failed, error.what(), error.error());
  } catch (Refused const& refused) {
    return fail(context, failed, refused.what());
  }
}
