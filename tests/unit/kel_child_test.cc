// Real children on the real loop: how they start, how they end, and that none is left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "platform/kel/Child.h"
#include "platform/kel/Loop.h"
#include "platform/kel/Reactor.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace {

bool runUntil(std::function<bool()> const& done) { return Kel::Loop::instance().runUntil(done, 60); }

// How the child ends, as the handler sees it that is told of it.
std::string endOf(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  std::string end;
  Kel::Reactor const reactor(child, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, [&] {
    bool const exited = child->statusCode() == Kel::ChildSiginfo::exited;
    end += (exited ? "exited " : "killed ") + std::to_string(exited ? child->exitStatus() : child->signal());
  });
  EXPECT_TRUE(runUntil([&] { return child->ended(); }));
  return end;
}

Kel::Ptr<Kel::ChildSiginfo> shell(char const* script, int in = -1, int out = -1, int err = -1) {
  char const* const argv[] = {"/bin/sh", "-c", script, nullptr};
  return Kel::run(argv, in, out, err, -1);
}

// Whether the process is gone for good: no child of ours, and no zombie.
bool reaped(pid_t pid, int mayWait = WNOHANG) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | mayWait | WNOWAIT) < 0 && errno == ECHILD;
}

int openFor(std::string const& path, int flags) {
  return open(path.c_str(), flags | O_CLOEXEC | O_CREAT, 0600);
}

TEST(Children, report_how_they_ended_and_are_reaped) {
  TemporaryFolder const folder;
  std::string const noInterpreter = folder.path("/no-interpreter");
  folder.write("/no-interpreter", "#!/no/such/interpreter\n");
  std::filesystem::permissions(noInterpreter, std::filesystem::perms::owner_all);

  struct {
    std::vector<char const*> argv;
    char const* end;
  } cases[] = {{{"/bin/sh", "-c", "exit 255"}, "exited 255"},
               {{"/bin/sh", "-c", "kill -TERM $$"}, "killed 15"},
               {{"/no/such/program"}, "exited 127"},
               {{"true"}, "exited 127"},  // a path, not a name to be searched for
               {{noInterpreter.c_str()}, "exited 127"}};
  for (auto& c : cases) {
    c.argv.push_back(nullptr);
    auto const child = Kel::run(c.argv.data(), -1, -1, -1, -1);
    EXPECT_EQ(child->statusCode(), 0U) << c.argv[0];  // never within the call
    EXPECT_EQ(child->pid() == 0, std::string(c.end) == "exited 127") << c.argv[0];
    EXPECT_EQ(endOf(child), c.end) << c.argv[0];
    EXPECT_TRUE(child->pid() == 0 || reaped(child->pid())) << c.argv[0];
  }
  pid_t const pid = shell("exit 3")->pid();  // nobody holds its record
  EXPECT_TRUE(runUntil([&] { return reaped(pid); }));
}

TEST(Children, signalled_and_reaped_by_hand_still_report_their_end) {
  // The end is there for the taking before the loop has looked at it.
  auto const child = shell("exec sleep 1000");
  EXPECT_EQ(Kel::kill(child->pid(), SIGKILL), 0);
  ASSERT_FALSE(reaped(child->pid(), 0));  // it has ended
  Kel::reap(child->pid());
  EXPECT_EQ(endOf(child), "killed 9");
  EXPECT_TRUE(reaped(child->pid()));
}

TEST(Children, ids_that_mean_many_processes_are_never_signalled_or_reaped) {
  for (pid_t const pid : {0, -1, 1, -2, -getpgrp()}) {
    errno = 0;
    EXPECT_EQ(Kel::kill(pid, SIGKILL), -1) << pid;  // would end this very test
    EXPECT_EQ(errno, ESRCH) << pid;
  }
  auto const child = shell("exit 6");
  ASSERT_FALSE(reaped(child->pid(), 0));  // it has ended
  for (pid_t const pid : {0, -1, -getpgrp()}) Kel::reap(pid);
  EXPECT_FALSE(reaped(child->pid()));
  EXPECT_EQ(endOf(child), "exited 6");
}

TEST(Children, start_clean_whatever_this_process_has_blocked_ignored_or_open) {
  TemporaryFolder const folder;
  int const out = openFor(folder.path("/out"), O_WRONLY), err = openFor(folder.path("/err"), O_WRONLY);
  folder.write("/in", "given");
  int const in = openFor(folder.path("/in"), O_RDONLY);
  int const leaky = open("/dev/null", O_RDONLY);  // not close-on-exec, as a library's may be
  sigset_t blocked, before;
  sigemptyset(&blocked);
  for (int const signal : {SIGTERM, SIGUSR1}) sigaddset(&blocked, signal);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  auto const ignored = std::signal(SIGPIPE, SIG_IGN);

  // Of the signals ignored, those up to 31: the C library keeps the next two to itself, whoever started this
  // test.
  auto const child = shell(
      "grep SigBlk: /proc/self/status; sed -n 's/SigIgn:.*\\(.\\{8\\}\\)$/0x\\1/p' /proc/self/status | "
      "{ read ignored; echo $((ignored & 0x7fffffff)); }; ls /proc/self/fd; cat; echo oops >&2",
      in, out, err);
  EXPECT_EQ(endOf(child), "exited 0");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::signal(SIGPIPE, ignored);
  for (int const fd : {in, out, err, leaky}) close(fd);

  // 3 is the folder that ls itself has opened.
  EXPECT_EQ(folder.read("/out"), "SigBlk:\t0000000000000000\n0\n0\n1\n2\n3\ngiven");
  EXPECT_EQ(folder.read("/err"), "oops\n");
}

TEST(Children, run_and_wait_gives_the_status_and_bounds_the_wait) {
  TemporaryFolder const folder;
  std::string const path = folder.path("/script");
  for (auto const& [script, timeout, status] :
       std::initializer_list<std::tuple<std::string, int, int>>{{"exit 7", -1, 7},
                                                                {"kill -9 $$", -1, 128 + 9},
                                                                {"exec sleep 1000", 0, 128 + 9},
                                                                {"exec sleep 1000", 1, 128 + 9}}) {
    folder.write("/script", "#!/bin/sh\necho started\n" + script + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    int const out = openFor(folder.path("/out"), O_WRONLY | O_TRUNC);
    Kel::Seconds const start = Kel::now();
    EXPECT_EQ(Kel::runAndWait(path.c_str(), -1, out, -1, timeout), status) << script;
    close(out);
    EXPECT_TRUE(timeout == 0 || folder.read("/out") == "started\n") << script;
    EXPECT_GE(Kel::now() - start, timeout);
    EXPECT_LT(Kel::now() - start, timeout + 60) << script;
  }
  EXPECT_EQ(Kel::runAndWait("/no/such/program"), 127);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // no child is left
}

}  // namespace
