#include "programs/zerotouch-dhclient/Parent.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

void dieWithParent(pid_t parent, int signal) {
  prctl(PR_SET_PDEATHSIG, signal);
  if (getppid() != parent) raise(signal);
}
