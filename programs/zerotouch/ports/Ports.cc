// ports: what takes part in provisioning, why the rest does not, and what DHCP has brought.
#include <functional>

#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/ports/OnePort.h"

namespace ZeroTouchCommand {

namespace {

// The neighbour that LLDP named, or else when something was heard.
std::string heardFrom(PortRow const& row) {
  std::string const name = row.neighbour + (row.neighbour.empty() ? "" : " ") + row.neighbourPort;
  return row.heard > 0 && !name.empty() ? name : row.lldp;
}

// A port as a row of the table. People are not shown the forwarding model, which the fourth column tells
// where it matters, and the operational state only where it differs from the link.
std::vector<std::string> cells(PortRow const& row) {
  std::string const state = row.link == row.oper ? row.link : row.link + ", is " + row.oper;
  return {row.port, row.device, state, row.registered, row.speed, heardFrom(row)};
}

Kel::Value json(PortRow const& row, std::vector<DhcpRow> const& dhcp) {
  Kel::ValueList list;
  for (auto const& one : dhcp) {
    list.push_back(Kel::ValueMap{{"family", one.family},
                                 {"client", one.client},
                                 {"report", one.report},
                                 {"bootFile", one.bootFile},
                                 {"chosen", one.chosen}});
  }
  return Kel::ValueMap{{"port", row.port},
                       {"device", row.device},
                       {"link", row.link},
                       {"operState", row.oper},
                       {"forwarding", row.forwarding},
                       {"registered", row.registered},
                       {"speed", row.speed},
                       {"nextSpeed", row.next},
                       {"lldpHeard", row.heard},
                       {"lldpNeighbour", row.neighbour},
                       {"lldpNeighbourPort", row.neighbourPort},
                       {"keepsSpeed", row.keepsSpeed},
                       {"dhcp", std::move(list)}};
}

// Calls `visit` with each port that is known: its name, its record, and whether it is a port-channel.
using Visit = std::function<void(std::string const& name, Kel::Value const& port, bool lag)>;
void eachPort(PortView const& view, Visit const& visit) {
  for (Kel::Value const* const directory : {&view.ports, &view.lags}) {
    auto const* const members = directory->as<Kel::ValueMap>();
    for (auto const& [name, port] : members != nullptr ? *members : Kel::ValueMap())
      visit(name, port, directory == &view.lags);
  }
}

void showOne(Context const& context, PortView const& view, std::string const& wanted) {
  bool found = false;
  std::vector<std::string> names;
  eachPort(view, [&](std::string const& name, Kel::Value const& port, bool lag) {
    PortRow const row = portRow(view, name, port, lag);
    names.insert(names.end(), {row.port, row.device});
    if (found || (row.port != wanted && row.device != wanted)) return;
    found = true;
    auto const dhcp = dhcpRows(view, row);
    if (!context.json) return print(everythingAbout(view, row, port, dhcp));
    Kel::ValueMap result = *json(row, dhcp).as<Kel::ValueMap>();
    Kel::Value const more = moreAbout(view, row, port);
    for (auto const& member : *more.as<Kel::ValueMap>()) result.push_back(member);
    printJson(result);
  });
  if (!found) throw Refused("there is no port '" + wanted + "'" + didYouMean(wanted, names));
}

}  // namespace

void showPorts(Context const& context, PortChoice const& choice) {
  PortView const view = fetchPorts(context);
  if (!choice.name.empty()) return showOne(context, view, choice.name);
  Rows rows{{"Port", "Device", "Link", "Takes part", "Speed", "LLDP"}};
  Rows dhcpTable{{"Port", "Family", "Client", "Report", "Boot file", "Chosen"}};
  Kel::ValueList list;
  std::size_t known = 0;
  eachPort(view, [&](std::string const& name, Kel::Value const& port, bool lag) {
    PortRow const row = portRow(view, name, port, lag);
    ++known;
    if (choice.up && row.link != "up") return;
    auto const dhcp = dhcpRows(view, row);
    rows.push_back(cells(row));
    for (auto const& one : dhcp)
      dhcpTable.push_back({one.port, one.family, one.client, one.report, one.bootFile, one.chosen});
    list.push_back(json(row, dhcp));
  });
  if (context.json) {
    printJson(list);
  } else if (known == 0) {
    print(
        "There are no ports. The host takes the devices that platform.toml selects, or those with "
        "hardware.\n");
  } else if (list.empty()) {
    print("No port has a link.\n");
  } else {
    print(table(rows));
    if (dhcpTable.size() > 1) print("\n" + table(dhcpTable));
  }
}

}  // namespace ZeroTouchCommand
