// The command line of provisioning: shows and steers what the host does, over the state tree's socket. This
// file knows the verbs with their options and their help, and says what is wrong with words that make no
// sense.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <functional>
#include <string_view>

#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/past/Memory.h"

namespace {

using namespace ZeroTouchCommand;
using Words = std::vector<std::string>;

constexpr char const* more =
    "Exit codes: 0, 1 for what is refused or fails, 2 for wrong usage, 3 when no\n"
    "host answers, 4 for who may not; status --wait has more (zerotouch(1)).\n"
    "\n"
    "Examples:\n"
    "  zerotouch status\n"
    "  zerotouch events --follow\n"
    "  zerotouch explain ZTP_RETRY\n"
    "  zerotouch VERB --help";

// What the verbs take, besides the context.
struct Arguments {
  std::string path, value, event, file, until, wait;
  Kel::Seconds timeout = Kel::never;
  PortChoice ports;
  EventChoice events;
  bool follow = false;
  bool sure = false;
  SigningWords signing;
  VerifyingWords verifying;
  RehearsalWords rehearsal;
};

class CommandLine {
 public:
  CommandLine() : program_("Shows and steers zero-touch provisioning.") {
    program_.name("zerotouch");
    program_.get_formatter()->column_width(26);
    program_.get_formatter()->label("SUBCOMMAND", "VERB");
    program_.footer(more);
    program_.set_version_flag("--version", "zerotouch " ZEROTOUCH_VERSION, "Print the version and exit");
    program_.add_option("--socket", context_.socketPath, "The host's socket")
        ->type_name("PATH")
        ->envname("STATEBASESOCKNAME");
    program_.add_flag("--json", context_.json, "Output for programs");
    program_.require_subcommand(1);
    program_.fallthrough();
    addViews();
    addControls();
    addTreeVerbs();
    addSigning();
    addRehearsal();
  }

  // Does what the words ask for, and returns the exit code.
  ExitCode run(int argc, char** argv) {
    // Errors in the words themselves are to be JSON too, so this one is looked for before they are parsed.
    context_.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
    try {
      program_.parse(argc, argv);
      return finishOutput(context_);
    } catch (CLI::Success const& help) {
      program_.exit(help);
      return finishOutput(context_);
    } catch (CLI::ParseError const& error) {
      return fail(context_, wrongUsage, wrongWords(error));
    } catch (...) {
      return reportFailure(context_);
    }
  }

 private:
  CLI::App* add(char const* name, char const* does, Words const& examples, std::function<void()> verb) {
    CLI::App* const app = program_.add_subcommand(name, does);
    std::string text = "Examples:\n";
    for (auto const& example : examples) text += "  " + example + "\n";
    app->group("Verbs");
    app->footer(text + "\nTakes --json and --socket too.");
    app->callback(std::move(verb));
    return app;
  }

  void addViews() {
    auto* const status = add("status", "Show where provisioning stands",
                             {"zerotouch status", "zerotouch status --json | jq -r .whatToDo",
                              "zerotouch status --wait --timeout 600", "zerotouch status --wait=failed"},
                             [this] { statusAsAskedFor(); });
    auto* const wait = status->add_option("--wait", given_.wait,
                                          "Once that has come about: provisioned (meant\n"
                                          "without a word), failed, or a state");
    wait->expected(0, 1)->option_text("[=OUTCOME]");
    status->add_option("--timeout", given_.timeout, "Wait no longer than that")
        ->check([](std::string const& text) {
          Kel::Seconds seconds = -1;
          auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
          bool const isTime = error == std::errc() && end == text.data() + text.size() && seconds >= 0;
          return std::string(isTime ? "" : "'" + text + "' is no number of seconds");
        })
        ->needs(wait)
        ->option_text("SECONDS");
    add("watch", "Show where provisioning stands, live",
        {"zerotouch watch", "zerotouch watch --until stateShutdown"},
        [this] { watch(context_, given_.until); })
        ->add_option("--until", given_.until, "End when this state is reached")
        ->type_name("STATE");
    CLI::App* const ports =
        add("ports", "Show the ports, and which of them take part",
            {"zerotouch ports --up", "zerotouch ports Ethernet1", "zerotouch ports --json | jq '.[].port'"},
            [this] { showPorts(context_, given_.ports); });
    ports->add_option("port", given_.ports.name, "Show everything about this port or device")->type_name("");
    ports->add_flag("--up", given_.ports.up, "Only those with a link");
    addEvents();
    add("attempts", "Show the attempts, and the time in each state",
        {"zerotouch attempts", "zerotouch attempts --json | jq '.states[0]'"},
        [this] { showAttempts(context_); });
    add("history", "Show the last runs, over reboots. Needs no host",
        {"zerotouch history", "zerotouch history --json | jq '.[-1].url'"},
        [this] { showHistory(context_); });
    add("explain", "Explain an event, and what to do about it",
        {"zerotouch explain", "zerotouch explain ZTP_CONFIG_DOWNLOAD_FAIL"},
        [this] { explain(context_, given_.event); })
        ->add_option("event", given_.event, "Its name in any case; without it, all are listed")
        ->type_name("");
    add("report", "Write a web page about the run",
        {"zerotouch report --output run.html", "zerotouch report --json | jq '.states[].reason'"},
        [this] { report(context_, given_.file); })
        ->add_option("-o,--output", given_.file, "The file to write, else standard output")
        ->type_name("FILE");
  }

  void statusAsAskedFor() {
    bool const waits = program_.get_subcommand("status")->count("--wait") > 0;
    bool const named = !given_.wait.empty() && given_.wait != "{}";  // which stands for no word
    waits ? waitForStatus(context_, named ? given_.wait : "provisioned", given_.timeout)
          : showStatusOrLastRun(context_);
  }

  void addEvents() {
    CLI::App* const events =
        add("events", "Show what has happened",
            {"zerotouch events -n 20", "zerotouch events --since 10min --severity warning",
             "zerotouch events --attempt 3", "zerotouch events --follow --json | jq .name"},
            [this] {
              given_.follow ? followEvents(context_, given_.events) : showEvents(context_, given_.events);
            });
    events->add_flag("-f,--follow", given_.follow, "Go on with what happens, until interrupted");
    events->add_option("-n,--last", given_.events.last, "Only the last ones")->type_name("COUNT");
    events->add_option("--since", given_.events.since, "As 10min, 14:03 or '2026-03-01 14:03'")
        ->type_name("TIME");
    events->add_option("--severity", given_.events.severity, "This one and worse, as warning or 4")
        ->type_name("LEVEL");
    events->add_option("--attempt", given_.events.attempt, "Only those of one attempt")->type_name("NUMBER");
  }

  void addControls() {
    add("enable", "Let provisioning run", {"zerotouch enable"}, [this] { enable(context_); });
    add("disable", "Stop it, and leave the system as it was found", {"zerotouch disable"},
        [this] { disable(context_); });
    add("cancel", "End it for good: reload with it disabled", {"zerotouch cancel", "zerotouch cancel --yes"},
        [this] { cancel(context_, given_.sure); })
        ->add_flag("-y,--yes", given_.sure, "Do not ask first");
  }

  void addTreeVerbs() {
    auto const takesPath = [this](CLI::App* verb) {
      verb->add_option("path", given_.path, "As in /zerotouch/config/enabled")->required()->type_name("");
      return verb;
    };
    takesPath(add("get", "Show a part of the state tree",
                  {"zerotouch get /zerotouch/config", "zerotouch get /zerotouch/sm/currentState"},
                  [this] { getPath(context_, given_.path); }));
    takesPath(add("list", "Show what lies below a path", {"zerotouch list /", "zerotouch list /zerotouch/sm"},
                  [this] { listPath(context_, given_.path); }));
    takesPath(add("set", "Write a part of the state tree",
                  {"zerotouch set /zerotouch/config/maxRunTime 3600",
                   "zerotouch set /zerotouch/config/maxRunTime unlimited"},
                  [this] { setPath(context_, given_.path, given_.value); }))
        ->add_option("value", given_.value, "JSON, or a string")
        ->required()
        ->type_name("");
  }

  void addSigning() {
    auto* const signs = add("sign", "Sign a boot file, on any machine",
                            {"zerotouch sign --certificate signer.pem --key signer.key boot.sh",
                             "zerotouch sign --certificate signer.pem --key 'pkcs11:object=signer' \\\n"
                             "    --serial SN0001 --serial SN0002 --valid-until 2027-01-31 boot.sh"},
                            [this] { sign(context_, given_.signing); });
    auto& signing = given_.signing;
    auto const text = [](CLI::App* verb, char const* option, std::string& target, char const* does,
                         char const* type) {
      return verb->add_option(option, target, does)->type_name(type);
    };
    // A script whose variable is unset must not hear that a file is fit for any switch.
    auto const notEmpty = [](std::string const& given) {
      return std::string(given.empty() ? "expected a serial number that is not empty" : "");
    };
    text(signs, "--certificate", signing.certificate, "PEM: the signer's, then those up to its authority",
         "FILE")
        ->required();
    text(signs, "--key", signing.key, "Its key, in a file or on a PKCS#11 token", "FILE|URI")->required();
    signs->add_option("--serial", signing.serials, "A switch that it is for; may be repeated")
        ->type_name("NUMBER")
        ->allow_extra_args(false)
        ->check(notEmpty);
    text(signs, "--valid-until", signing.validUntil, "As in 2027-01-31 or 2027-01-31T12:00:00Z", "DATE");
    text(signs, "-o,--output", signing.output, "The file to write, else FILE.cms", "FILE");
    text(signs, "file", signing.file, "The boot file", "")->required();

    auto& verifying = given_.verifying;
    auto* const verifies = add("verify", "Say what a switch would say of a signed boot file, on any machine",
                               {"zerotouch verify boot.sh.cms --signers signers.pem --serial SN0001"},
                               [this] { verify(context_, given_.verifying); });
    text(verifies, "--signers", verifying.signers, "PEM: who may sign, as on the switch", "FILE")->required();
    text(verifies, "--serial", verifying.serial, "The switch that the file has to name", "NUMBER")
        ->check(notEmpty);
    text(verifies, "file", verifying.file, "The signed file", "")->required();
  }

  void addRehearsal() {
    auto* const verb = add("rehearse", "Try out the servers as a switch would find them, on any machine",
                           {"zerotouch rehearse --interface eth0 --serial SN0001 --model SW-48",
                            "zerotouch rehearse --url http://10.0.1.1/boot --serial SN0001"},
                           [this] { rehearse(context_, given_.rehearsal); });
    auto& words = given_.rehearsal;
    auto const option = [verb](char const* name, std::string& target, char const* does, char const* type) {
      verb->add_option(name, target, does)->type_name(type);
    };
    option("-i,--interface", words.interface, "Ask the DHCP servers there. Needs root", "DEVICE");
    option("--url", words.url, "Only fetch that boot file", "URL");
    option("--serial", words.serial, "Of the switch that is played", "NUMBER");
    option("--model", words.model, "Of that switch", "NAME");
    option("--revision", words.revision, "Of that switch", "TEXT");
    option("--mac", words.mac, "Of that switch, else the device's own", "ADDRESS");
    option("--config", words.config, "The platform.toml of that switch", "FILE");
    verb->add_flag("--v4", words.four, "Ask by DHCPv4; all three are asked by default");
    verb->add_flag("--v6", words.six, "Ask by DHCPv6 with addresses");
    verb->add_flag("--stateless", words.stateless, "Ask by stateless DHCPv6");
    verb->add_option("--seconds", words.seconds, "How long to listen, else 5")
        ->check(CLI::Range(1.0, 600.0))
        ->type_name("NUMBER");
  }

  CLI::App const* chosenVerb() const {
    auto const chosen = program_.get_subcommands();
    return chosen.empty() ? nullptr : chosen.front();
  }

  Words verbs() const {
    Words names;
    for (auto const* verb : program_.get_subcommands([](CLI::App const*) { return true; }))
      names.push_back(verb->get_name());
    return names;
  }

  // Those of the program and of the chosen verb.
  Words options() const {
    Words names;
    CLI::App const* const program = &program_;
    for (auto const* app : {program, chosenVerb()}) {
      if (app == nullptr) continue;
      for (auto const* option : app->get_options()) {
        for (auto const& name : option->get_lnames()) names.push_back("--" + name);
      }
    }
    return names;
  }

  std::string unexpected(std::string const& word) const {
    auto const* const verb = chosenVerb();
    std::string const name = word.substr(0, word.find('='));
    if (name.starts_with('-')) {
      return "there is no option '" + name + "'" + (verb != nullptr ? " of " + verb->get_name() : "") +
             didYouMean(name, options());
    }
    if (verb == nullptr) {
      return "there is no verb '" + word + "'" + didYouMean(word, verbs()) + "; zerotouch --help lists them";
    }
    return verb->get_name() + " takes no '" + word + "'";
  }

  std::string wrongWords(CLI::ParseError const& error) const {
    auto const* const verb = chosenVerb();
    auto const extras = program_.remaining(true);
    if (!extras.empty()) return unexpected(extras.front());
    if (verb == nullptr) return "say what to do; zerotouch --help lists the verbs";
    return verb->get_name() + ": " + error.what() + "; zerotouch " + verb->get_name() + " --help";
  }

  Context context_;
  Arguments given_;
  CLI::App program_;
};

// A standard stream that is closed is taken by /dev/null. Otherwise the socket would get its number, and what
// is meant for people would be sent to the host.
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
  return CommandLine().run(argc, argv);
}
