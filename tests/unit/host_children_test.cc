// The host's runner with real processes: what a contained child leaves behind, and what it writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <numeric>

#include "platform/kel/Loop.h"
#include "programs/zerotouchd/Children.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace {

bool runUntil(std::function<bool()> const& done) { return Kel::Loop::instance().runUntil(done, 60); }

// With control groups, and with sessions where there are none.
class HostChildren : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam() && access(parent_.c_str(), W_OK) != 0) GTEST_SKIP() << "no control group to write to";
    // The folder has room for the output, which the tests' /tmp has not.
    ASSERT_EQ(mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, "size=16m"), 0);
    startHost();
    look();
  }
  void TearDown() override {
    host_.reset();
    umount2(folder_.path().c_str(), MNT_DETACH);
  }
  // The files that a script writes are looked at again a hundred times a second.
  void look() { look_.in(0.01); }
  void startHost() { host_ = std::make_unique<Children>(folder_.path("/run"), GetParam() ? parent_ : ""); }

  Kel::Ptr<Kel::ChildSiginfo> start(std::string const& script) {
    for (char const* name : {"/out", "/members"}) folder_.write(name, "");
    int const out = open(folder_.path("/out").c_str(), O_WRONLY | O_CLOEXEC);
    std::string const text = "cd " + folder_.path() + "; " + script;
    char const* const argv[] = {"/bin/sh", "-c", text.c_str(), nullptr};
    auto const child = Kel::runContained(argv, -1, out, -1);
    close(out);
    return child;
  }
  // The same for a script that starts five processes before it does the rest.
  Kel::Ptr<Kel::ChildSiginfo> startFive(std::string const& rest) {
    // A daemon leaves the session, and takes nothing but a control group along.
    std::string const daemon = GetParam() ? "setsid " : "";
    auto const child =
        start("for i in 1 2 3 4 5; do " + daemon + "sleep 1000 & echo $! >>members; done; " + rest);
    EXPECT_TRUE(runUntil([this] { return members().size() == 5; }));
    return child;
  }
  std::vector<pid_t> members() const {
    std::istringstream file(folder_.read("/members"));
    return {std::istream_iterator<pid_t>(file), {}};
  }
  std::ptrdiff_t living() const {
    auto const all = members();
    return std::count_if(all.begin(), all.end(), [](pid_t pid) { return startTime(pid) != 0; });
  }
  bool leftGroups() const {
    if (!GetParam()) return false;
    std::string const prefix = "zerotouch-script-" + std::to_string(getpid()) + "-";
    for (auto const& entry : std::filesystem::directory_iterator(parent_)) {
      if (entry.path().filename().native().starts_with(prefix)) return true;
    }
    return false;
  }

  TemporaryFolder folder_;
  std::string const parent_ = ownControlGroup();
  std::unique_ptr<Children> host_;
  Kel::Alarm look_{[this] { look(); }};
};

INSTANTIATE_TEST_SUITE_P(, HostChildren, testing::Bool(),
                         [](auto const& kind) { return kind.param ? "control_group" : "session"; });

TEST_P(HostChildren, what_a_script_has_started_ends_with_it_unless_it_succeeds) {
  struct {
    char const* rest;
    int signal;  // that it is sent
    bool ends, leaves;
  } const cases[] = {{"exit 3", 0, true, false},
                     {"kill -SEGV $$", 0, true, false},
                     {"read x <>/dev/ptmx", SIGTERM, true, false},
                     {"trap 'exit 0' TERM; while :; do sleep 0.01; done", SIGTERM, true, false},
                     {"trap '' TERM; while :; do sleep 0.01; done", SIGTERM, false, true},
                     {"trap '' TERM; while :; do sleep 0.01; done", SIGKILL, true, false},
                     {"exit 0", 0, true, true}};
  for (auto const& c : cases) {
    auto const child = startFive("touch started; " + std::string(c.rest));
    ASSERT_TRUE(runUntil([this] { return std::filesystem::exists(folder_.path("/started")); })) << c.rest;
    std::filesystem::remove(folder_.path("/started"));
    if (c.signal != 0) Kel::kill(child->pid(), c.signal);
    EXPECT_TRUE(!c.ends || runUntil([&] { return child->ended(); })) << c.rest;
    if (c.leaves) {
      EXPECT_EQ(living(), 5) << c.rest;
      start("exit 0");  // before which all of it ends
    }
    EXPECT_TRUE(runUntil([this] { return living() == 0; })) << c.rest;
  }
  startFive("exit 0");
  host_.reset();
  EXPECT_EQ(living(), 0);
  EXPECT_FALSE(leftGroups());
}

TEST_P(HostChildren, the_next_host_ends_what_one_that_was_killed_has_left) {
  auto const child = startFive("sleep 1000");
  auto const killed = std::move(host_);  // as it stands in its memory
  startHost();
  EXPECT_EQ(living(), 0);
  EXPECT_TRUE(runUntil([&] { return child->ended(); }));
}

TEST_P(HostChildren, of_what_a_script_writes_the_beginning_and_the_end_are_kept) {
  ASSERT_TRUE(runUntil([child = start("echo some; echo more")] { return child->ended(); }));
  EXPECT_EQ(folder_.read("/out"), "some\nmore\n");
  // Lines of eight bytes: 4 MiB exactly, then much more.
  for (std::uint64_t const lines : {524'288, 1'000'000}) {
    auto const child = start("seq -f %07.0f " + std::to_string(lines));
    ASSERT_TRUE(runUntil([&] { return child->ended(); }));
    EXPECT_EQ(child->exitStatus(), 0);
    std::string const output = folder_.read("/out");
    EXPECT_LE(output.size(), CapturedOutput::limit);
    EXPECT_TRUE(output.starts_with("0000001\n0000002\n"));
    EXPECT_TRUE(output.ends_with(std::to_string(lines) + "\n"));
    auto const from = output.find("\n\n["), to = output.find(" bytes left out]\n");
    EXPECT_EQ(from == std::string::npos, lines * 8 == CapturedOutput::limit);
    if (from == std::string::npos) continue;
    auto const line = output.substr(from + 1, to + sizeof " bytes left out]" - from - 1);
    EXPECT_EQ(from + 1, CapturedOutput::limit / 2);
    EXPECT_EQ(output.size() - line.size() + std::stoull(line.substr(2)), lines * 8) << line;
  }
}

}  // namespace
