#include "platform/linux/Inventory.h"

#include <glob.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "platform/linux/Eeprom.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

constexpr std::size_t maxEeprom = 64 * 1024;

struct Facts {
  Kel::String modelName;
  Kel::String serialNum;
  Kel::String hardwareRev;
  std::optional<Wire::EthAddr> systemMacAddr;

  // Takes from `other` what is still missing.
  void fillFrom(Facts const& other) {
    if (modelName.empty()) modelName = other.modelName;
    if (serialNum.empty()) serialNum = other.serialNum;
    if (hardwareRev.empty()) hardwareRev = other.hardwareRev;
    if (!systemMacAddr) systemMacAddr = other.systemMacAddr;
  }
};

Kel::String firstFile(Kel::String const& pattern) {
  glob_t found{};
  Kel::String result;
  if (!pattern.empty() && glob(pattern.c_str(), 0, nullptr, &found) == 0) result = found.gl_pathv[0];
  globfree(&found);
  return result;
}

Facts factsOfEeprom(Kel::String const& pattern) {
  Kel::String const path = firstFile(pattern);
  if (path.empty()) return {};
  std::vector<std::uint8_t> data(maxEeprom);
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size()));
  data.resize(static_cast<std::size_t>(file.gcount()));
  if (data.empty()) {
    eepromInvalid.log(path, errno != 0 ? std::strerror(errno) : "it is empty");
    return {};
  }
  EepromContents contents;
  if (auto const reason = parseEeprom(data, contents); !reason.empty()) {
    eepromInvalid.log(path, reason);
    return {};
  }
  Kel::String revision = contents.labelRevision;
  if (revision.empty() && contents.deviceVersion) revision = std::to_string(*contents.deviceVersion);
  return {contents.productName, contents.serialNumber, revision, contents.baseMacAddr};
}

// A line of what the firmware tells; empty for the texts that stand there when nobody filled it in.
Kel::String dmiLine(Kel::String const& path) {
  constexpr std::array<std::string_view, 6> fillers = {"Not Specified",          "To Be Filled By O.E.M.",
                                                       "To be filled by O.E.M.", "Default string",
                                                       "System Serial Number",   "None"};
  std::ifstream file(path);
  Kel::String line;
  std::getline(file, line);
  std::erase_if(line, [](char c) { return c < ' ' || c > '~'; });
  line.erase(line.find_last_not_of(' ') + 1);
  return std::ranges::find(fillers, line) == fillers.end() ? line : "";
}

Facts factsOfDmi(Kel::String const& directory) {
  return {dmiLine(directory + "/product_name"), dmiLine(directory + "/product_serial"),
          dmiLine(directory + "/product_version"), std::nullopt};
}

}  // namespace

class Inventory::PortsReactor : public Ports::NotifieeConst {
 public:
  explicit PortsReactor(Inventory& inventory) : NotifieeConst(inventory.ports_), inventory_(inventory) {}
  void onPort(Wire::IntfId const&) override { inventory_.takeMacAddrOfPort(); }

 private:
  Inventory& inventory_;
};

Inventory::Inventory(InventoryConfig const& config, Kel::Ptr<Ports const> ports,
                     Kel::Ptr<EntityMib::Status> status)
    : ports_(std::move(ports)), status_(std::move(status)) {
  Facts facts{config.modelName, config.serialNum, config.hardwareRev, config.systemMacAddr};
  facts.fillFrom(factsOfEeprom(config.eeprom));
  facts.fillFrom(factsOfDmi(config.dmi));
  if (facts.systemMacAddr) {
    status_->systemMacAddrIs(*facts.systemMacAddr);
  } else {
    portsReactor_ = Kel::makePtr<PortsReactor>(*this);
    takeMacAddrOfPort();
  }
  auto const chassis = Kel::makePtr<EntityMib::Fru>();
  chassis->modelNameIs(facts.modelName);
  chassis->serialNumIs(facts.serialNum);
  chassis->hardwareRevIs(facts.hardwareRev);
  chassis->initStatusIs(EntityMib::InitStatus::initialized);
  status_->rootIs(chassis);
}

Inventory::~Inventory() = default;

void Inventory::takeMacAddrOfPort() {
  for (auto const& [intfId, port] : ports_->port()) {
    if (port.kind != PortKind::physical) continue;
    // Last: this function may have been called by the reactor.
    Wire::EthAddr const address = port.macAddr;
    portsReactor_ = nullptr;
    status_->systemMacAddrIs(address);
    return;
  }
}

}  // namespace Linux
