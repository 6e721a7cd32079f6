#include "programs/zerotouch/PortDhcp.h"

#include "programs/zerotouch/Output.h"

namespace ZeroTouchCommand {

namespace {

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

DhcpRow row(DhcpView const& view, std::string const& port, Kel::Value const& result, std::string family,
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

// On the port that was chosen, only one family was.
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

}  // namespace

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

std::vector<DhcpRow> dhcpRows(DhcpView const& view, std::string const& port, std::string const& device,
                              bool linkUp) {
  Kel::Value const& four = at(view.results4, {device});
  Kel::Value const& six = at(view.results6, {device});
  auto const client = [&](Kel::Value const& served, bool releases) {
    return !contains(served, device) ? "-" : releases ? "releases" : "asks";
  };
  std::vector<DhcpRow> rows{row(view, port, four, "DHCPv4", client(view.served4, view.releases4), linkUp)};
  bool const waits = contains(view.waitingStateless, port);
  bool const stateless = waits || contains(view.servedStateless, device);
  if (stateless) {
    rows.push_back(row(view, port, six, "DHCPv6 stateless", waits ? "waits its turn" : "asks", linkUp));
  } else if (contains(view.members6, port) || contains(view.served6, device) || six != Kel::Value()) {
    rows.push_back(row(view, port, six, "DHCPv6", client(view.served6, view.releases6), linkUp));
  }
  if (view.chosen == port) settleChosen(rows, four, six);
  return rows;
}

}  // namespace ZeroTouchCommand
