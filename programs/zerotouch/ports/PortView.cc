#include "programs/zerotouch/ports/PortView.h"

#include <map>

#include "platform/model/values/Grammar.h"
#include "programs/zerotouch/Output.h"

namespace ZeroTouchCommand {

namespace {

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

std::string registration(PortView const& view, std::string const& name, Kel::Value const& port, bool known) {
  if (contains(view.registered, name)) return "yes";
  std::string const model = text(at(port, {"forwardingModel"}));
  if (model != "routed") return "no, " + model;
  return known ? "no, not looked at yet" : "no, not taken in";
}

// Why the speed of a port is left alone for now, or "-".
std::string spared(PortView const& view, std::string const& name, Kel::Value const& port) {
  if (contains(view.lldpPool, name)) return "hears LLDP";
  if (!contains(view.noSpeedChangePool, name)) return "-";
  return isTrue(at(port, {"active"})) ? "link came up" : "inactive";
}

bool hasBootFile(Kel::Value const& result) { return !memberText(result, "bootFileName").empty(); }

// `standsBack` and `ignored`: why, or "".
std::string whyNotChosen(PortView const& view, Kel::Value const& result, bool asks, bool linkUp,
                         std::string const& standsBack, std::string const& ignored) {
  std::string const reason = memberText(result, "reason");
  if (!ignored.empty() && result != Kel::Value()) return "no, " + ignored;
  if (!standsBack.empty() && view.chosen.empty())
    return (hasBootFile(result) ? "not yet, waits for others: " : "waits for others: ") + standsBack;
  if (hasBootFile(result)) return view.chosen.empty() ? "not yet" : "no, " + view.chosen + " was first";
  if (reason == "FAIL" || reason == "TIMEOUT") return "no, nobody answered";
  if (result != Kel::Value()) return "no, the answer names no boot file";
  if (asks) return "no answer yet";
  if (!linkUp) return "not asked, no link";
  return view.chosen.empty() ? "not asked now" : "no, " + view.chosen + " was first";
}

DhcpRow dhcpRow(PortView const& view, std::string const& port, Kel::Value const& result, std::string family,
                std::string client, bool linkUp, std::string const& ignored) {
  bool const asks = client == "asks";
  std::string const reason = memberText(result, "reason");
  std::string const bootFile = Grammar::withoutPasswords(memberText(result, "bootFileName"));
  return {.port = port,
          .family = std::move(family),
          .client = std::move(client),
          .report = reason.empty() ? "-" : reason,
          .bootFile = bootFile.empty() ? "-" : bootFile,
          .chosen = whyNotChosen(view, result, asks, linkUp, memberText(view.standsBack, port), ignored)};
}

// Says on the port that was chosen which family's answer was taken. The agent keeps that, since the record of
// the answer goes when its lease is handed back.
void settleChosen(std::vector<DhcpRow>& rows, std::string const& family) {
  if (family.empty()) return;
  std::size_t const winner = family == "dhcpv4" ? 0 : 1;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    auto& row = rows[i];
    if (i == winner) {
      row.chosen = row.report == "-" ? "yes, its lease was given back" : "yes";
    } else if (winner == 0) {
      row.chosen = "no, DHCPv4 goes first";
    } else if (row.report == "-" || row.bootFile != "-") {
      row.chosen = "no, DHCPv6 was first";
    }
  }
}

}  // namespace

PortView fetchPorts(Context const& context) {
  PortView view;
  std::pair<char const*, Kel::Value*> const parts[] = {
      {"/interface/status/ethPhy/intfStatus", &view.ports},
      {"/interface/status/ethLag/intfStatus", &view.lags},
      {"/interface/config/ethPhy/intfConfig", &view.configs},
      {"/zerotouch/sm/phyIntfStatus", &view.phyRecords},
      {"/zerotouch/sm/intfStatus", &view.registered},
      {"/zerotouch/sm/intfNoSpeedChangePool", &view.noSpeedChangePool},
      {"/zerotouch/sm/intfLldpPool", &view.lldpPool},
      {"/zerotouch/sm/nextLinkModeForIntf", &view.nextMode},
      {"/zerotouch/sm/nextAnegModeForIntf", &view.nextAutoneg},
      {"/zerotouch/dhcpStatus/intfDhcpStatus", &view.results4},
      {"/zerotouch/dhcpStatus/intfDhcp6Status", &view.results6},
      {"/zerotouch/sm/dhclientIntf", &view.served4},
      {"/zerotouch/sm/dhclient6Intf", &view.served6},
      {"/zerotouch/sm/dhclient6StatelessIntf", &view.servedStateless},
      {"/zerotouch/sm/intfStatus6", &view.members6},
      {"/zerotouch/sm/intfStatus6Stateless", &view.waitingStateless},
      {"/zerotouch/sm/dhclientReleases", &view.releases4},
      {"/zerotouch/sm/dhclient6Releases", &view.releases6},
      {"/zerotouch/sm/standsBack", &view.standsBack},
      {"/zerotouch/sm/ignoredAnswer", &view.ignored4},
      {"/zerotouch/sm/ignoredAnswer6", &view.ignored6},
      {"/zerotouch/sm/choosenIntf", &view.chosenIntf},
      {"/zerotouch/sm/chosenAnswer", &view.chosenAnswer},
      {"/routerAdvt/status/raPacket", &view.advertisements},
      {"/log/history/port", &view.reports}};
  Snapshot::Paths paths;
  for (auto const& [path, value] : parts) paths.emplace_back(path);
  Statebase::Client host(context.socketPath);
  Snapshot const snapshot(host, paths);
  for (auto const& [path, value] : parts) *value = snapshot[path];
  view.now = snapshot.time();
  if (view.chosenIntf != Kel::Value()) view.chosen = text(view.chosenIntf);
  return view;
}

PortRow portRow(PortView const& view, std::string const& name, Kel::Value const& port, bool lag) {
  Kel::Value const& record = at(view.phyRecords, {name});
  Kel::Value const& watch = at(record, {"intfPamSm", name});
  double const heard = number(at(watch, {"heardTime"}));
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
          .neighbour = memberText(watch, "neighbour"),
          .neighbourPort = memberText(watch, "neighbourPort"),
          .heard = heard};
}

std::string speedsOf(Kel::Value const& modes) {
  std::string result;
  if (auto const* const members = modes.as<Kel::ValueMap>()) {
    for (auto const& [name, on] : *members) {
      if (isTrue(on)) result += (result.empty() ? "" : ", ") + speed("linkM" + name.substr(1), false);
    }
  }
  return result;
}

std::vector<DhcpRow> dhcpRows(PortView const& view, PortRow const& row) {
  std::string const& port = row.port;
  std::string const& device = row.device;
  bool const linkUp = row.link == "up";
  if (!contains(view.registered, port)) return {};
  Kel::Value const& four = at(view.results4, {device});
  Kel::Value const& six = at(view.results6, {device});
  auto const client = [&](Kel::Value const& served, bool releases) {
    return !contains(served, device) ? "-" : releases ? "releases" : "asks";
  };
  std::vector<DhcpRow> rows{dhcpRow(view, port, four, "DHCPv4", client(view.served4, isTrue(view.releases4)),
                                    linkUp, memberText(view.ignored4, device))};
  std::string const ignored6 = memberText(view.ignored6, device);
  bool const waits = contains(view.waitingStateless, port);
  bool const stateless = waits || contains(view.servedStateless, device);
  if (stateless) {
    rows.push_back(
        dhcpRow(view, port, six, "DHCPv6 stateless", waits ? "waits its turn" : "asks", linkUp, ignored6));
  } else if (contains(view.members6, port) || contains(view.served6, device) || six != Kel::Value() ||
             (view.chosen == port && memberText(view.chosenAnswer, "family") != "dhcpv4")) {
    rows.push_back(
        dhcpRow(view, port, six, "DHCPv6", client(view.served6, isTrue(view.releases6)), linkUp, ignored6));
  }
  if (view.chosen == port) settleChosen(rows, memberText(view.chosenAnswer, "family"));
  return rows;
}

}  // namespace ZeroTouchCommand
