#include "platform/linux/system/Inventory.h"

#include <glob.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "platform/kel/Format.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

// The header: a signature with its NUL, a version, and the length of all entries, the checksum's included.
constexpr std::array<std::uint8_t, 8> signature = {'T', 'l', 'v', 'I', 'n', 'f', 'o', '\0'};
constexpr std::size_t versionAt = 8;
constexpr std::size_t lengthAt = 9;
constexpr std::size_t headerLength = 11;
constexpr std::uint8_t version = 1;

// An entry: type, length, value.
constexpr std::size_t entryHeader = 2;
constexpr std::uint8_t productName = 0x21;
constexpr std::uint8_t serialNumber = 0x23;
constexpr std::uint8_t baseMacAddr = 0x24;
constexpr std::uint8_t deviceVersion = 0x26;
constexpr std::uint8_t labelRevision = 0x27;
constexpr std::uint8_t checksum = 0xfe;
constexpr std::size_t checksumLength = 4;

using Bytes = std::span<std::uint8_t const>;

Kel::String setText(Bytes value, Kel::String& out) {
  // Some vendors fill the entry up with blanks or NULs.
  while (!value.empty() && (value.back() == 0 || value.back() == ' ')) value = value.first(value.size() - 1);
  if (std::ranges::any_of(value, [](std::uint8_t byte) { return byte < ' ' || byte > '~'; })) {
    return "a character that cannot be printed";
  }
  out.assign(value.begin(), value.end());
  return {};
}

Kel::String setMacAddr(Bytes value, EepromContents& out) {
  Wire::EthAddr address;
  if (value.size() != address.bytes.size()) return "not 6 bytes";
  std::ranges::copy(value, address.bytes.begin());
  out.baseMacAddr = address;
  return {};
}

Kel::String setVersion(Bytes value, EepromContents& out) {
  if (value.size() != 1) return "not 1 byte";
  out.deviceVersion = value[0];
  return {};
}

Kel::String setEntry(std::uint8_t type, Bytes value, EepromContents& out) {
  switch (type) {
    case productName:
      return setText(value, out.productName);
    case serialNumber:
      return setText(value, out.serialNumber);
    case labelRevision:
      return setText(value, out.labelRevision);
    case baseMacAddr:
      return setMacAddr(value, out);
    case deviceVersion:
      return setVersion(value, out);
    default:
      return {};
  }
}

// The checksum covers everything before its own value.
Kel::String checkChecksum(Bytes before, Bytes value) {
  if (value.size() != checksumLength) return "not 4 bytes";
  std::uint32_t stored = 0;
  for (std::uint8_t const byte : value) stored = stored << 8 | byte;
  std::uint32_t const computed = crc32(before);
  return stored == computed ? "" : Kel::format("0x%08x, but the contents have 0x%08x", stored, computed);
}

}  // namespace

std::uint32_t crc32(Bytes data) {
  constexpr std::uint32_t polynomial = 0xedb88320;
  std::uint32_t crc = 0xffffffff;
  for (std::uint8_t const byte : data) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? polynomial : 0);
  }
  return ~crc;
}

Kel::String parseEeprom(Bytes data, EepromContents& out) {
  if (data.size() < headerLength || !std::ranges::equal(data.first(signature.size()), signature)) {
    return "it does not begin with TlvInfo";
  }
  if (data[versionAt] != version) return Kel::format("unknown version %u", data[versionAt]);
  std::size_t const length = static_cast<std::size_t>(data[lengthAt] << 8 | data[lengthAt + 1]);
  std::size_t const end = headerLength + length;
  if (end > data.size()) return Kel::format("its length of %u bytes goes past its end", length);

  EepromContents contents;
  for (std::size_t at = headerLength; at < end;) {
    if (end - at < entryHeader || end - at - entryHeader < data[at + 1]) {
      return Kel::format("the entry at byte %u goes past the end", at);
    }
    std::uint8_t const type = data[at];
    Bytes const value = data.subspan(at + entryHeader, data[at + 1]);
    bool const last = at + entryHeader + value.size() == end;
    if (last != (type == checksum)) return "its checksum is not the last entry";
    Kel::String const reason =
        last ? checkChecksum(data.first(at + entryHeader), value) : setEntry(type, value, contents);
    if (!reason.empty()) return Kel::format("entry 0x%02x: %s", type, reason);
    at += entryHeader + value.size();
  }
  if (length == 0) return "it has no entries";
  out = contents;
  return {};
}

namespace {

constexpr std::size_t maxEeprom = 64 * 1024;

Kel::String firstFile(Kel::String const& pattern) {
  glob_t found{};
  Kel::String result;
  if (!pattern.empty() && glob(pattern.c_str(), 0, nullptr, &found) == 0) result = found.gl_pathv[0];
  globfree(&found);
  return result;
}

InventoryFacts factsOfEeprom(Kel::String const& pattern) {
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

// A line of the firmware's tables; empty when it holds one of the placeholders of a vendor who did not fill
// it in.
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

InventoryFacts factsOfDmi(Kel::String const& directory) {
  return {dmiLine(directory + "/product_name"), dmiLine(directory + "/product_serial"),
          dmiLine(directory + "/product_version"), std::nullopt};
}

// Takes from `other` what is still missing.
void fill(InventoryFacts& facts, InventoryFacts const& other) {
  if (facts.modelName.empty()) facts.modelName = other.modelName;
  if (facts.serialNum.empty()) facts.serialNum = other.serialNum;
  if (facts.hardwareRev.empty()) facts.hardwareRev = other.hardwareRev;
  if (!facts.systemMacAddr) facts.systemMacAddr = other.systemMacAddr;
}

}  // namespace

InventoryFacts inventoryFacts(InventoryConfig const& config) {
  InventoryFacts facts{config.modelName, config.serialNum, config.hardwareRev, config.systemMacAddr};
  fill(facts, factsOfEeprom(config.eeprom));
  fill(facts, factsOfDmi(config.dmi));
  return facts;
}

Inventory::Inventory(InventoryConfig const& config, Kel::Ptr<Ports const> ports,
                     Kel::Ptr<EntityMib::Status> status)
    : ports_(std::move(ports)), status_(std::move(status)) {
  InventoryFacts const facts = inventoryFacts(config);
  if (facts.systemMacAddr) {
    status_->systemMacAddrIs(*facts.systemMacAddr);
  } else {
    portsReactor_ = Kel::Reactor(ports_, &Ports::NotifieeConst::onPort, [this] { takeMacAddrOfPort(); });
    takeMacAddrOfPort();
  }
  auto const chassis = Kel::makePtr<EntityMib::Fru>();
  chassis->modelNameIs(facts.modelName);
  chassis->serialNumIs(facts.serialNum);
  chassis->hardwareRevIs(facts.hardwareRev);
  chassis->initStatusIs(EntityMib::InitStatus::initialized);
  status_->rootIs(chassis);
}

void Inventory::takeMacAddrOfPort() {
  for (auto const& [intfId, port] : ports_->port()) {
    if (port.kind != PortKind::physical) continue;
    Wire::EthAddr const address = port.macAddr;
    portsReactor_ = {};
    status_->systemMacAddrIs(address);
    return;
  }
}

}  // namespace Linux
