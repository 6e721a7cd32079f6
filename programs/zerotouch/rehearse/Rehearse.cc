// rehearse: the server side, tried out from any machine before a switch is there.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Format.h"
#include "platform/kel/Log.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/rehearse/Findings.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/DownloadEnd.h"

namespace ZeroTouchCommand {

namespace {

using ZeroTouch::AnswerFamily;

constexpr char const* defaultConfig = "/etc/zerotouch/platform.toml";

HostConfig configOf(RehearsalWords const& words) try {
  return readHostConfig(words.config.empty() ? defaultConfig : words.config, !words.config.empty());
} catch (BadInput const& error) {
  throw Refused(error.what());
}

Wire::EthAddr macOf(std::string const& text) {
  auto const address = Wire::EthAddr::fromString(text);
  bool const fits = address && (address->bytes[0] & 1) == 0 && *address != Wire::EthAddr{};
  if (!fits) throw WrongUsage("--mac: '" + text + "' is no MAC address of a port, as 02:00:00:00:00:01 is");
  return *address;
}

// A configuration from elsewhere is that of another switch: what it names counts, and not what is found here.
HostConfig withoutThisMachine(HostConfig config) {
  config.inventory.eeprom.clear();
  config.inventory.dmi.clear();
  return config;
}

// The identity that was given; what was not is this machine's own, where a switch's configuration says that
// it has one.
Rehearsal::Identity identityOf(RehearsalWords const& words, HostConfig const& config, bool isSwitch,
                               Wire::EthAddr const& ofPort) {
  auto const own = isSwitch ? Linux::inventoryFacts(config.inventory) : Linux::InventoryFacts{};
  auto const orOwn = [](std::string const& given, std::string const& mine) {
    return given.empty() ? mine : given;
  };
  Rehearsal::Identity identity;
  identity.chassis->modelNameIs(orOwn(words.model, own.modelName));
  identity.chassis->serialNumIs(orOwn(words.serial, own.serialNum));
  identity.chassis->hardwareRevIs(orOwn(words.revision, own.hardwareRev));
  identity.systemMacAddr = !words.mac.empty() ? macOf(words.mac) : own.systemMacAddr.value_or(ofPort);
  return identity;
}

// Servers may treat switches differently, so one has to be named.
void checkIdentity(RehearsalWords const& words, Rehearsal::Identity const& identity) {
  if (!words.url.empty()) return;
  std::string missing;
  if (identity.chassis->serialNum().empty()) missing = "--serial";
  if (identity.chassis->modelName().empty())
    missing += std::string(missing.empty() ? "" : " and ") + "--model";
  if (!missing.empty())
    throw WrongUsage("rehearse: say which switch to play, with " + missing + "; this machine has no " +
                     defaultConfig + " or inventory that tells it");
}

Linux::FramePort open(RehearsalWords const& words) try {
  std::optional<Wire::EthAddr> address;
  if (!words.mac.empty()) address = macOf(words.mac);
  return Linux::FramePort(words.interface, address);
} catch (std::system_error const& error) {
  int const code = error.code().value();
  if (code == EPERM || code == EACCES)
    throw NotPermitted("asking DHCP servers on " + words.interface +
                       " needs root or CAP_NET_RAW; --url needs neither");
  if (code == ENODEV || code == ENXIO) throw Refused("there is no network device '" + words.interface + "'");
  throw Refused(words.interface + ": " + error.what());
}

std::vector<AnswerFamily> familiesOf(RehearsalWords const& words) {
  bool const all = !words.four && !words.six && !words.stateless;
  std::vector<AnswerFamily> result;
  if (all || words.four) result.push_back(AnswerFamily::dhcpv4);
  if (all || words.six) result.push_back(AnswerFamily::dhcpv6);
  if (all || words.stateless) result.push_back(AnswerFamily::statelessDhcpv6);
  return result;
}

ZeroTouch::BootFile givenFile(std::string const& url) {
  ZeroTouch::IntfDhcpStatus answer{"rehearsal"};
  answer.bootFileNameIs(url);
  auto file = ZeroTouch::bootFileOf(answer);
  if (file.url.empty()) throw Refused("--url: " + file.objection + ": a switch would not download it");
  return file;
}

void listen(RehearsalWords const& words, Linux::FramePort const& port, Rehearsal::Findings& findings,
            Rehearsal::Tell const& tell) try {
  if (!port.hasLink()) throw Refused(words.interface + " is down, or has no link");
  findings.device = words.interface;
  findings.port = port.address();
  findings.hearing = Rehearsal::ask(port, findings.identity, familiesOf(words), words.seconds, tell);
} catch (Rehearsal::BadConfiguration const& error) {
  throw Refused(error.what());
} catch (std::system_error const& error) {
  throw Refused(words.interface + ": " + error.what());
}

// A switch has the address that it was offered; this machine does not take it.
std::string addressLacking(Linux::FramePort const& port, std::string const& device, std::string const& url) {
  std::string const host = ZeroTouch::hostOf(url);
  bool const four = Wire::IpAddr::fromString(host).has_value(), six = host.starts_with('[');
  if ((!six && port.hasAddress(false)) || (!four && port.hasAddress(true))) return {};
  return Kel::format(
      "This machine has no %s address on %s: give it one of that network, since the file is fetched by it",
      four  ? "IPv4"
      : six ? "IPv6"
            : "own",
      device);
}

ExitCode exitCodeOf(Rehearsal::Outcome outcome) {
  constexpr std::array codes = {ok, noOffer, noUsableOffer, downloadFails, fileRefused};
  return codes.at(static_cast<std::size_t>(outcome));
}

}  // namespace

void rehearse(Context const& context, RehearsalWords const& words) {
  if (words.interface.empty() == words.url.empty())
    throw WrongUsage(
        "rehearse takes either --interface, to ask the servers there, or --url; zerotouch rehearse --help");
  Rehearsal::Tell const tell = [&context](std::string const& text) {
    if (!context.json) std::fprintf(stderr, "%s\n", Kel::printable(text).c_str());
  };
  HostConfig const config = configOf(words);
  Kel::activityManager()->localEntityIs(ZeroTouch::policyName, config.policy.entity);
  Kel::logSinkIs([tell](Kel::LogEvent const& event) { tell(event.message); });
  bool const isSwitch = access(words.config.empty() ? defaultConfig : words.config.c_str(), R_OK) == 0;

  std::optional<Linux::FramePort> port;
  if (words.url.empty()) port.emplace(open(words));
  auto const identity = identityOf(words, words.config.empty() ? config : withoutThisMachine(config),
                                   isSwitch, port ? port->address() : Wire::EthAddr{});
  checkIdentity(words, identity);
  Rehearsal::Findings findings{
      .device = {}, .port = {}, .identity = identity, .hearing = {}, .download = {}, .verdict = {}};
  ZeroTouch::BootFile file;
  if (port) {
    listen(words, *port, findings, tell);
    auto const* const chosen = Rehearsal::choose(*findings.hearing, words.interface);
    if (chosen != nullptr) file = chosen->file;
  } else {
    file = givenFile(words.url);
  }
  if (!file.url.empty()) {
    auto const lacking = port ? addressLacking(*port, words.interface, file.url) : "";
    port.reset();  // nothing more is listened to
    findings.download = Rehearsal::fetch(file, identity, config, tell);
    findings.download->here = lacking;
  }
  findings.verdict = Rehearsal::judge(findings.hearing ? &*findings.hearing : nullptr,
                                      findings.download ? &*findings.download : nullptr, words.interface);
  context.json ? printJson(jsonOf(findings)) : show(findings);
  if (findings.verdict.outcome != Rehearsal::Outcome::provisions)
    throw SaidAlready(exitCodeOf(findings.verdict.outcome));
}

}  // namespace ZeroTouchCommand
