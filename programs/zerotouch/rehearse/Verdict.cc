// What a rehearsal comes to, and what has to be mended on the servers.
#include <algorithm>
#include <array>
#include <cctype>

#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"
#include "zerotouch/dhcp/Ranking.h"
#include "zerotouch/sm/Problem.h"

namespace Rehearsal {

namespace {

using ZeroTouch::AnswerFamily;
using ZeroTouch::Problem;

std::string withCapital(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

// Several offers may lack the same.
void add(std::vector<std::string>& list, std::string const& line) {
  if (!line.empty() && std::ranges::find(list, line) == list.end()) list.push_back(line);
}

std::string joined(std::vector<std::string> const& list) {
  std::string result;
  for (auto const& item : list) result.append(result.empty() ? "" : ", ").append(item);
  return result;
}

// The servers of a family that answer without a boot file. Where others name one, a switch that hears these
// first loses a query by it.
void addMissingBootFile(AnswerFamily family, Hearing const& hearing, std::string const& device,
                        std::vector<std::string>& toMend) {
  std::vector<std::string> servers;
  bool others = false;
  for (auto const& offered : hearing.offers) {
    if (offered.family != family || !offered.counts || !offered.result) continue;
    if (!ZeroTouch::ignoredServer(*offered.result).empty()) continue;
    bool const names = !offered.result->bootFileName().empty();
    others = others || names;
    if (!names) add(servers, offered.from);
  }
  if (servers.empty()) return;
  int const option = family == AnswerFamily::dhcpv4 ? 67 : 59;
  add(toMend,
      Kel::format("Option %d is missing for %s clients of this link (%s): %s answers without a boot file",
                  option, name(family), device, joined(servers)) +
          (others ? ", and may be quicker than the server that names one" : ""));
}

// A server that offers what no switch asks for, since routers do not say so.
void addMissingAdvertisement(Hearing const& hearing, std::vector<std::string>& toMend) {
  for (auto const& offered : hearing.offers) {
    bool const six = offered.family != AnswerFamily::dhcpv4;
    bool const names = offered.result && !offered.result->bootFileName().empty();
    if (!six || !names) continue;
    if (hearing.routers.empty())
      add(toMend,
          "No router advertises itself on this link, and without that no switch asks for DHCPv6: let one do "
          "so");
    else if (offered.family == AnswerFamily::dhcpv6 &&
             std::ranges::none_of(hearing.routers, &Router::managed))
      add(toMend, "Set the managed flag in the router advertisements of " + hearing.routers.front().address +
                      ": without it no switch asks for DHCPv6 with addresses");
  }
}

std::string asked(Hearing const& hearing) {
  std::string result;
  for (AnswerFamily const family : hearing.asked)
    result += (result.empty() ? "" : ", ") + std::string(name(family));
  return result;
}

// Of one answer, why it is not taken; answers to what no switch asks for are left out where there are others.
std::string whyNone(std::vector<Offered> const& offers) {
  bool const some = std::ranges::any_of(offers, &Offered::counts);
  std::vector<Offered const*> those;
  for (auto const& offered : offers) {
    if (offered.counts || !some) those.push_back(&offered);
  }
  if (those.size() > 1) return Kel::format("none of the %u answers can be used", those.size());
  return std::string("the only answer, of ") + name(those.front()->family) +
         ", is not taken: " + those.front()->because;
}

void judgeOffers(Hearing const& hearing, std::string const& device, Verdict& verdict) {
  auto const chosen = std::ranges::find(hearing.offers, true, &Offered::chosen);
  for (AnswerFamily const family : hearing.asked) addMissingBootFile(family, hearing, device, verdict.toMend);
  addMissingAdvertisement(hearing, verdict.toMend);
  for (auto const& offered : hearing.offers) {
    for (auto const& complaint : offered.complaints)
      add(verdict.toMend, "Correct what " + offered.from + " sends: " + complaint);
  }
  if (hearing.offers.empty()) {
    verdict.outcome = Outcome::noOffer;
    verdict.sentence =
        Kel::format("nobody has answered on %s within %g s (%s)", device, hearing.seconds, asked(hearing));
    add(verdict.toMend, withCapital(ZeroTouch::whatToDo(Problem::noAnswer)));
  } else if (chosen == hearing.offers.end()) {
    verdict.outcome = Outcome::noUsableOffer;
    verdict.sentence = whyNone(hearing.offers);
    if (verdict.toMend.empty())
      add(verdict.toMend, withCapital(ZeroTouch::whatToDo(Problem::answerWithoutBootFile)));
  } else if (chosen->file.url.empty()) {
    verdict.outcome = Outcome::noUsableOffer;
    verdict.sentence = Kel::format("the boot file \"%s\" cannot be downloaded: %s",
                                   Kel::printable(Grammar::withoutPasswords(chosen->result->bootFileName())),
                                   chosen->file.objection);
    add(verdict.toMend, withCapital(ZeroTouch::whatToDo(chosen->file.problem)));
  }
}

void judgeDownload(Download const& download, Verdict& verdict) {
  if (!download.received) {
    verdict.outcome = Outcome::downloadFailed;
    verdict.sentence = "the download fails: " + download.outcome;
  } else if (!download.refused.empty()) {
    verdict.outcome = Outcome::fileRefused;
    verdict.sentence =
        (download.isScript ? "the script cannot run: " : "the file is no good: ") + download.refused;
  }
  if (verdict.sentence.empty()) return;
  if (!download.received) add(verdict.toMend, download.here);
  std::string cure = ZeroTouch::whatToDo(download.problem);
  // What follows is about a switch that has the page already.
  if (download.problem == Problem::webPage) cure = cure.substr(0, cure.find(':'));
  add(verdict.toMend, withCapital(cure));
}

}  // namespace

char const* name(Outcome outcome) {
  constexpr std::array names = {"provisions", "noOffer", "noUsableOffer", "downloadFailed", "fileRefused"};
  return names.at(static_cast<std::size_t>(outcome));
}

Verdict judge(Hearing const* hearing, Download const* download, std::string const& device) {
  Verdict verdict;
  if (hearing != nullptr) judgeOffers(*hearing, device, verdict);
  if (download != nullptr) judgeDownload(*download, verdict);
  bool const runs = download != nullptr && download->isScript;
  if (verdict.outcome == Outcome::provisions)
    verdict.sentence = std::string("a switch would be provisioned: it would ") +
                       (runs ? "run this script" : "install this configuration");
  else if (download != nullptr && download->installed)
    verdict.sentence =
        "a switch would install this, but it is hardly meant as its configuration: " + download->refused;
  else
    verdict.sentence = "a switch would not be provisioned: " + verdict.sentence;
  return verdict;
}

}  // namespace Rehearsal
