// The hardware inventory, and the reader of the system EEPROM in the TlvInfo format of the Open Network
// Install Environment (ONIE).
#pragma once

#include <optional>
#include <span>

#include "platform/kel/Reactor.h"
#include "platform/linux/links/Ports.h"
#include "platform/model/entitymib.h"
#include "platform/model/values/Wire.h"

namespace Linux {

// What an EEPROM says; empty, or nothing, where the EEPROM has no such entry.
struct EepromContents {
  Kel::String productName;
  Kel::String serialNumber;
  Kel::String labelRevision;
  std::optional<std::uint8_t> deviceVersion;
  std::optional<Wire::EthAddr> baseMacAddr;
};

// `data` is the whole EEPROM: what stands behind the last entry is ignored. Returns "" and sets `out`, or
// what is wrong; then `out` is left as it was.
Kel::String parseEeprom(std::span<std::uint8_t const> data, EepromContents& out);

// CRC-32 as IEEE 802.3 has it, which ends the EEPROM's contents.
std::uint32_t crc32(std::span<std::uint8_t const> data);

// Fills the hardware inventory: model, serial number, hardware revision and the system's MAC address.
//
// Each comes from the first source that has it: the configuration, the system EEPROM in ONIE's format, what
// the firmware tells (DMI), and for the address the first physical port, in the order of names, as soon as
// there is one. The chassis appears with everything set, and as initialized: what no source has stays empty.
struct InventoryConfig {
  Kel::String modelName;  // empty: from the other sources
  Kel::String serialNum;
  Kel::String hardwareRev;
  std::optional<Wire::EthAddr> systemMacAddr;
  // Files, for glob(7); the first that exists is read. A file that cannot be read or makes no sense is a
  // warning. ONIE's EEPROM is most often the one at address 0x56 of an I2C bus.
  Kel::String eeprom = "/sys/bus/i2c/devices/*-0056/eeprom";
  Kel::String dmi = "/sys/class/dmi/id";

  bool operator==(InventoryConfig const&) const = default;
};

// What the sources tell that need no port.
struct InventoryFacts {
  Kel::String modelName;
  Kel::String serialNum;
  Kel::String hardwareRev;
  std::optional<Wire::EthAddr> systemMacAddr;
};
InventoryFacts inventoryFacts(InventoryConfig const& config);

class Inventory {
 public:
  Inventory(InventoryConfig const& config, Kel::Ptr<Ports const> ports, Kel::Ptr<EntityMib::Status> status);
  Inventory(Inventory const&) = delete;
  Inventory& operator=(Inventory const&) = delete;

 private:
  void takeMacAddrOfPort();

  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<EntityMib::Status> status_;
  Kel::Reactor portsReactor_;  // while there is no address
};

}  // namespace Linux
