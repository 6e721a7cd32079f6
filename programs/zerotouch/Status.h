// What verbs read of the host: parts of the state tree as of one moment, and where provisioning stands.
#pragma once

#include <map>

#include "platform/statebase/Client.h"
#include "programs/zerotouch/Terminal.h"

namespace ZeroTouchCommand {

struct Context;

// Parts of the state tree by their paths, read at one moment. Null stands for what is not there.
class Snapshot {
 public:
  using Paths = std::vector<std::string>;
  // With `follow`, the host sends changes from then on, for apply().
  enum class Reading { once, follow };

  // Throws what Statebase::Client throws.
  Snapshot(Statebase::Client& host, Paths const& paths, Reading reading = Reading::once);

  // The same of a tree that was kept, as an object of objects, at `time`.
  Snapshot(Kel::Value const& tree, Paths const& paths, Kel::Seconds time);

  // `path` is one of those read.
  Kel::Value const& operator[](std::string const& path) const { return values_.at(path); }
  // The host's clock: when this was read and, for one that is followed, now.
  Kel::Seconds time() const;
  // Takes over a change that the host has sent. One of a part that was not read is ignored.
  void apply(std::string const& path, Kel::Value const& value);

 private:
  std::map<std::string, Kel::Value> values_;
  Kel::Seconds hostTime_;
  Kel::Seconds readAt_;  // on our own clock
  bool follows_;
};

// The paths that statusOf() needs.
Snapshot::Paths statusPaths();

// {time, config, status, sm, lastFailure, outcome, whatToDo}: sm is null when no agent is loaded, else the
// attributes that matter here; lastFailure is null when there was none since the last success.
Kel::Value statusOf(Snapshot const& snapshot);

// Reads that from the host.
Kel::Value fetchStatus(Statebase::Client& host);

// The same with a member "reporter", where a reporter has said how far it has come.
Kel::Value withReporter(Kel::Value status, std::string const& socketPath);

// Prints it as the context asks for.
void printStatus(Context const& context, Kel::Value const& status);

// The status as a table of two columns: what, and how it is.
Rows statusRows(Kel::Value const& status);

}  // namespace ZeroTouchCommand
