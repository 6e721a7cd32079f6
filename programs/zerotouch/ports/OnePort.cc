#include "programs/zerotouch/ports/OnePort.h"

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"

namespace ZeroTouchCommand {

namespace {

using Kel::Value;

constexpr std::size_t mostReports = 30;

// Why the port does not take part, as a sentence, or "yes".
std::string takesPart(PortRow const& row) {
  if (row.registered == "yes") return "yes";
  if (row.forwarding == "bridged") {
    return "no, it is bridged: it is in a bridge or a bond, or is not set up as a routed port. Only routed "
           "ports take part";
  }
  if (row.forwarding != "routed") return "no, what it does with frames is " + row.forwarding;
  if (row.registered == "no, not looked at yet")
    return "no, not yet: ports that come during an attempt are taken in by the next one";
  return row.registered;
}

// What the routers on the link say of DHCPv6, or "".
std::string advertised(PortView const& view, std::string const& name) {
  Value const& packet = at(view.advertisements, {name});
  if (packet == Value()) return "";
  bool const managed = isTrue(at(packet, {"managed"}));
  bool const other = isTrue(at(packet, {"other"}));
  if (managed) return std::string("managed") + (other ? ", other" : "") + ": addresses come by DHCPv6";
  return other ? "other: settings come by stateless DHCPv6" : "none: nothing comes by DHCPv6";
}

std::string neighbour(PortRow const& row) {
  if (row.heard <= 0) return "nothing was heard";
  std::string result = row.neighbour.empty() ? "a neighbour without a name" : row.neighbour;
  if (!row.neighbourPort.empty()) result += ", port " + row.neighbourPort;
  return result + ", heard " + row.lldp;
}

// The reports on the port, the last one last.
Kel::ValueList reportsOn(PortView const& view, PortRow const& row) {
  Kel::ValueList result;
  if (auto const* const all = view.reports.as<Kel::ValueMap>()) {
    for (auto const& [number, report] : *all) {
      std::string const port = memberText(report, "port");
      if (port == row.port || port == row.device) result.push_back(report);
    }
  }
  return result;
}

Rows reportRows(PortView const& view, Kel::ValueList const& reports) {
  Rows rows{{"Time", "Source", "Report", "What it brought"}};
  std::string const today = dateAndTime(view.now).substr(0, 10);
  std::size_t const skipped = reports.size() > mostReports ? reports.size() - mostReports : 0;
  for (std::size_t i = skipped; i < reports.size(); ++i) {
    std::string const time = dateAndTime(number(at(reports[i], {"time"})));
    rows.push_back({time.starts_with(today) ? time.substr(11) : time, memberText(reports[i], "source"),
                    memberText(reports[i], "report"), memberText(reports[i], "detail")});
  }
  return rows;
}

}  // namespace

std::string everythingAbout(PortView const& view, PortRow const& row, Value const& port,
                            std::vector<DhcpRow> const& dhcp) {
  std::string const abilities = speedsOf(at(port, {"linkModeCapabilities"}));
  std::string const routers = advertised(view, row.port);
  Rows rows{{"Port:", row.port + ", device " + row.device},
            {"Link:", row.link + (row.link == row.oper ? "" : ", but the port is " + row.oper)},
            {"Takes part:", takesPart(row)},
            {"Address:", memberText(port, "macAddr")},
            {"Speed:", row.speed + (row.next == "-" ? "" : ", next " + row.next)},
            {"Can do:", abilities.empty() ? "only its own speed" : abilities},
            {"Keeps speed:", row.keepsSpeed == "-" ? "no" : "yes, " + row.keepsSpeed},
            {"LLDP:", neighbour(row)},
            {"IPv6 routers:", routers.empty() ? "no advertisement was heard" : "flags " + routers}};
  std::string result = facts(rows);
  Rows answers{{"Family", "Client", "Report", "Boot file", "Chosen"}};
  for (auto const& one : dhcp)
    answers.push_back({one.family, one.client, one.report, one.bootFile, one.chosen});
  if (answers.size() > 1) result += "\n" + table(answers);
  auto const reports = reportsOn(view, row);
  if (!reports.empty()) result += "\n" + table(reportRows(view, reports));
  return result;
}

Value moreAbout(PortView const& view, PortRow const& row, Value const& port) {
  return Kel::ValueMap{{"macAddr", memberText(port, "macAddr")},
                       {"active", isTrue(at(port, {"active"}))},
                       {"capabilities", speedsOf(at(port, {"linkModeCapabilities"}))},
                       {"advertisement", at(view.advertisements, {row.port})},
                       {"reports", reportsOn(view, row)}};
}

}  // namespace ZeroTouchCommand
