#include "programs/zerotouch-dhclient-script/Message.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "platform/model/values/Grammar.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch-dhclient-script/Answer.h"
#include "programs/zerotouch-dhclient-script/Dhcpcd.h"

namespace Hook {

namespace {

enum class Effect { answered, failed, ended, cleanUp };

struct Reason {
  std::string_view name;
  Effect effect;
  bool v6;
};

constexpr std::array reasons = {
    Reason{"BOUND", Effect::answered, false},  Reason{"REBOOT", Effect::answered, false},
    Reason{"RENEW", Effect::answered, false},  Reason{"REBIND", Effect::answered, false},
    Reason{"FAIL", Effect::failed, false},     Reason{"TIMEOUT", Effect::failed, false},
    Reason{"EXPIRE", Effect::ended, false},    Reason{"RELEASE", Effect::ended, false},
    Reason{"STOP", Effect::ended, false},      Reason{"CLEANUP", Effect::cleanUp, false},
    Reason{"BOUND6", Effect::answered, true},  Reason{"RENEW6", Effect::answered, true},
    Reason{"REBIND6", Effect::answered, true}, Reason{"EXPIRE6", Effect::ended, true},
    Reason{"RELEASE6", Effect::ended, true},   Reason{"STOP6", Effect::ended, true},
    Reason{"CLEANUP6", Effect::cleanUp, true},
};

Reason const* find(std::string_view name) {
  auto const found = std::ranges::find(reasons, name, &Reason::name);
  return found != reasons.end() ? &*found : nullptr;
}

Message replaced(std::string const& path, Reason const& reason, Environment const& environment,
                 Complaints& complaints) {
  Kel::ValueMap attributes = {{"reason", reason.name}};
  if (reason.effect == Effect::answered) {
    for (auto& attribute : (reason.v6 ? answerV6 : answerV4)(environment, complaints))
      attributes.push_back(std::move(attribute));
  }
  return {"set", {{"path", path}, {"attributes", std::move(attributes)}, {"replace", true}}};
}

}  // namespace

std::optional<Message> messageFor(Environment const& environment, Complaints& complaints) {
  std::string_view const name = variable(environment, "reason");
  if (name.empty())
    complaints.add("the variable 'reason' is not set: this program is run by the DHCP client");
  Reason const* const reason = find(name);
  if (reason == nullptr) return std::nullopt;

  std::string const records =
      std::string("/zerotouch/dhcpStatus/") + (reason->v6 ? "intfDhcp6Status" : "intfDhcpStatus");
  if (reason->effect == Effect::cleanUp) return Message{"delete", {{"path", records}}};

  std::string const device(variable(environment, "interface"));
  if (auto const wrong = Grammar::deviceNameFault(device); !wrong.empty()) {
    complaints.add("the variable 'interface' names no device: " + inQuotes(device) + " is " + wrong);
    return std::nullopt;
  }
  complaints.deviceIs(device);
  std::string const path = Statebase::join(records, device);
  if (reason->effect == Effect::ended) return Message{"delete", {{"path", path}}};
  return replaced(path, *reason, environment, complaints);
}

bool hostWaits(Environment const& environment) {
  Reason const* const reason = find(variable(environment, "reason"));
  return reason != nullptr && reason->effect == Effect::cleanUp;
}

std::string leaseRecord(Environment const& environment) {
  Reason const* const reason = find(variable(environment, "reason"));
  std::string_view const device = variable(environment, "interface");
  if (reason == nullptr || reason->effect != Effect::answered || reason->v6 ||
      !Grammar::deviceNameFault(device).empty())
    return {};
  auto const address = Wire::IpAddr::fromString(plainOption(environment, "ip-address"));
  auto const server = Wire::IpAddr::fromString(plainOption(environment, "dhcp-server-identifier"));
  auto const expiry =
      number(plainOption(environment, "expiry"), 1, std::numeric_limits<std::uint32_t>::max());
  if (!address || !server || !expiry || device.find('"') != std::string_view::npos) return {};
  std::string const end = "epoch " + std::to_string(*expiry) + ";\n";
  return "lease {\n  interface \"" + std::string(device) + "\";\n  fixed-address " + address->stringValue() +
         ";\n  option dhcp-server-identifier " + server->stringValue() + ";\n  renew " + end + "  rebind " +
         end + "  expire " + end + "}\n";
}

std::string leaseRecord6(Environment const& environment) {
  Reason const* const reason = find(variable(environment, "reason"));
  std::string const device(variable(environment, "interface"));
  auto const address = Wire::Ip6Addr::fromString(plainOption(environment, "ip6-address"));
  auto const client = Grammar::duid(plainOption(environment, "dhcp6.client-id"));
  auto const server = Grammar::duid(plainOption(environment, "dhcp6.server-id"));
  auto const association = Grammar::duid(plainOption(environment, "iaid"));
  bool const isAnswer = reason != nullptr && reason->effect == Effect::answered && reason->v6;
  if (!isAnswer || !address || !client || !server || !association ||
      !Grammar::deviceNameFault(device).empty() || device.find('"') != device.npos)
    return {};
  return "lease6 {\n  interface \"" + device + "\";\n  client-id " + *client + ";\n  server-id " + *server +
         ";\n  ia-na " + *association + ";\n  iaaddr " + address->stringValue() + ";\n}\n";
}

std::string namelessServer(Environment const& environment) {
  Reason const* const reason = find(variable(environment, "reason"));
  std::string const device(variable(environment, "interface"));
  auto const server = Wire::IpAddr::fromString(plainOption(environment, "dhcp-server-identifier"));
  if (reason == nullptr || reason->effect != Effect::answered || reason->v6 || !server ||
      !Grammar::deviceNameFault(device).empty())
    return {};
  Complaints ignored;
  auto const answer = answerV4(environment, ignored);
  bool const named =
      std::ranges::find(answer, "bootFileName", &Kel::ValueMap::value_type::first) != answer.end();
  return named ? "" : device + " " + server->stringValue() + "\n";
}

namespace {

// Returns "" or what went wrong.
std::string append(std::string const& path, std::string const& text, int flags) {
  if (text.empty()) return {};
  int const file =
      open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags, 0644);
  bool const written = file >= 0 && write(file, text.data(), text.size()) == ssize_t(text.size());
  std::string const error = written ? "" : "lease file " + path + ": " + std::strerror(errno);
  if (file >= 0) close(file);
  return error;
}

// Of an answer that leaves nothing to release: that the port has one.
std::string mark(Environment const& environment) {
  Reason const* const reason = find(variable(environment, "reason"));
  std::string const device(variable(environment, "interface"));
  bool const isAnswer = reason != nullptr && reason->effect == Effect::answered && !reason->v6;
  if (!isAnswer || !Grammar::deviceNameFault(device).empty() || device.find('"') != device.npos) return {};
  return "lease {\n  interface \"" + device + "\";\n}\n";
}

}  // namespace

LeaseLock::LeaseLock(Environment const& environment) {
  if (!isOfDhcpcd(environment)) return;
  std::string const path(variable(environment, "ZEROTOUCH_LEASES"));
  file_ = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file_ >= 0) flock(file_, LOCK_EX);
}

LeaseLock::~LeaseLock() {
  if (file_ >= 0) close(file_);
}

bool LeaseLock::isOverdue(Environment const& environment) const {
  if (file_ < 0 || variable(environment, "reason") != "FAIL") return false;
  std::string leases;
  std::array<char, 4096> buffer;
  for (ssize_t size; (size = read(file_, buffer.data(), buffer.size())) > 0;)
    leases.append(buffer.data(), static_cast<std::size_t>(size));
  return leases.find("interface \"" + std::string(variable(environment, "interface")) + "\";") != leases.npos;
}

std::string keepLease(Environment const& environment) {
  std::string const path(variable(environment, "ZEROTOUCH_LEASES"));
  if (path.empty()) return {};
  std::string record = leaseRecord(environment);
  if (isOfDhcpcd(environment)) {
    record += leaseRecord6(environment);
    if (record.empty()) record = mark(environment);
  }
  std::string const error = append(path, record, 0);
  return error.empty() ? append(path + ".nameless", namelessServer(environment), O_CREAT) : error;
}

}  // namespace Hook
