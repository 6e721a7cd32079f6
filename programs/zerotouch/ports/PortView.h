// What the host knows of the ports, and what is told of each.
#pragma once

#include <string>
#include <vector>

#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

// What the host knows, read at one moment.
struct PortView {
  Kel::Seconds now = 0;
  Kel::Value ports, lags, configs;
  Kel::Value phyRecords, registered, noSpeedChangePool, lldpPool, nextMode, nextAutoneg;
  Kel::Value results4, results6;                 // what DHCP has brought, by device
  Kel::Value served4, served6, servedStateless;  // devices with a client that runs
  Kel::Value members6, waitingStateless;         // interfaces that DHCPv6 is for
  Kel::Value releases4, releases6;               // whether that client hands a lease back
  Kel::Value standsBack, ignored4, ignored6;  // ports and devices whose answers wait or do not count, and why
  Kel::Value chosenIntf, chosenAnswer;
  Kel::Value advertisements;  // of IPv6 routers, by port
  Kel::Value reports;         // what ports and DHCP have reported, by number
  std::string chosen;         // its name, or ""
};

PortView fetchPorts(Context const& context);

// A port as it is shown.
struct PortRow {
  std::string port, device, link, oper, forwarding, registered, speed, next, lldp, keepsSpeed;
  std::string neighbour, neighbourPort;  // as LLDP named them, or ""
  Kel::Seconds heard;                    // LLDP; 0 for never
};

PortRow portRow(PortView const& view, std::string const& name, Kel::Value const& port, bool lag);

// What DHCP has brought on a port, for one family.
struct DhcpRow {
  std::string port, family, client, report, bootFile, chosen;
};

// One row for each family that is asked on the port; none for a port that does not take part.
std::vector<DhcpRow> dhcpRows(PortView const& view, PortRow const& port);

// The speeds of a set of link modes, as in "10g, 25g"; "" when it is empty.
std::string speedsOf(Kel::Value const& modes);

}  // namespace ZeroTouchCommand
