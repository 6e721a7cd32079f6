// A DHCP client as a child process, and its command line.
//
// A command line is a heap array of heap strings with a null pointer at its end, freed by freeCommandline
// right after the child was started.
#include "zerotouch/dhcp/DhcpClient.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Child.h"
#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/ZeroTouchAgent.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

#define CLIENT_TRACE(level, text) KEL_TRACE(traceZeroTouchSm, level, "ZeroTouchSm::" << caller << text)

namespace ZeroTouch {

namespace {

constexpr int cannotBeRun = 127;

constexpr auto nDefaultEnvVars = static_cast<std::uint32_t>(defaultEnvVars.size());

void append(char** argv, U32Ptr idx, Kel::String const& text) {
  argv[*idx] = strdup(text.c_str());
  KEL_ASSERT(argv[*idx] != nullptr, "argv[idx]");
  ++*idx;
}

void appendAll(char** argv, U32Ptr idx, auto const& arguments) {
  for (auto const& argument : arguments) append(argv, idx, argument);
}

// "[ eth1, eth2 ]"
Kel::String bracketed(std::vector<Kel::String> const& names) {
  Kel::String result = "[ ";
  for (auto const& name : names) result.append(&name == names.data() ? "" : ", ").append(name);
  return result + " ]";
}

}  // namespace

DhcpClients::DhcpClients(ZeroTouchSm& sm)
    : dhclient({.name = "dhclient",
                .request = "dhcp request",
                .query = ZTP_DHCPv4_QUERY,
                .arguments = defaultDhclientArgs,
                .baseConfig = dhclientBaseConfigPath,
                .config = dhclientConfigPath,
                .version = "v4",
                .handleStatus = &ZeroTouchSm::handleDhclientChildProcessStatus,
                .intfIs = &ZeroTouchSmModel::dhclientIntfIs,
                .intfDelAll = &ZeroTouchSmModel::dhclientIntfDelAll,
                .releases = &ZeroTouchSmModel::dhclientReleases,
                .releasesIs = &ZeroTouchSmModel::dhclientReleasesIs},
               sm),
      dhclient6({.name = "dhclient6",
                 .request = "dhcp v6 request",
                 .query = ZTP_DHCPv6_QUERY,
                 .arguments = defaultDhclient6Args,
                 .baseConfig = dhclient6BaseConfigPath,
                 .config = dhclient6ConfigPath,
                 .version = "v6",
                 .handleStatus = &ZeroTouchSm::handleDhclient6ChildProcessStatus,
                 .intfIs = &ZeroTouchSmModel::dhclient6IntfIs,
                 .intfDelAll = &ZeroTouchSmModel::dhclient6IntfDelAll,
                 .releases = &ZeroTouchSmModel::dhclient6Releases,
                 .releasesIs = &ZeroTouchSmModel::dhclient6ReleasesIs},
                sm),
      dhclient6Stateless({.name = "dhclient6 stateless",
                          .request = "dhcp v6 information request",
                          .query = ZTP_STATELESS_DHCPv6_QUERY,
                          .arguments = defaultDhclient6StatelessArgs,
                          .baseConfig = dhclient6BaseConfigPath,
                          .config = dhclient6ConfigPath,
                          .version = "v6",
                          .handleStatus = &ZeroTouchSm::handleDhclient6StatelessChildProcessStatus,
                          .intfIs = &ZeroTouchSmModel::dhclient6StatelessIntfIs,
                          .intfDelAll = &ZeroTouchSmModel::dhclient6StatelessIntfDelAll},
                         sm) {}

void DhcpClient::childIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  childDel();
  if (!child) return;
  child_ = child;
  childStatus_ =
      Kel::Reactor(child_, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, &sm_, kind_.handleStatus);
}

void DhcpClient::childDel() {
  child_ = nullptr;
  childStatus_ = {};
  (sm_.*kind_.intfDelAll)();
}

bool DhcpClient::start(char** cmdLine, bool releases, std::vector<Kel::String> const& devices,
                       char const* caller) {
  end_.clear();
  isMissing_ = false;
  if (cmdLine == nullptr) return false;
  stop(caller);
  if (kind_.releasesIs != nullptr) (sm_.*kind_.releasesIs)(releases);
  CLIENT_TRACE(5, " - Execing: " << argvToString(cmdLine));
  childIs(runCmd(cmdLine, nullptr, nullptr));
  freeCommandline(cmdLine);
  for (auto const& device : devices) (sm_.*kind_.intfIs)(device);
  return true;
}

// The record of a process that has ended stays, since its handler is about to be called.
void DhcpClient::stop(char const* caller) {
  auto const process = child_;
  if (!process || process->ended()) return;
  CLIENT_TRACE(5, " - Killing running " << kind_.name << ", pid=" << process->pid());
  Kel::kill(process->pid(), SIGTERM);
  childDel();
}

bool DhcpClient::ended(char const* caller) {
  auto const process = child_;
  CLIENT_TRACE(5, " - " << kind_.name << " statusCode=" << process->statusCode());
  if (!process->ended()) return false;
  bool const killed = process->statusCode() == Kel::ChildSiginfo::killed;
  isMissing_ = !killed && process->exitStatus() == cannotBeRun;
  end_ = isMissing_ ? "cannot be run"
         : killed   ? Kel::format("was ended by a signal: %s", strsignal(process->signal()))
                    : Kel::format("has ended by itself with exit status %d", process->exitStatus());
  childDel();
  return true;
}

// The head and the client's own arguments; `idx` is the next free slot.
char** DhcpClient::commandline(std::uint32_t argc, char const* caller, U32Ptr idx) const {
  auto** const argv = static_cast<char**>(std::calloc(argc, sizeof(char*)));
  if (argv == nullptr) {
    CLIENT_TRACE(1, " - alloc failed");
    return nullptr;
  }
  sm_.formBasicCommandLine(argv, idx);
  appendAll(argv, idx, kind_.arguments);
  return argv;
}

char** DhcpClient::acquireCommandline(std::vector<Kel::String> const& devices, char const* caller,
                                      U32Ptr openSlot) const {
  if (devices.empty()) {
    CLIENT_TRACE(5, " - No interfaces found to send " << kind_.request << " on");
    return nullptr;
  }
  std::uint32_t const argc = sm_.findArgcForDhclientAcquireCommandline();
  std::uint32_t idx = 0;
  char** const argv = commandline(argc, caller, &idx);
  if (argv == nullptr) return nullptr;
  if (openSlot != nullptr) {
    *openSlot = idx;
  } else {
    appendAll(argv, &idx, devices);
  }
  KEL_ASSERT(idx < argc, openSlot != nullptr ? "*idx < argc" : "idx < argc");
  CLIENT_TRACE(5, " " << bracketed(devices));
  kind_.query.log(bracketed(devices));
  return argv;
}

char** DhcpClient::releaseCommandline(char const* caller) const {
  std::uint32_t idx = 0;
  char** const argv = commandline(ZeroTouchSm::findArgcForDhclientReleaseCommandline(), caller, &idx);
  if (argv == nullptr) return nullptr;
  append(argv, &idx, "-r");
  if (auto const intf = sm_.choosenIntf()) append(argv, &idx, intf->kernelIntfName());
  return argv;
}

void ZeroTouchSm::formBasicCommandLine(char** argv, U32Ptr idx) const {
  *idx = 0;
  char const* const client = std::getenv("ZEROTOUCH_DHCLIENT");
  append(argv, idx, client != nullptr ? client : defaultDhclientBin);
  appendAll(argv, idx, commonDhclientArgs);
  for (Kel::String const name : defaultEnvVars) {
    Kel::String value;
    if (name == "SYSNAME") {
      value = Kel::activityManager()->config()->systemName();
      if (value.empty()) value = "sy";
    } else if (char const* const set = std::getenv(name.c_str())) {
      value = set;
    } else {
      continue;
    }
    append(argv, idx, "-e");
    append(argv, idx, Kel::format("%s=%s", name, value));
  }
}

// The stateless client has the most arguments, so this is enough for all three.
std::uint32_t ZeroTouchSm::findArgcForDhclientAcquireCommandline() const {
  return nDefaultDhclient6StatelessArgs + nCommonDhclientArgs + 2 * nDefaultEnvVars + 2 +
         static_cast<std::uint32_t>(intfStatus().size());
}

// The last four are the program, "-r", one interface and the null pointer.
std::uint32_t ZeroTouchSm::findArgcForDhclientReleaseCommandline() {
  return nDefaultDhclientArgs + nCommonDhclientArgs + 2 * nDefaultEnvVars + 4;
}

void freeCommandline(void* cmdLine) {
  if (cmdLine == nullptr) return;
  auto** const argv = static_cast<char**>(cmdLine);
  for (char** argument = argv; *argument != nullptr; ++argument) std::free(*argument);
  std::free(argv);
}

namespace {

// Whether the process is a DHCP client: by the name of its executable, or, since a client may be a script, by
// the pid file among its arguments. True as well when /proc does not tell which executable a process has.
bool isDhcpClient(unsigned pid, Kel::String const& pidFilePath) {
  std::error_code error;
  auto const executable = std::filesystem::read_symlink(Kel::format("/proc/%u/exe", pid), error);
  if (error || executable.filename().native().find("dhclient") != Kel::String::npos) return true;
  std::ifstream arguments(Kel::format("/proc/%u/cmdline", pid));
  for (Kel::String argument; std::getline(arguments, argument, '\0');) {
    if (argument == pidFilePath) return true;
  }
  return false;
}

}  // namespace

// The id may have become another process's, which is left alone. The word that is examined is the label of
// the status file's first line, not the process's name. The file lives under /var/run, so the id is one of
// this boot.
void doKillRunningDhclient(char const* pidFilePath) {
  auto const contents = Kel::readFile(pidFilePath);
  if (!contents) return;
  unsigned pid = 0;
  std::istringstream(*contents) >> pid;
  KEL_TRACE(traceZeroTouchSm, 5, __func__ << " - Leftover pidfile found, pid=" << pid);
  std::ifstream status(Kel::format("/proc/%d/status", pid));
  if (!status || static_cast<pid_t>(pid) == getpid()) return;
  Kel::String word;
  status >> word;
  if (word.find("dhclient") != 0 && isDhcpClient(pid, pidFilePath)) {
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
