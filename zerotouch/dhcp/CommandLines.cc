// The command lines of the DHCP clients, and which interfaces each is told to serve.
//
// A command line is a heap array of heap strings with a null pointer at its end, freed by freeCommandline
// right after the child was started.
#include <array>
#include <cstdlib>
#include <cstring>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/ZeroTouchAgent.h"
#include "zerotouch/dhcp/DhclientFiles.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

constexpr std::array commonDhclientArgs = {"-d", "-q", "--ignore-preinit", "-sf", dhclientScriptFilePath};
constexpr std::array defaultDhclientArgs = {
    "-4", "-cf", dhclientConfigPath, "-lf", dhclientLeaseFilePath, "-pf", dhclientPidFilePath};
constexpr std::array defaultDhclient6Args = {
    "-6", "-cf", dhclient6ConfigPath, "-lf", dhclient6LeaseFilePath, "-pf", dhclient6PidFilePath};
constexpr std::array defaultDhclient6StatelessArgs = {"-6",  "-S",
                                                      "-cf", dhclient6ConfigPath,
                                                      "-lf", dhclient6StatelessLeaseFilePath,
                                                      "-pf", dhclient6StatelessPidFilePath};

constexpr auto nCommonDhclientArgs = static_cast<std::uint32_t>(commonDhclientArgs.size());
constexpr auto nDefaultDhclientArgs = static_cast<std::uint32_t>(defaultDhclientArgs.size());
constexpr auto nDefaultDhclient6StatelessArgs =
    static_cast<std::uint32_t>(defaultDhclient6StatelessArgs.size());
constexpr auto nDefaultEnvVars = static_cast<std::uint32_t>(defaultEnvVars.size());

void append(char** argv, U32Ptr idx, Kel::String const& text) {
  argv[*idx] = strdup(text.c_str());
  KEL_ASSERT(argv[*idx] != nullptr, "argv[idx]");
  ++*idx;
}

void appendAll(char** argv, U32Ptr idx, auto const& arguments) {
  for (char const* const argument : arguments) append(argv, idx, argument);
}

char** alloc(std::uint32_t argc, char const* caller) {
  auto** const argv = static_cast<char**>(std::calloc(argc, sizeof(char*)));
  if (argv == nullptr) KEL_TRACE(traceZeroTouchSm, 1, "ZeroTouchSm::" << caller << " - alloc failed");
  return argv;
}

// "[ eth1, eth2 ]"
Kel::String bracketed(std::vector<Kel::String> const& names) {
  Kel::String result = "[ ";
  for (auto const& name : names) result.append(&name == names.data() ? "" : ", ").append(name);
  return result + " ]";
}

std::vector<Kel::String> kernelNames(auto const& interfaces) {
  std::vector<Kel::String> result;
  for (auto const& [intfId, intf] : interfaces) result.push_back(intf->kernelIntfName());
  return result;
}

}  // namespace

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

void freeCommandline(void* cmdLine) {
  if (cmdLine == nullptr) return;
  auto** const argv = static_cast<char**>(cmdLine);
  for (char** argument = argv; *argument != nullptr; ++argument) std::free(*argument);
  std::free(argv);
}

// The stateless client's arguments are the most: one size serves all three.
std::uint32_t ZeroTouchSm::findArgcForDhclientAcquireCommandline() const {
  return nDefaultDhclient6StatelessArgs + nCommonDhclientArgs + 2 * nDefaultEnvVars + 2 +
         static_cast<std::uint32_t>(intfStatus().size());
}

// Room for the program, "-r", one interface and the null pointer.
std::uint32_t ZeroTouchSm::findArgcForDhclientReleaseCommandline() {
  return nDefaultDhclientArgs + nCommonDhclientArgs + 2 * nDefaultEnvVars + 4;
}

std::vector<Kel::String> ZeroTouchSm::dhcpDevices() const {
  std::vector<Kel::String> result;
  for (auto const& [intfId, intf] : intfStatus()) {
    if (ignoredAsManagement(intf->intfName())) continue;
    auto const status = aisd()->intfStatus(intfId);
    if (!status || status->forwardingModel() == Interface::IntfForwardingModel::bridged) continue;
    bool const unusable = status->operStatus() == Interface::OperStatus::down &&
                          status->forwardingModel() != Interface::IntfForwardingModel::unconfigured;
    if (unusable && std::getenv("ZEROTOUCH_IGNORE_OPERSTATUS") == nullptr) continue;
    result.push_back(status->deviceName());
  }
  return result;
}

char** ZeroTouchSm::allocDhclientAcquireCommandline() const {
  std::uint32_t const argc = findArgcForDhclientAcquireCommandline();
  char** const argv = alloc(argc, __func__);
  if (argv == nullptr) return nullptr;
  std::uint32_t idx = 0;
  formBasicCommandLine(argv, &idx);
  appendAll(argv, &idx, defaultDhclientArgs);
  auto const names = dhcpDevices();
  if (names.empty()) {
    SM_TRACE(5, " - No interfaces found to send dhcp request on");
    freeCommandline(argv);
    return nullptr;
  }
  for (auto const& name : names) append(argv, &idx, name);
  KEL_ASSERT(idx < argc, "idx < argc");
  SM_TRACE(5, " " << bracketed(names));
  ZTP_DHCPv4_QUERY.log(bracketed(names));
  return argv;
}

char** ZeroTouchSm::allocDhclient6AcquireCommandline() const {
  auto const names = kernelNames(intfStatus6());
  if (names.empty()) {
    SM_TRACE(5, " - No interfaces found to send dhcp v6 request on");
    return nullptr;
  }
  std::uint32_t const argc = findArgcForDhclientAcquireCommandline();
  char** const argv = alloc(argc, __func__);
  if (argv == nullptr) return nullptr;
  std::uint32_t idx = 0;
  formBasicCommandLine(argv, &idx);
  appendAll(argv, &idx, defaultDhclient6Args);
  for (auto const& name : names) append(argv, &idx, name);
  KEL_ASSERT(idx < argc, "idx < argc");
  SM_TRACE(5, " " << bracketed(names));
  ZTP_DHCPv6_QUERY.log(bracketed(names));
  return argv;
}

char** ZeroTouchSm::allocDhclient6StatelessAcquireCommandline(U32Ptr idx) const {
  auto const names = kernelNames(intfStatus6Stateless());
  if (names.empty()) {
    SM_TRACE(5, " - No interfaces found to send dhcp v6 information request on");
    return nullptr;
  }
  std::uint32_t const argc = findArgcForDhclientAcquireCommandline();
  char** const argv = alloc(argc, __func__);
  if (argv == nullptr) return nullptr;
  formBasicCommandLine(argv, idx);
  appendAll(argv, idx, defaultDhclient6StatelessArgs);
  KEL_ASSERT(*idx < argc, "*idx < argc");
  // One interface at a time: the first.
  SM_TRACE(5, " " << bracketed({names.front()}));
  ZTP_STATELESS_DHCPv6_QUERY.log(bracketed({names.front()}));
  return argv;
}

char** ZeroTouchSm::allocReleaseCommandline(bool six, char const* caller) const {
  char** const argv = alloc(findArgcForDhclientReleaseCommandline(), caller);
  if (argv == nullptr) return nullptr;
  std::uint32_t idx = 0;
  formBasicCommandLine(argv, &idx);
  appendAll(argv, &idx, six ? defaultDhclient6Args : defaultDhclientArgs);
  append(argv, &idx, "-r");
  if (choosenIntf()) append(argv, &idx, choosenIntf()->kernelIntfName());
  return argv;
}

char** ZeroTouchSm::allocDhclientReleaseCommandline() const {
  return allocReleaseCommandline(false, __func__);
}

char** ZeroTouchSm::allocDhclient6ReleaseCommandline() const {
  return allocReleaseCommandline(true, __func__);
}

}  // namespace ZeroTouch
