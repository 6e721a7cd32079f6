#include "programs/zerotouch/rehearse/Findings.h"

#include <algorithm>

#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "zerotouch/fetch/DownloadEnd.h"

namespace Rehearsal {

namespace {

using ZeroTouchCommand::Rows;
using ZeroTouchCommand::Style;

std::string heading(std::string const& text) {
  return ZeroTouchCommand::styled(Style::heading, Kel::printable(text)) + "\n";
}

std::string indented(std::string const& text) {
  std::string result = "  ";
  for (char const c : text.substr(0, text.find_last_not_of('\n') + 1)) {
    result += c;
    if (c == '\n') result += "  ";
  }
  return result + "\n";
}

std::string orUnknown(std::string const& text) { return text.empty() ? "unknown" : text; }

// What the switch made of the boot file's name, where that is not the name itself.
std::string fileOf(Offered const& offered) {
  if (!offered.result || offered.result->bootFileName().empty()) return {};
  if (offered.file.url.empty()) return offered.file.objection;
  return Grammar::withoutPasswords(offered.file.url);
}

// The length of the mask that DHCPv6 does not have says nothing.
std::string addressOf(ZeroTouch::IntfDhcpStatus const& result, bool six) {
  return six ? result.addrWithMask().v6().address.stringValue() : result.addrWithMask().stringValue();
}

bool isForTheServer(bool six, unsigned code) {
  return six ? code == 1 || code == 3 || code == 6 : code == 53;  // what says nothing of the offer
}

void showOffer(Offered const& offered) {
  bool const six = offered.family != ZeroTouch::AnswerFamily::dhcpv4;
  ZeroTouchCommand::print(
      "\n" + heading(Kel::format("%s from %s, after %.1f s: %s", name(offered.family), offered.from,
                                 offered.after, offered.chosen ? "a switch takes this one" : "not taken")));
  Rows rows;
  if (!offered.because.empty()) rows.push_back({"Because", offered.because});
  if (offered.result && offered.family != ZeroTouch::AnswerFamily::statelessDhcpv6)
    rows.push_back({"Address", addressOf(*offered.result, six)});
  for (auto const& [code, value] : offered.answer.options) {
    if (!isForTheServer(six, code)) rows.push_back({optionTitle(six, code), optionWords(six, code, value)});
  }
  auto const file = offered.answer.variables.find("new_filename");
  if (file != offered.answer.variables.end())
    rows.push_back(
        {"file field of BOOTP", Kel::printable(Grammar::withoutPasswords(Hook::unescaped(file->second)))});
  if (auto const url = fileOf(offered); !url.empty()) rows.push_back({"Means the boot file", url});
  for (auto const& complaint : offered.complaints) rows.push_back({"Not used", complaint});
  ZeroTouchCommand::print(indented(ZeroTouchCommand::facts(rows)));
}

std::string routersOf(Hearing const& hearing) {
  std::string result;
  for (auto const& [address, managed] : hearing.routers)
    result +=
        (result.empty() ? "" : "; ") + address +
        (managed ? ", managed: switches ask for DHCPv6" : ", not managed: switches ask for stateless DHCPv6");
  return result.empty() ? "none advertises itself" : result;
}

void showDownload(Download const& download) {
  ZeroTouchCommand::print("\n" + heading("The boot file"));
  Rows rows{{"URL", download.url}, {"Download", orUnknown(download.outcome)}};
  if (download.received && download.outcome.empty()) rows.back()[1] = "complete";
  if (download.received) {
    rows.push_back({"Size", Kel::format("%u bytes in %.1f s", download.bytes, download.seconds)});
    if (download.bytes > 0)
      rows.push_back(
          {"Is", download.isScript ? "a script, which is run" : "a configuration, which is installed"});
    if (download.isScript) rows.push_back({"First line", download.firstLine});
    if (!download.serverVerified.empty())
      rows.push_back({"Server", "verified by " + download.serverVerified});
    if (!download.signer.empty()) rows.push_back({"Signed by", download.signer});
    if (!download.refused.empty()) rows.push_back({"No good", download.refused});
  }
  if (download.problem == ZeroTouch::Problem::interpreterMissing)
    rows.push_back({"Note", "this machine was looked at; a switch may have other interpreters"});
  if (!download.here.empty()) rows.push_back({"Note", download.here});
  std::string const host = ZeroTouch::hostOf(download.url);
  if (!host.starts_with('[') && !Wire::IpAddr::fromString(host))
    rows.push_back(
        {"Note", "the name servers of this machine were asked; a switch asks those of the answer"});
  ZeroTouchCommand::print(indented(ZeroTouchCommand::facts(rows)));
}

Kel::Value jsonOf(Offered const& offered) {
  bool const six = offered.family != ZeroTouch::AnswerFamily::dhcpv4;
  Kel::ValueList options, complaints;
  for (auto const& [code, value] : offered.answer.options) {
    auto const* const kind = optionKind(six, code);
    options.emplace_back(Kel::ValueMap{{"code", code},
                                       {"name", kind != nullptr ? kind->words : ""},
                                       {"value", optionWords(six, code, value)}});
  }
  for (auto const& complaint : offered.complaints) complaints.emplace_back(complaint);
  return Kel::ValueMap{{"family", name(offered.family)},
                       {"from", offered.from},
                       {"after", offered.after},
                       {"chosen", offered.chosen},
                       {"because", offered.because},
                       {"url", Grammar::withoutPasswords(offered.file.url)},
                       {"objection", offered.file.objection},
                       {"options", std::move(options)},
                       {"notUsed", std::move(complaints)}};
}

Kel::Value jsonOf(Hearing const& hearing) {
  Kel::ValueList asked, routers, offers;
  for (auto const family : hearing.asked) asked.emplace_back(name(family));
  for (auto const& [address, managed] : hearing.routers)
    routers.emplace_back(Kel::ValueMap{{"address", address}, {"managed", managed}});
  for (auto const& offered : hearing.offers) offers.push_back(jsonOf(offered));
  return Kel::ValueMap{{"families", std::move(asked)},
                       {"seconds", hearing.seconds},
                       {"routers", std::move(routers)},
                       {"offers", std::move(offers)}};
}

Kel::Value jsonOf(Download const& download) {
  std::string const kind = !download.received || download.bytes == 0 ? ""
                           : download.isScript                       ? "script"
                                                                     : "configuration";
  return Kel::ValueMap{{"url", download.url},
                       {"received", download.received},
                       {"outcome", download.outcome},
                       {"refused", download.refused},
                       {"bytes", download.bytes},
                       {"seconds", download.seconds},
                       {"kind", kind},
                       {"firstLine", download.firstLine},
                       {"serverVerified", download.serverVerified},
                       {"signer", download.signer}};
}

}  // namespace

void show(Findings const& findings) {
  auto const& chassis = *findings.identity.chassis;
  std::string const revision = chassis.hardwareRev().empty() ? "" : ", revision " + chassis.hardwareRev();
  Rows rows{{"Played switch:", "model " + orUnknown(chassis.modelName()) + revision + ", serial number " +
                                   orUnknown(chassis.serialNum()) + ", MAC address " +
                                   findings.identity.systemMacAddr.stringValue()}};
  if (findings.hearing) {
    auto const& asked = findings.hearing->asked;
    rows.push_back({"Asked on:", findings.device + ", as " + findings.port.stringValue()});
    bool const onlyFour =
        std::ranges::all_of(asked, [](auto one) { return one == ZeroTouch::AnswerFamily::dhcpv4; });
    if (!onlyFour) rows.push_back({"Routers:", routersOf(*findings.hearing)});
  }
  ZeroTouchCommand::print(ZeroTouchCommand::facts(rows));
  if (findings.hearing) {
    for (auto const& offered : findings.hearing->offers) showOffer(offered);
  }
  if (findings.download) showDownload(*findings.download);
  ZeroTouchCommand::print("\n" + heading("Verdict: " + findings.verdict.sentence));
  for (auto const& line : findings.verdict.toMend)
    ZeroTouchCommand::print(
        "  - " + ZeroTouchCommand::paragraph(Kel::printable(line), 4, ZeroTouchCommand::outputColumns()));
}

Kel::Value jsonOf(Findings const& findings) {
  auto const& chassis = *findings.identity.chassis;
  Kel::ValueList toMend;
  for (auto const& line : findings.verdict.toMend) toMend.emplace_back(line);
  return Kel::ValueMap{{"outcome", name(findings.verdict.outcome)},
                       {"verdict", findings.verdict.sentence},
                       {"toMend", std::move(toMend)},
                       {"identity", Kel::ValueMap{{"model", chassis.modelName()},
                                                  {"revision", chassis.hardwareRev()},
                                                  {"serial", chassis.serialNum()},
                                                  {"mac", findings.identity.systemMacAddr.stringValue()}}},
                       {"interface", findings.device},
                       {"asked", findings.hearing ? jsonOf(*findings.hearing) : Kel::Value()},
                       {"download", findings.download ? jsonOf(*findings.download) : Kel::Value()}};
}

}  // namespace Rehearsal
