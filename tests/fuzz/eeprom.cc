// The system EEPROM: as it is given, and with a header and a checksum that fit what is given.
#include "platform/linux/system/Inventory.h"
#include "tests/fuzz/Fuzz.h"

namespace {

void parse(std::string_view data) {
  Linux::EepromContents out;
  out.serialNumber = "untouched";
  if (!Linux::parseEeprom(std::vector<std::uint8_t>(data.begin(), data.end()), out).empty()) {
    KEL_ASSERT(out.serialNumber == "untouched" && !out.baseMacAddr, "refused contents change nothing");
    return;
  }
  for (Kel::String const& text : {out.productName, out.serialNumber, out.labelRevision})
    KEL_ASSERT(isPrintable(text) && data.find(text) != data.npos, "a text for people, from the EEPROM");
}

std::string bigEndian(std::size_t value, unsigned bytes) {
  std::string result;
  while (bytes-- > 0) result += static_cast<char>(value >> 8 * bytes);
  return result;
}

}  // namespace

void fuzz(std::string_view input) {
  parse(input);
  std::string sealed = "TlvInfo\0\x01"s + bigEndian(input.size() + 6, 2) + std::string(input) + "\xfe\x04";
  sealed += bigEndian(Linux::crc32({reinterpret_cast<std::uint8_t const*>(sealed.data()), sealed.size()}), 4);
  parse(sealed);
}
