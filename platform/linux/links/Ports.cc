#include "platform/linux/links/Ports.h"

#include <fnmatch.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/kel/Assert.h"

namespace Linux {

namespace {

// The library compiles a pattern recursively: a very long one would not fit on the stack.
constexpr std::size_t maxPattern = 256;

}  // namespace

PortSelection::PortSelection(PortSelectionConfig config) : config_(std::move(config)) {
  for (auto const& rule : config_.names) {
    if (rule.device.size() > maxPattern) {
      throw std::invalid_argument("port name pattern of more than " + std::to_string(maxPattern) + " bytes");
    }
    try {
      rules_.emplace_back(rule.device);
    } catch (std::regex_error const& error) {
      throw std::invalid_argument("port name pattern '" + rule.device + "': " + error.what());
    }
  }
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
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    std::smatch match;
    if (!std::regex_match(deviceName, match, rules_[i])) continue;
    Kel::String const shown = match.format(config_.names[i].shown, std::regex_constants::format_sed);
    return Wire::IntfId::fromString(shown).value_or(Wire::IntfId());
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
