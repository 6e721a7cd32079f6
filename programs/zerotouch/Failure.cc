#include "programs/zerotouch/Failure.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/statebase/Json.h"
#include "programs/zerotouch/Nearest.h"
#include "programs/zerotouch/Output.h"

namespace ZeroTouchCommand {

namespace {

using Words = std::vector<std::string>;

ExitCode fail(Context const& context, ExitCode code, std::string const& message, Kel::Value const& error) {
  std::string const text = context.json ? Statebase::dumpJson(Kel::ValueMap{{"error", error}})
                                        : "zerotouch: " + printable(message);
  std::fprintf(stderr, "%s\n", text.c_str());
  return code;
}

ExitCode fail(Context const& context, ExitCode code, std::string const& message) {
  return fail(context, code, message, Kel::ValueMap{{"message", message}});
}

CLI::App const* chosenVerb(CLI::App const& program) {
  auto const chosen = program.get_subcommands();
  return chosen.empty() ? nullptr : chosen.front();
}

Words verbs(CLI::App const& program) {
  Words names;
  for (auto const* verb : program.get_subcommands([](CLI::App const*) { return true; }))
    names.push_back(verb->get_name());
  return names;
}

Words options(CLI::App const& program) {
  Words names;
  for (auto const* app : {&program, chosenVerb(program)}) {
    if (app == nullptr) continue;
    for (auto const* option : app->get_options()) {
      for (auto const& name : option->get_lnames()) names.push_back("--" + name);
    }
  }
  return names;
}

std::string unexpected(CLI::App const& program, std::string const& word) {
  auto const* const verb = chosenVerb(program);
  std::string const name = word.substr(0, word.find('='));
  if (name.starts_with('-')) {
    return "there is no option '" + name + "'" + (verb != nullptr ? " of " + verb->get_name() : "") +
           didYouMean(name, options(program));
  }
  if (verb == nullptr) {
    return "there is no verb '" + word + "'" + didYouMean(word, verbs(program)) +
           "; zerotouch --help lists them";
  }
  return verb->get_name() + " takes no '" + word + "'";
}

std::string wrongWords(CLI::App const& program, CLI::ParseError const& error) {
  auto const* const verb = chosenVerb(program);
  auto const extras = program.remaining(true);
  if (!extras.empty()) return unexpected(program, extras.front());
  if (verb == nullptr) return "say what to do; zerotouch --help lists the verbs";
  return verb->get_name() + ": " + error.what() + "; zerotouch " + verb->get_name() + " --help";
}

std::string notReached(Context const& context, Statebase::ConnectionError const& error) {
  std::string const& path = context.socketPath;
  struct stat info {};
  bool const found = stat(path.c_str(), &info) == 0;
  if (!found && errno == ENOENT) return "no host is running: there is no " + path;
  if (!found || access(path.c_str(), R_OK | W_OK) == 0 || errno != EACCES) {
    return std::string("cannot reach the host: ") + error.what();
  }
  auto const* const group = getgrgid(info.st_gid);
  std::string const name = group != nullptr ? group->gr_name : std::to_string(info.st_gid);
  return "you may not open " + path + ": that is for root and the group '" + name + "'";
}

// What lies beside the first part of the path that is not there.
std::string otherPath(Context const& context, std::string const& path) {
  for (std::size_t end = path.find('/', 1); !path.empty(); end = path.find('/', end + 1)) {
    std::string const parent = path.substr(0, path.rfind('/', end - 1));
    std::string const wanted = path.substr(parent.size() + 1, end - parent.size() - 1);
    Kel::Value const entries = context.call("list", {{"path", parent.empty() ? "/" : parent}});
    auto const* const list = entries.as<Kel::ValueList>();
    if (list == nullptr) return {};
    Words names;
    for (auto const& entry : *list) names.push_back(memberText(entry, "name"));
    if (std::ranges::find(names, wanted) == names.end()) {
      std::string const meant = nearest(wanted, names);
      return meant.empty() ? "" : " (did you mean " + Statebase::join(parent, meant) + "?)";
    }
    if (end == std::string::npos) return {};
  }
  return {};
}

ExitCode refused(Context const& context, Statebase::CallError const& error) {
  constexpr std::int64_t unknownPath = -32001;
  std::string hint;
  if (error.code() == unknownPath && !context.json) {
    try {
      hint = otherPath(context, text(at(error.error(), {"data", "path"})));
    } catch (std::exception const&) {
      // The hint is a favour.
    }
  }
  return fail(context, failed, error.what() + hint, error.error());
}

}  // namespace

ExitCode finishOutput(Context const& context) {
  int const error = flushOutput();
  if (error == 0 || error == EPIPE) return ok;
  return fail(context, failed, std::string("standard output: ") + std::strerror(error));
}

ExitCode reportFailure(CLI::App const& program, Context const& context) {
  try {
    throw;
  } catch (CLI::Success const& help) {
    program.exit(help);
    return finishOutput(context);
  } catch (CLI::ParseError const& error) {
    return fail(context, wrongUsage, wrongWords(program, error));
  } catch (WrongUsage const& error) {
    return fail(context, wrongUsage, error.what());
  } catch (Statebase::ConnectionError const& error) {
    return fail(context, notRunning, notReached(context, error));
  } catch (HostGone const& error) {
    return fail(context, notRunning, error.what());
  } catch (Statebase::CallError const& error) {
    return refused(context, error);
  } catch (Refused const& error) {
    return fail(context, failed, error.what());
  }
}

}  // namespace ZeroTouchCommand
