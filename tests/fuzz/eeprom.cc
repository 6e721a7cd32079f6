// The system EEPROM: as it is given, and with a header and a checksum that fit what is given.
#include "platform/linux/system/Inventory.h"
#include "tests/fuzz/Fuzz.h"

namespace {

void parse(std::string_view data) {
  std::vector<std::uint8_t> const bytes(data.begin(), data.end());
  Linux::EepromContents out;
  out.serialNumber = "untouched";
  if (!Linux::parseEeprom(bytes, out).empty()) {
    KEL_ASSERT(out.serialNumber == "untouched" && !out.baseMacAddr, "refused contents change nothing");
    return;
  }
  for (Kel::String const& text : {out.productName, out.serialNumber, out.labelRevision}) {
    KEL_ASSERT(isPrintable(text) && !text.ends_with(' '), "a text for people");
    KEL_ASSERT(data.find(text) != data.npos, "from the EEPROM");
  }
  if (out.baseMacAddr) {
    std::string const mac(out.baseMacAddr->bytes.begin(), out.baseMacAddr->bytes.end());
    KEL_ASSERT(data.find("\x24\x06" + mac) != data.npos, "from the EEPROM");
  }
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
