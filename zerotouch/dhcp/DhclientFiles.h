// The files that the agent, the DHCP clients and their hook share.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

inline constexpr char const* defaultDhclientBin = "/sbin/dhclient";
inline constexpr char const* dhclientScriptFilePath = "/usr/bin/zerotouch-dhclient-script";

// Templates, installed with the system, and what is made of them. Both IPv6 clients use the same file.
inline constexpr char const* dhclientBaseConfigPath = "/usr/share/ZeroTouch/zerotouch-dhclient.conf";
inline constexpr char const* dhclientConfigPath = "/var/run/zerotouch-dhclient.conf";
inline constexpr char const* dhclient6BaseConfigPath = "/usr/share/ZeroTouch/zerotouch-dhclient6.conf";
inline constexpr char const* dhclient6ConfigPath = "/var/run/zerotouch-dhclient6.conf";

// Written by the clients.
inline constexpr char const* dhclientPidFilePath = "/var/run/zerotouch-dhclient.pid";
inline constexpr char const* dhclientLeaseFilePath = "/var/run/zerotouch-dhclient.leases";
inline constexpr char const* dhclient6PidFilePath = "/var/run/zerotouch-dhclient6.pid";
inline constexpr char const* dhclient6LeaseFilePath = "/var/run/zerotouch-dhclient6.leases";
inline constexpr char const* dhclient6StatelessPidFilePath = "/var/run/zerotouch-dhclient6Stateless.pid";
inline constexpr char const* dhclient6StatelessLeaseFilePath = "/var/run/zerotouch-dhclient6Stateless.leases";

// Appends the template to the generated file, which is made when missing. A template that cannot be read adds
// nothing. False when the generated file cannot be opened.
bool appendTemplate(char const* base, char const* generated);

// Ends a client that an earlier run left behind, told by its pid file.
void doKillRunningDhclient(char const* pidFilePath);

}  // namespace ZeroTouch
