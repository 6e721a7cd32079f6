// The command line of provisioning: shows and steers what the host does, over the state tree's socket.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string_view>

#include "programs/zerotouch/Failure.h"

namespace ZeroTouchCommand {

CLI::App* addVerb(CLI::App& program, std::string const& name, std::string const& does,
                  std::vector<std::string> const& examples) {
  CLI::App* const verb = program.add_subcommand(name, does);
  std::string text = "Examples:\n";
  for (auto const& example : examples) text += "  " + example + "\n";
  verb->group("Verbs");
  verb->footer(text + "\nTakes --json and --socket too.");
  return verb;
}

}  // namespace ZeroTouchCommand

namespace {

using namespace ZeroTouchCommand;

constexpr char const* more =
    "Exit codes: 0, 1 for what is refused or fails, 2 for wrong usage, 3 when no\n"
    "host answers.\n"
    "\n"
    "Examples:\n"
    "  zerotouch status\n"
    "  zerotouch events --follow\n"
    "  zerotouch explain ZTP_RETRY\n"
    "  zerotouch VERB --help";

void addEverything(CLI::App& program, Context& context) {
  program.name("zerotouch");
  program.get_formatter()->column_width(26);
  program.get_formatter()->label("SUBCOMMAND", "VERB");
  program.footer(more);
  program.set_version_flag("--version", "zerotouch " ZEROTOUCH_VERSION, "Print the version and exit");
  program.add_option("--socket", context.socketPath, "The host's socket")
      ->type_name("PATH")
      ->envname("STATEBASESOCKNAME");
  program.add_flag("--json", context.json, "Output for programs");
  program.require_subcommand(1);
  program.fallthrough();
  addStatus(program, context);
  addWatch(program, context);
  addPorts(program, context);
  addEvents(program, context);
  addExplain(program, context);
  addReport(program, context);
  addControls(program, context);
  addTreeVerbs(program, context);
}

// Else the socket would become standard output, and the host be sent what is meant for people.
void openStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) < 0)
      open("/dev/null", stream == STDIN_FILENO ? O_WRONLY | O_CLOEXEC : O_RDONLY | O_CLOEXEC);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);
  Context context;
  // Known before the words are parsed: they may be wrong.
  context.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
  CLI::App program("Shows and steers zero-touch provisioning.");
  addEverything(program, context);
  try {
    program.parse(argc, argv);
    return finishOutput(context);
  } catch (...) {
    return reportFailure(program, context);
  }
}
