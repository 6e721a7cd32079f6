// What DHCP has brought on a port, by family.
#pragma once

#include "platform/statebase/Client.h"

namespace ZeroTouchCommand {

// What the host knows, fetched at once.
struct DhcpView {
  Kel::Value results4, results6;                 // the records, by device
  Kel::Value served4, served6, servedStateless;  // devices with a client that runs
  Kel::Value members6, waitingStateless;         // interfaces that DHCPv6 is for
  bool releases4 = false, releases6 = false;     // whether that client hands a lease back
  std::string chosen;                            // interface; empty for none
};

DhcpView fetchDhcp(Statebase::Client& host);

struct DhcpRow {
  std::string port, family, client, report, bootFile, chosen;
};

// None for a port that takes no part.
std::vector<DhcpRow> dhcpRows(DhcpView const& view, std::string const& port, std::string const& device,
                              bool linkUp);

}  // namespace ZeroTouchCommand
