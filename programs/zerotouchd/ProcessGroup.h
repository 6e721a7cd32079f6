// A program and all that it has started, which can be ended together.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

// When a process was started, in ticks since the boot; 0 when there is none with that id, or only a zombie.
std::uint64_t startTime(pid_t pid);

// The folder of this process's control group (cgroup v2); "" when it is not visible.
std::string ownControlGroup();

// The members are those of a control group (cgroup v2) of their own, or, where none can be made, of the
// session that the program leads. A descendant can leave either, but nobody leaves a control group by
// becoming a daemon.
class ProcessGroup {
 public:
  // Makes a control group in the folder of another one. Without that folder (""), or when it cannot be made,
  // the group is a session only.
  static ProcessGroup make(std::string const& parent);
  // What an earlier process has written down with asText(); nothing when that names no such group.
  static std::optional<ProcessGroup> of(std::string const& text);
  std::string asText() const;

  // The control group's folder, open, for the caller to close; -1 when there is none.
  int openFolder() const;
  // Says which process has been started in the group, or else in a session of its own; 0 when none could be.
  void leaderIs(pid_t pid);

  // Kills all members, waits at most about `timeout` seconds for their end, and removes the control group.
  // Returns whether nothing is left of it. To be called again when there is.
  bool end(int timeout = 0) const;

 private:
  bool endControlGroup(int timeout) const;
  bool endSession(int timeout) const;

  std::string folder_;
  pid_t leader_ = 0;
  std::uint64_t start_ = 0;  // of the leader
};
