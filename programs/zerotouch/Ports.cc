// ports: what takes part in provisioning, why the rest does not, and what DHCP has brought.
#include <map>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// What the host knows of DHCP.
struct DhcpView {
  Kel::Value results4, results6;                 // the records, by device
  Kel::Value served4, served6, servedStateless;  // devices with a client that runs
  Kel::Value members6, waitingStateless;         // interfaces that DHCPv6 is for
  bool releases4 = false, releases6 = false;     // whether that client hands a lease back
  std::string chosen;                            // interface; empty for none
};

// What the host knows, fetched at once.
struct View {
  Kel::Seconds now = 0;
  Kel::Value ports, lags, configs;
  DhcpView dhcp;
  Kel::Value phyRecords, registered, noSpeedChangePool, lldpPool, nextMode, nextAutoneg;
};

DhcpView fetchDhcp(Statebase::Client& host) {
  auto const get = [&host](std::string const& path) { return host.call("get", {{"path", path}}); };
  std::string const sm = "/zerotouch/sm/";
  DhcpView view;
  view.results4 = get("/zerotouch/dhcpStatus/intfDhcpStatus");
  view.results6 = get("/zerotouch/dhcpStatus/intfDhcp6Status");
  view.served4 = get(sm + "dhclientIntf");
  view.served6 = get(sm + "dhclient6Intf");
  view.servedStateless = get(sm + "dhclient6StatelessIntf");
  view.members6 = get(sm + "intfStatus6");
  view.waitingStateless = get(sm + "intfStatus6Stateless");
  view.releases4 = isTrue(get(sm + "dhclientReleases"));
  view.releases6 = isTrue(get(sm + "dhclient6Releases"));
  Kel::Value const chosen = get(sm + "choosenIntf");
  if (chosen != Kel::Value()) view.chosen = text(chosen);
  return view;
}

View fetch(Context const& context) {
  Statebase::Client host(context.socketPath);
  auto const get = [&host](char const* path) { return host.call("get", {{"path", path}}); };
  View view;
  view.now = number(host.call("time", {}));
  view.ports = get("/interface/status/ethPhy/intfStatus");
  view.lags = get("/interface/status/ethLag/intfStatus");
  view.configs = get("/interface/config/ethPhy/intfConfig");
  view.phyRecords = get("/zerotouch/sm/phyIntfStatus");
  view.registered = get("/zerotouch/sm/intfStatus");
  view.noSpeedChangePool = get("/zerotouch/sm/intfNoSpeedChangePool");
  view.lldpPool = get("/zerotouch/sm/intfLldpPool");
  view.nextMode = get("/zerotouch/sm/nextLinkModeForIntf");
  view.nextAutoneg = get("/zerotouch/sm/nextAnegModeForIntf");
  view.dhcp = fetchDhcp(host);
  return view;
}

// A speed as people write it: "25g" for linkMode25G, and "auto 25g" when only that speed is negotiated.
std::string speed(std::string const& mode, bool autoneg) {
  static std::map<std::string, std::string> const words{
      {"linkModeAutoneg", "auto"}, {"linkModeAutoneg40G", "auto 40g"},
      {"linkMode10G", "10g"},      {"linkMode25G", "25g"},
      {"linkMode40G", "40g"},      {"linkMode50G", "50g"},
      {"linkMode50G1", "50g-1"},   {"linkMode100G", "100g"},
      {"linkMode100G2", "100g-2"}, {"linkMode200G4", "200g-4"},
      {"linkMode400G8", "400g-8"}};
  if (mode.empty() || mode == "null") return "-";
  auto const word = words.find(mode);
  if (word == words.end()) return "default";
  if (mode.starts_with("linkModeAutoneg")) return word->second;
  return (autoneg ? "auto " : "") + word->second;
}

// The speed that a port is set to. Where speeds are negotiated, the one that is advertised is named too.
std::string speedNow(Kel::Value const& config) {
  std::string const mode = text(at(config, {"linkModeLocal"}));
  if (mode != "linkModeAutoneg") return speed(mode, false);
  if (auto const* const advertised = at(config, {"advertisedModesLocal"}).as<Kel::ValueMap>()) {
    for (auto const& [name, on] : *advertised) {
      if (isTrue(on)) return speed("linkM" + name.substr(1), true);
    }
  }
  return speed(mode, true);
}

std::string registration(View const& view, std::string const& name, Kel::Value const& port, bool known) {
  if (contains(view.registered, name)) return "yes";
  std::string const model = text(at(port, {"forwardingModel"}));
  if (model != "routed") return "no, " + model;
  return known ? "no, not looked at yet" : "no, not taken in";
}

// Why the speed of a port is left alone for now, or "-".
std::string spared(View const& view, std::string const& name, Kel::Value const& port) {
  if (contains(view.lldpPool, name)) return "hears LLDP";
  if (!contains(view.noSpeedChangePool, name)) return "-";
  return isTrue(at(port, {"active"})) ? "link came up" : "inactive";
}

struct Row {
  std::string port, device, link, oper, forwarding, registered, speed, next, lldp, keepsSpeed;
  Kel::Seconds heard;  // LLDP; 0 for never

  // People are not shown the forwarding model, which the fourth column tells where it matters, and the
  // operational state only where it differs from the link.
  std::vector<std::string> cells() const {
    std::string const state = link == oper ? link : link + ", is " + oper;
    return {port, device, state, registered, speed, next, lldp, keepsSpeed};
  }
  Kel::Value json(Kel::ValueList dhcp) const {
    return Kel::ValueMap{{"port", port},
                         {"device", device},
                         {"link", link},
                         {"operState", oper},
                         {"forwarding", forwarding},
                         {"registered", registered},
                         {"speed", speed},
                         {"nextSpeed", next},
                         {"lldpHeard", heard},
                         {"keepsSpeed", keepsSpeed},
                         {"dhcp", std::move(dhcp)}};
  }
};

Row row(View const& view, std::string const& name, Kel::Value const& port, bool lag) {
  Kel::Value const& record = at(view.phyRecords, {name});
  double const heard = number(at(record, {"intfPamSm", name, "heardTime"}));
  bool const known = lag || record != Kel::Value();
  return {.port = name,
          .device = text(at(port, {"deviceName"})),
          .link = text(at(port, {"linkStatus"})),
          .oper = text(at(port, {"operStatus"})),
          .forwarding = text(at(port, {"forwardingModel"})),
          .registered = registration(view, name, port, known),
          .speed = speedNow(at(view.configs, {name})),
          .next = speed(text(at(view.nextMode, {name})), isTrue(at(view.nextAutoneg, {name}))),
          .lldp = heard > 0 ? duration(view.now - heard) + " ago" : "never",
          .keepsSpeed = spared(view, name, port),
          .heard = heard};
}

struct DhcpRow {
  std::string port, family, client, report, bootFile, chosen;
};

bool hasBootFile(Kel::Value const& result) { return !memberText(result, "bootFileName").empty(); }

std::string whyNotChosen(DhcpView const& view, Kel::Value const& result, bool asks, bool linkUp) {
  std::string const reason = memberText(result, "reason");
  if (hasBootFile(result)) return view.chosen.empty() ? "not yet" : "no, " + view.chosen + " was first";
  if (reason == "FAIL" || reason == "TIMEOUT") return "no, nobody answered";
  if (result != Kel::Value()) return "no, the answer names no boot file";
  if (asks) return "no answer yet";
  if (!linkUp) return "not asked, no link";
  return view.chosen.empty() ? "not asked now" : "no, " + view.chosen + " was first";
}

DhcpRow dhcpRow(DhcpView const& view, std::string const& port, Kel::Value const& result, std::string family,
                std::string client, bool linkUp) {
  bool const asks = client == "asks";
  std::string const reason = memberText(result, "reason");
  std::string const bootFile = memberText(result, "bootFileName");
  return {.port = port,
          .family = std::move(family),
          .client = std::move(client),
          .report = reason.empty() ? "-" : reason,
          .bootFile = bootFile.empty() ? "-" : bootFile,
          .chosen = whyNotChosen(view, result, asks, linkUp)};
}

// Says on the port that was chosen which of the two families was taken.
void settleChosen(std::vector<DhcpRow>& rows, Kel::Value const& four, Kel::Value const& six) {
  if (hasBootFile(four)) {
    rows[0].chosen = "yes";
    if (rows.size() > 1) rows[1].chosen = "no, DHCPv4 goes first";
  } else if (hasBootFile(six)) {
    if (four == Kel::Value()) rows[0].chosen = "no, DHCPv6 was first";
    rows[1].chosen = "yes";
  } else {
    for (auto& row : rows) row.chosen = row.report == "-" ? "yes, its lease was given back" : row.chosen;
  }
}

// What DHCP has brought on a port, one row for each family that is asked there.
std::vector<DhcpRow> dhcpRows(DhcpView const& view, std::string const& port, std::string const& device,
                              bool linkUp) {
  Kel::Value const& four = at(view.results4, {device});
  Kel::Value const& six = at(view.results6, {device});
  auto const client = [&](Kel::Value const& served, bool releases) {
    return !contains(served, device) ? "-" : releases ? "releases" : "asks";
  };
  std::vector<DhcpRow> rows{
      dhcpRow(view, port, four, "DHCPv4", client(view.served4, view.releases4), linkUp)};
  bool const waits = contains(view.waitingStateless, port);
  bool const stateless = waits || contains(view.servedStateless, device);
  if (stateless) {
    rows.push_back(dhcpRow(view, port, six, "DHCPv6 stateless", waits ? "waits its turn" : "asks", linkUp));
  } else if (contains(view.members6, port) || contains(view.served6, device) || six != Kel::Value()) {
    rows.push_back(dhcpRow(view, port, six, "DHCPv6", client(view.served6, view.releases6), linkUp));
  }
  if (view.chosen == port) settleChosen(rows, four, six);
  return rows;
}

// Adds to the table what DHCP has brought on a port, and returns the same for programs.
Kel::ValueList dhcp(View const& view, Row const& port, Rows& table) {
  Kel::ValueList list;
  if (!contains(view.registered, port.port)) return list;
  for (auto const& one : dhcpRows(view.dhcp, port.port, port.device, port.link == "up")) {
    table.push_back({one.port, one.family, one.client, one.report, one.bootFile, one.chosen});
    list.push_back(Kel::ValueMap{{"family", one.family},
                                 {"client", one.client},
                                 {"report", one.report},
                                 {"bootFile", one.bootFile},
                                 {"chosen", one.chosen}});
  }
  return list;
}

}  // namespace

void showPorts(Context const& context) {
  View const view = fetch(context);
  Rows rows{{"Port", "Device", "Link", "Takes part", "Speed", "Next", "LLDP", "Keeps speed"}};
  Rows dhcpTable{{"Port", "Family", "Client", "Report", "Boot file", "Chosen"}};
  Kel::ValueList list;
  for (auto const* const directory : {&view.ports, &view.lags}) {
    auto const* const members = directory->as<Kel::ValueMap>();
    for (auto const& [name, port] : members != nullptr ? *members : Kel::ValueMap()) {
      Row const one = row(view, name, port, directory == &view.lags);
      rows.push_back(one.cells());
      list.push_back(one.json(dhcp(view, one, dhcpTable)));
    }
  }
  if (context.json) {
    printJson(list);
  } else if (list.empty()) {
    print(
        "There are no ports. The host takes the devices that platform.toml selects, or those with "
        "hardware.\n");
  } else {
    print(table(rows));
    if (dhcpTable.size() > 1) print("\n" + table(dhcpTable));
  }
}

}  // namespace ZeroTouchCommand
