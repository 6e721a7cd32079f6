#include "platform/linux/links/Ports.h"

#include <fnmatch.h>
#include <net/if.h>
#include <re2/re2.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/kel/Assert.h"

namespace Linux {

namespace {

constexpr int maxGroups = 10;  // \1 to \9, and the whole name before them
using Groups = std::array<re2::StringPiece, maxGroups>;

// A pattern takes time in proportion to the name, whatever it is made of, and bounded memory. It and the name
// are bytes, since the kernel gives device names no encoding.
std::shared_ptr<re2::RE2 const> compiled(Kel::String const& pattern) {
  RE2::Options options(RE2::Latin1);
  options.set_log_errors(false);
  options.set_max_mem(1 << 20);
  auto result = std::make_shared<re2::RE2 const>(pattern, options);
  if (!result->ok()) throw std::invalid_argument("port name pattern '" + pattern + "': " + result->error());
  return result;
}

// Puts the groups into `shown`: a backslash and a digit stand for a group, & for the whole name, and a
// backslash makes any other character stand for itself. A group that matched nothing is empty.
Kel::String filledIn(Kel::String const& shown, Groups const& groups) {
  Kel::String result;
  for (std::size_t i = 0; i < shown.size(); ++i) {
    bool const escaped = shown[i] == '\\' && i + 1 < shown.size();
    char const c = escaped ? shown[++i] : shown[i];
    if (escaped && c >= '0' && c <= '9') {
      result += groups.at(static_cast<std::size_t>(c - '0')).as_string();
    } else if (!escaped && c == '&') {
      result += groups[0].as_string();
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

PortSelection::PortSelection(PortSelectionConfig config) : config_(std::move(config)) {
  for (auto const& rule : config_.names) patterns_.push_back(compiled(rule.device));
}

bool PortSelection::selects(Kel::String const& deviceName) const {
  if (config_.devices.empty()) {
    return access((config_.sysClassNet + "/" + deviceName + "/device").c_str(), F_OK) == 0;
  }
  return std::ranges::any_of(config_.devices, [&](Kel::String const& pattern) {
    return fnmatch(pattern.c_str(), deviceName.c_str(), 0) == 0;
  });
}

Wire::IntfId PortSelection::intfId(Kel::String const& deviceName) const {
  for (std::size_t i = 0; i < patterns_.size(); ++i) {
    Groups groups;
    int const wanted = std::min(maxGroups, patterns_[i]->NumberOfCapturingGroups() + 1);
    if (!patterns_[i]->Match(deviceName, 0, deviceName.size(), RE2::ANCHOR_BOTH, groups.data(), wanted))
      continue;
    return Wire::IntfId::fromString(filledIn(config_.names[i].shown, groups)).value_or(Wire::IntfId());
  }
  return Wire::IntfId(deviceName);
}

Wire::IntfId Ports::intfId(int ifIndex) const {
  auto const found = byIndex_.find(ifIndex);
  return found == byIndex_.end() ? Wire::IntfId() : found->second;
}

Kel::String Ports::describe(int ifIndex) const {
  std::array<char, IF_NAMESIZE> name{};
  if (if_indextoname(static_cast<unsigned>(ifIndex), name.data()) == nullptr) return "";
  Kel::String const device = Kel::String("device ") + name.data();
  Wire::IntfId const port = intfId(ifIndex);
  return port ? "port " + port.stringValue() + " (" + device + ")" : device;
}

void Ports::portIs(Wire::IntfId const& intfId, Port const& port) {
  KEL_ASSERT(port, "a port has an index");
  Port const& before = this->port(intfId);
  if (before && before.ifIndex != port.ifIndex) portDel(intfId);
  byIndex_[port.ifIndex] = intfId;
  port_.set(*this, level, "port", intfId, port, &NotifieeConst::onPort);
}

void Ports::portDel(Wire::IntfId const& intfId) {
  Port const& before = port(intfId);
  if (!before) return;
  auto const indexed = byIndex_.find(before.ifIndex);
  // After a rename the index belongs to the new id already, if that was announced first.
  if (indexed != byIndex_.end() && indexed->second == intfId) byIndex_.erase(indexed);
  port_.del(*this, level, "port", intfId, &NotifieeConst::onPort);
}

}  // namespace Linux
