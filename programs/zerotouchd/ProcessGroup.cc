#include "programs/zerotouchd/ProcessGroup.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/kel/Child.h"

namespace {

namespace fs = std::filesystem;

constexpr char const* groupPrefix = "zerotouch-script-";

// What a process's stat file says of it.
struct ProcessStat {
  char state = 'X';
  pid_t session = 0;
  std::uint64_t start = 0;

  bool lives() const { return state != 'Z' && state != 'X'; }
};

ProcessStat processStat(std::string const& pid) {
  ProcessStat result;
  std::string line;
  std::ifstream file("/proc/" + pid + "/stat");
  if (!std::getline(file, line)) return result;
  // The name may hold anything and ends with the last ")". The state is the third field, the session the
  // sixth, the time of the start the twenty-second.
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  std::string skipped;
  fields >> result.state >> skipped >> skipped >> result.session;
  for (int field = 7; field < 22; ++field) fields >> skipped;
  fields >> result.start;
  return result;
}

// The processes of a control group and of those below it.
void killOneByOne(fs::path const& folder) {
  std::error_code error;
  for (auto const& entry : fs::directory_iterator(folder, error)) {
    if (entry.is_directory(error)) killOneByOne(entry.path());
  }
  std::ifstream members(folder / "cgroup.procs");
  for (pid_t pid = 0; members >> pid;) {
    if (pid > 1) ::kill(pid, SIGKILL);
  }
}

// A folder of control groups holds files that cannot be removed and go with it.
void removeFolders(fs::path const& folder) {
  std::error_code error;
  for (auto const& entry : fs::directory_iterator(folder, error)) {
    if (entry.is_directory(error)) removeFolders(entry.path());
  }
  rmdir(folder.c_str());
}

// Waits until the kernel says that a control group has no process any more.
void waitUntilEmpty(std::string const& folder, int timeout) {
  int const events = open((folder + "/cgroup.events").c_str(), O_RDONLY | O_CLOEXEC);
  if (events < 0) return;
  // The file is read before each wait, since a change since the last reading ends the wait at once.
  for (int changes = 0; changes < 10; ++changes) {
    char text[256] = {};
    if (pread(events, text, sizeof text - 1, 0) <= 0) break;
    if (std::string(text).find("populated 0") != std::string::npos) break;
    pollfd change{events, POLLPRI, 0};
    if (poll(&change, 1, timeout * 1'000) <= 0) break;
  }
  close(events);
}

}  // namespace

std::uint64_t startTime(pid_t pid) {
  auto const process = processStat(std::to_string(pid));
  return process.lives() ? process.start : 0;
}

std::string ownControlGroup() {
  std::string group;
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    if (line.starts_with("0::/")) group = line.substr(3);
  }
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; !group.empty() && std::getline(mounts, line);) {
    if (line.find(" - cgroup2 ") == std::string::npos) continue;
    std::istringstream fields(line);
    std::string skipped, root, point;
    fields >> skipped >> skipped >> skipped >> root >> point;
    if (root == "/") root.clear();
    if (!group.starts_with(root)) continue;
    std::string const folder = point + group.substr(root.size());
    if (access((folder + "/cgroup.procs").c_str(), W_OK) != 0) continue;
    return folder.ends_with('/') ? folder.substr(0, folder.size() - 1) : folder;
  }
  return "";
}

ProcessGroup ProcessGroup::make(std::string const& parent) {
  static int made = 0;
  ProcessGroup result;
  if (parent.empty()) return result;
  // A name is taken only when a host with the same process id has left its group behind.
  for (int tries = 0; tries < 100; ++tries) {
    std::ostringstream folder;
    folder << parent << '/' << groupPrefix << getpid() << '-' << ++made;
    if (mkdir(folder.str().c_str(), 0755) == 0) {
      result.folder_ = folder.str();
      break;
    }
    if (errno != EEXIST) break;
  }
  return result;
}

std::optional<ProcessGroup> ProcessGroup::of(std::string const& text) {
  ProcessGroup result;
  std::istringstream words(text);
  if (!(words >> result.leader_ >> result.start_)) return std::nullopt;
  std::getline(words >> std::ws, result.folder_);
  bool const isOurs = fs::path(result.folder_).filename().native().starts_with(groupPrefix);
  if (!isOurs) result.folder_.clear();
  if (result.leader_ <= 1 && !isOurs) return std::nullopt;
  return result;
}

std::string ProcessGroup::asText() const {
  return std::to_string(leader_) + " " + std::to_string(start_) + " " + (folder_.empty() ? "-" : folder_);
}

int ProcessGroup::openFolder() const {
  return folder_.empty() ? -1 : open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

void ProcessGroup::leaderIs(pid_t pid) {
  leader_ = pid;
  start_ = startTime(pid);
  // The leader of a session has not been let into the control group, unless that is in use.
  if (getsid(pid) == pid && rmdir(folder_.c_str()) == 0) folder_.clear();
}

bool ProcessGroup::end(int timeout) const {
  return folder_.empty() ? endSession(timeout) : endControlGroup(timeout);
}

bool ProcessGroup::endControlGroup(int timeout) const {
  int const kill = open((folder_ + "/cgroup.kill").c_str(), O_WRONLY | O_CLOEXEC);
  if (kill < 0 || write(kill, "1", 1) != 1) killOneByOne(folder_);  // before Linux 5.14
  if (kill >= 0) close(kill);
  if (timeout > 0) waitUntilEmpty(folder_, timeout);
  removeFolders(folder_);
  return access(folder_.c_str(), F_OK) != 0;
}

// The id of a session is nobody else's while it has a member. Afterwards it may be that of another leader,
// who was started later than ours.
bool ProcessGroup::endSession(int timeout) const {
  if (leader_ <= 1) return true;
  auto const leader = processStat(std::to_string(leader_));
  if (leader.lives() && leader.start != start_) return true;
  bool found = true;
  // What a member starts while the others are killed is found in the next round.
  for (int rounds = 0; found && rounds < 3; ++rounds) {
    found = false;
    std::error_code error;
    for (auto const& entry : fs::directory_iterator("/proc", error)) {
      std::string const name = entry.path().filename();
      pid_t pid = 0;
      auto const [rest, failure] = std::from_chars(name.data(), name.data() + name.size(), pid);
      if (failure != std::errc() || *rest != '\0' || pid <= 1) continue;
      auto const process = processStat(name);
      if (process.session != leader_ || !process.lives()) continue;
      found = true;
      ::kill(pid, SIGKILL);
      if (timeout > 0) Kel::endsWithin(pid, timeout);
    }
  }
  return !found;
}
