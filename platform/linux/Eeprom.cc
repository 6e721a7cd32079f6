#include "platform/linux/Eeprom.h"

#include <algorithm>
#include <array>

#include "platform/kel/Format.h"

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
  // Some vendors pad with blanks or NULs.
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

}  // namespace Linux
