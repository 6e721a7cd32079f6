// Reads the system EEPROM in the TlvInfo format of the Open Network Install Environment (ONIE).
#pragma once

#include <optional>
#include <span>

#include "platform/model/values/Wire.h"

namespace Linux {

// Empty, or nothing, where the EEPROM has no such entry.
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

}  // namespace Linux
