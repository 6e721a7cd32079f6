#include "programs/zerotouch/Failure.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <utility>

#include "platform/kel/Format.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

std::string lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// How many characters have to be inserted, removed, replaced or swapped with their neighbour to get from a to
// b.
std::size_t editDistance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> before, last, now(b.size() + 1);
  std::iota(now.begin(), now.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    before = std::exchange(last, now);
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      bool const same = a[i - 1] == b[j - 1];
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      bool const swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) now[j] = std::min(now[j], before[j - 2] + 1);
    }
  }
  return now.back();
}

ExitCode fail(Context const& context, ExitCode code, std::string const& message, Kel::Value const& error) {
  std::string const text = context.json ? Statebase::dumpJson(Kel::ValueMap{{"error", error}})
                                        : "zerotouch: " + Kel::printable(message);
  std::fprintf(stderr, "%s\n", text.c_str());
  return code;
}

ExitCode notReached(Context const& context, Statebase::ConnectionError const& error) {
  std::string const& path = context.socketPath;
  struct stat info {};
  bool const found = stat(path.c_str(), &info) == 0;
  if (!found && errno == ENOENT) return fail(context, notRunning, "no host is running: there is no " + path);
  if (!found || access(path.c_str(), R_OK | W_OK) == 0 || errno != EACCES)
    return fail(context, notRunning, std::string("cannot reach the host: ") + error.what());
  auto const* const group = getgrgid(info.st_gid);
  std::string const name = group != nullptr ? group->gr_name : std::to_string(info.st_gid);
  return fail(context, notPermitted,
              "you may not open " + path + ": that is for root and the group '" + name + "'");
}

// Where the first part of the path that does not exist was probably mistyped, a hint that names what does
// exist.
std::string otherPath(Context const& context, std::string const& path) {
  for (std::size_t end = path.find('/', 1); !path.empty(); end = path.find('/', end + 1)) {
    std::string const parent = path.substr(0, path.rfind('/', end - 1));
    std::string const wanted = path.substr(parent.size() + 1, end - parent.size() - 1);
    Kel::Value const entries = context.call("list", {{"path", parent.empty() ? "/" : parent}});
    auto const* const list = entries.as<Kel::ValueList>();
    if (list == nullptr) return {};
    std::vector<std::string> names;
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
  constexpr std::int64_t permission = -32003;
  std::string hint;
  if (error.code() == unknownPath && !context.json) {
    try {
      hint = otherPath(context, text(at(error.error(), {"data", "path"})));
    } catch (std::exception const&) {
      // The error is told without a hint.
    }
  }
  return fail(context, error.code() == permission ? notPermitted : failed, error.what() + hint,
              error.error());
}

}  // namespace

std::string nearest(std::string const& word, std::vector<std::string> const& candidates) {
  constexpr std::size_t longestWord = 64;
  if (word.empty() || word.size() > longestWord) return {};
  std::string const wanted = lower(word);
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (auto const& candidate : candidates) {
    std::string const other = lower(candidate);
    // A part of a name is as good as a name with one mistake.
    bool const isPart = wanted.size() >= 3 && other.find(wanted) != std::string::npos;
    std::size_t const distance = isPart ? 1 : editDistance(wanted, other);
    if (distance < bestDistance || (distance == bestDistance && isPart && other.size() < best.size())) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

std::string didYouMean(std::string const& word, std::vector<std::string> const& candidates) {
  std::string const meant = nearest(word, candidates);
  return meant.empty() ? "" : " (did you mean " + meant + "?)";
}

ExitCode fail(Context const& context, ExitCode code, std::string const& message) {
  return fail(context, code, message, Kel::ValueMap{{"message", message}});
}

ExitCode finishOutput(Context const& context) {
  int const error = flushOutput();
  if (error == 0 || error == EPIPE) return ok;
  return fail(context, failed, std::string("standard output: ") + std::strerror(error));
}

ExitCode reportFailure(Context const& context) {
  try {
    throw;
  } catch (WrongUsage const& error) {
    return fail(context, wrongUsage, error.what());
  } catch (Statebase::ConnectionError const& error) {
    return notReached(context, error);
  } catch (HostGone const& error) {
    return fail(context, notRunning, error.what());
  } catch (Statebase::CallError const& error) {
    return refused(context, error);
  } catch (NotPermitted const& error) {
    return fail(context, notPermitted, error.what());
  } catch (SaidAlready const& error) {
    ExitCode const written = finishOutput(context);
    return written == ok ? static_cast<ExitCode>(error.code) : written;
  } catch (WaitedInVain const& error) {
    return fail(context, static_cast<ExitCode>(error.code), error.what());
  } catch (Refused const& error) {
    return fail(context, failed, error.what());
  }
}

}  // namespace ZeroTouchCommand
