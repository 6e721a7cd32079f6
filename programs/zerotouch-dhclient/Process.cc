#include "programs/zerotouch-dhclient/Process.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "programs/zerotouch-dhclient/Files.h"

namespace {

// As execve(2) takes it; points into `texts`.
std::vector<char*> pointers(std::vector<std::string> const& texts) {
  std::vector<char*> result;
  for (std::string const& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

}  // namespace

void dieWithParent(pid_t parent, int signal) {
  prctl(PR_SET_PDEATHSIG, signal);
  if (getppid() != parent) raise(signal);
}

void become(std::vector<std::string> const& arguments) {
  execv(arguments[0].c_str(), pointers(arguments).data());
  complain(arguments[0].c_str());
}

void become(std::vector<std::string> const& arguments, std::vector<std::string> const& environment) {
  execve(arguments[0].c_str(), pointers(arguments).data(), pointers(environment).data());
  complain(arguments[0].c_str());
}
