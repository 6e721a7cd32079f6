// Gives the tests a /run and a /tmp of their own: the agent's files there have fixed names, tests run side by
// side, and the machine's own folders are not to be touched. They are small, so that tests can fill them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

// The project may lie in one of them.
void bringBack(int folder) {
  std::filesystem::create_directories(PROJECT_FOLDER);
  std::string const source = "/proc/self/fd/" + std::to_string(folder);
  ASSERT_EQ(mount(source.c_str(), PROJECT_FOLDER, nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
}

class PrivateFolders : public ::testing::Environment {
 public:
  void SetUp() override {
    uid_t const user = getuid();
    gid_t const group = getgid();
    int const flags = user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
    ASSERT_EQ(unshare(flags), 0) << std::strerror(errno);
    if (user != 0) {
      std::ofstream("/proc/self/setgroups") << "deny";
      std::ofstream("/proc/self/uid_map") << user << " " << user << " 1";
      std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
    }
    ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
    int const kept = open(PROJECT_FOLDER, O_PATH | O_CLOEXEC);
    for (char const* const folder : {"/run", "/tmp"})
      ASSERT_EQ(mount("tmpfs", folder, "tmpfs", 0, "size=1m"), 0) << folder << ": " << std::strerror(errno);
    if (!std::filesystem::exists(PROJECT_FOLDER)) bringBack(kept);
    close(kept);
  }
};

[[maybe_unused]] auto const* const environment =
    ::testing::AddGlobalTestEnvironment(new PrivateFolders);  // owned by the framework

}  // namespace
