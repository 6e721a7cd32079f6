// The DHCP clients: one class, of which three objects run side by side (DHCPv4, DHCPv6, stateless DHCPv6),
// the files that they share with the agent and with their hook, and the arguments that they are started with.
#pragma once

#include <array>
#include <set>
#include <span>

#include "platform/kel/Log.h"
#include "platform/kel/Reactor.h"
#include "zerotouch/dhcp/ClientConfig.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

inline constexpr char const* defaultDhclientBin = "/sbin/dhclient";
inline constexpr char const* dhclientScriptFilePath = "/usr/bin/zerotouch-dhclient-script";

// What is made of the templates. Both IPv6 clients use the same file.
inline constexpr char const* dhclientConfigPath = "/var/run/zerotouch-dhclient.conf";
inline constexpr char const* dhclient6ConfigPath = "/var/run/zerotouch-dhclient6.conf";

// Written by the clients.
inline constexpr char const* dhclientPidFilePath = "/var/run/zerotouch-dhclient.pid";
inline constexpr char const* dhclientLeaseFilePath = "/var/run/zerotouch-dhclient.leases";
inline constexpr char const* dhclient6PidFilePath = "/var/run/zerotouch-dhclient6.pid";
inline constexpr char const* dhclient6LeaseFilePath = "/var/run/zerotouch-dhclient6.leases";
inline constexpr char const* dhclient6StatelessPidFilePath = "/var/run/zerotouch-dhclient6Stateless.pid";
inline constexpr char const* dhclient6StatelessLeaseFilePath = "/var/run/zerotouch-dhclient6Stateless.leases";

// The arguments of all clients, then those that say the family and the files of each.
inline constexpr std::array commonDhclientArgs = {"-d", "-q", "--ignore-preinit", "-sf",
                                                  dhclientScriptFilePath};
inline constexpr std::array defaultDhclientArgs = {
    "-4", "-cf", dhclientConfigPath, "-lf", dhclientLeaseFilePath, "-pf", dhclientPidFilePath};
inline constexpr std::array defaultDhclient6Args = {
    "-6", "-cf", dhclient6ConfigPath, "-lf", dhclient6LeaseFilePath, "-pf", dhclient6PidFilePath};
inline constexpr std::array defaultDhclient6StatelessArgs = {"-6",  "-S",
                                                             "-cf", dhclient6ConfigPath,
                                                             "-lf", dhclient6StatelessLeaseFilePath,
                                                             "-pf", dhclient6StatelessPidFilePath};
inline constexpr std::uint32_t nCommonDhclientArgs = commonDhclientArgs.size();
inline constexpr std::uint32_t nDefaultDhclientArgs = defaultDhclientArgs.size();
inline constexpr std::uint32_t nDefaultDhclient6Args = defaultDhclient6Args.size();
inline constexpr std::uint32_t nDefaultDhclient6StatelessArgs = defaultDhclient6StatelessArgs.size();

// One client: at most one process at a time, which asks for an address or hands one back. What it does stands
// in the state machine's attributes.
class DhcpClient {
 public:
  // What sets the clients apart.
  struct Kind {
    char const* name;     // in traces
    char const* request;  // what it sends, in traces
    Kel::LogHandle& query;
    std::span<char const* const> arguments;
    char const* baseConfig;
    char const* config;
    char const* version;  // of the identifier statements in the configuration
    void (ZeroTouchSm::*handleStatus)();
    // The attributes for the devices it serves and for whether it releases; the latter null for a client that
    // never does.
    void (ZeroTouchSmModel::*intfIs)(Kel::String const& device);
    void (ZeroTouchSmModel::*intfDelAll)();
    bool (ZeroTouchSmModel::*releases)() const = nullptr;
    void (ZeroTouchSmModel::*releasesIs)(bool) = nullptr;
  };

  // The state machine must outlive the client.
  DhcpClient(Kind const& kind, ZeroTouchSm& sm) : kind_(kind), sm_(sm) {}

  // The record of the process, from its start until it ends or is stopped; else null.
  Kel::Ptr<Kel::ChildSiginfo const> const& child() const { return child_; }
  void childIs(Kel::Ptr<Kel::ChildSiginfo> const& child);
  void childDel();
  bool releases() const { return child() && kind_.releases != nullptr && (sm_.*kind_.releases)(); }

  // `caller` is the function that traces name. Frees the command line. False when that is null. A process
  // that runs is stopped first: two must not share a lease file.
  bool start(char** cmdLine, bool releases, std::vector<Kel::String> const& devices, char const* caller);
  // Asks a process that runs to end, and forgets it; nothing when none runs.
  void stop(char const* caller);
  // To be called when the status of the process has changed: forgets one that has ended, and says so.
  bool ended(char const* caller);
  // How the process ended that was started last, as in "has ended with exit status 1"; "" while it runs, and
  // when it was stopped. Only a client that nobody could run exits with 127.
  Kel::String const& end() const { return end_; }
  bool isMissing() const { return isMissing_; }

  // A command line to ask on `devices`, announced by an event; null when there are none. With `openSlot` the
  // device is left for the caller to write there.
  char** acquireCommandline(std::vector<Kel::String> const& devices, char const* caller,
                            U32Ptr openSlot = nullptr) const;
  char** releaseCommandline(char const* caller) const;

  // Appends the template and the identifier statements to the configuration. When the disk has no room for
  // all of it the file stays as it was, and completeConfig tries again.
  void createConfig();
  void completeConfig();
  // Has a DHCPv4 client that is started from now on, until the configuration is created anew, hear no answers
  // from that address. False when it does so already, or when the disk has no room for that.
  bool reject(Kel::String const& server);

 private:
  char** commandline(std::uint32_t argc, char const* caller, U32Ptr idx) const;

  Kind kind_;
  ZeroTouchSm& sm_;
  Kel::Ptr<Kel::ChildSiginfo const> child_;
  Kel::Reactor childStatus_;
  bool configCut_ = false;
  std::set<Kel::String> rejected_;
  Kel::String end_;
  bool isMissing_ = false;
};

// The three of one state machine.
struct DhcpClients {
  explicit DhcpClients(ZeroTouchSm& sm);

  DhcpClient dhclient;
  DhcpClient dhclient6;
  DhcpClient dhclient6Stateless;
};

// The kernel's names of their devices.
std::vector<Kel::String> kernelNames(Kel::Collection<Wire::IntfId, Kel::Ptr<IntfStatus>> const& interfaces);

// Appends the template to the generated file, which is made when missing. A template that cannot be read to
// its end adds nothing. Returns how many bytes it had to add, whether or not the disk had room for them;
// nothing when the generated file cannot be opened.
std::optional<std::size_t> appendTemplate(char const* base, char const* generated);

// Frees a command line of the clients: every string, then the array.
void freeCommandline(void* cmdLine);

// Ends the client that an earlier run left behind, whose process the pid file names, and removes the pid
// file. Another program that has the id by now is left alone.
void doKillRunningDhclient(char const* pidFilePath);

}  // namespace ZeroTouch
