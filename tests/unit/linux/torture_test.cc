// The adapter's whole life on a port, over and over: each time another one of the calls that can fail does.
#include <sys/wait.h>

#include "tests/unit/linux/NetworkTest.h"
#include "tests/unit/support/Faults.h"

namespace Linux {
namespace {

class Torture : public NetworkTest {
 protected:
  // Configures the port, waits, and ends the adapter. What went wrong; nothing when all was done and undone,
  // or the operator was told.
  std::string live() {
    Warned const warned;
    std::string const found = kernel("eth1");
    Faults::onIs(true);
    try {
      start();
    } catch (std::runtime_error const& refused) {
      return std::string(refused.what()).empty() ? "refused without a reason" : "";
    }
    setUp(entities, port1);
    auto const ip4 = entities.ipConfig->ipIntfConfigIs(port1);
    ip4->addrWithMaskIs(*Wire::IpAddrWithMask::fromString("10.0.0.5/24"));
    entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(1450);
    entities.netConfig->hostnameIs("sw1");
    auto const inUse = [this] { return addresses() == "Ethernet1 10.0.0.5/24\n"; };
    bool const done =
        Kel::Loop::instance().runUntil([&] { return inUse() || !warned.text().empty(); }, patience);
    adapter.reset();
    Faults::onIs(false);
    bool const silent = warned.text().empty();
    return !done                               ? "neither done nor said"
           : silent && kernel("eth1") != found ? "left " + kernel("eth1")
                                               : "";
  }

  // In a process and a network namespace of its own. How many calls of the kind there were; -1 when it ended
  // badly.
  int lifeWith(char const* kind, unsigned nth) {
    std::fflush(stdout);
    pid_t const pid = fork();
    if (pid == 0) {
      unshare(CLONE_NEWNET | CLONE_NEWUTS);
      cable("1");
      ip("link set lo up", "link set far1 up");
      Faults const faults(kind, nth);
      std::string const problem = live();
      if (!problem.empty()) std::printf("%s\n", problem.c_str());
      std::fflush(stdout);
      _exit(problem.empty() ? static_cast<int>(Faults::calls()) : 255);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) < 255 ? WEXITSTATUS(status) : -1;
  }
};

TEST_F(Torture, WhateverFailsOnceTheAdapterSaysSoOrGoesOn) {
  for (char const* const kind : {"socket", "sendmsg", "recvmsg", "ioctl", "open", "write", "fopen64"}) {
    int const calls = lifeWith(kind, 0);
    EXPECT_GT(calls, 0) << kind;
    for (int nth = 1; nth <= calls; ++nth)
      EXPECT_GT(lifeWith(kind, static_cast<unsigned>(nth)), 0) << kind << " " << nth << " of " << calls;
  }
}

}  // namespace
}  // namespace Linux
