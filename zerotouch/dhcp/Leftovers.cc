// DHCP clients that an earlier run of the agent left behind.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>

#include "platform/kel/Child.h"
#include "platform/kel/Format.h"
#include "zerotouch/dhcp/DhclientFiles.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

// Whatever process now has the id is ended: the word that is examined is the label of the file's first line,
// not the process's name. The file lives under /var/run, so the id is one of this boot.
void doKillRunningDhclient(char const* pidFilePath) {
  std::ifstream pidFile(pidFilePath);
  if (!pidFile) return;
  unsigned pid = 0;
  pidFile >> pid;
  pidFile.close();
  KEL_TRACE(traceZeroTouchSm, 5, __func__ << " - Leftover pidfile found, pid=" << pid);
  std::ifstream status(Kel::format("/proc/%d/status", pid));
  if (!status || static_cast<pid_t>(pid) == getpid()) return;
  Kel::String word;
  status >> word;
  if (word.find("dhclient") != 0) {
    KEL_TRACE(traceZeroTouchSm, 5, __func__ << " - Process is a dhclient instance, killing: " << pid);
    Kel::kill(static_cast<pid_t>(pid), SIGKILL);
    Kel::reap(static_cast<pid_t>(pid));
  }
  if (int const result = unlink(pidFilePath); result == 0) {
    KEL_TRACE(traceZeroTouchSm, 5, __func__ << " - dhclient pidfile removed");
  } else {
    KEL_TRACE(traceZeroTouchSm, 1,
              __func__ << " - dhclient pidfile unlink failed. Return code:" << result << " Errno:" << errno);
  }
}

}  // namespace ZeroTouch
