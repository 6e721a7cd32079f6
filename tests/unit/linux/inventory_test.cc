// The hardware inventory and its sources.
#include "platform/linux/system/Inventory.h"

#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

using namespace std::string_literals;

std::span<std::uint8_t const> bytes(std::string const& data) {
  return {reinterpret_cast<std::uint8_t const*>(data.data()), data.size()};
}

std::string entry(unsigned type, std::string const& value) {
  return std::string{static_cast<char>(type), static_cast<char>(value.size())} + value;
}

std::string header(std::size_t length) {
  return "TlvInfo\0\x01"s + static_cast<char>(length >> 8) + static_cast<char>(length);
}

// An EEPROM with these entries and the checksum that belongs to them.
std::string eeprom(std::string const& entries) {
  std::string result = header(entries.size() + 6) + entries + "\xfe\x04";
  std::uint32_t const sum = crc32(bytes(result));
  for (int shift = 24; shift >= 0; shift -= 8) result += static_cast<char>(sum >> shift);
  return result;
}

std::string const whole = entry(0x21, "AS-48X") + entry(0x23, "SN0042 \0"s) +
                          entry(0x24, "\x02\x11\x22\x33\x44\x55") + entry(0x26, "\x07") + entry(0x27, "R0B") +
                          entry(0xfd, "\x00\x00\x12vendor's own"s);

class InventoryTest : public ::testing::Test {
 protected:
  InventoryTest() {
    config.eeprom = folder.path("/i2c/*-0056/eeprom");
    config.dmi = folder.path("/dmi");
  }

  void portIs(char const* name, char const* address, PortKind kind = PortKind::physical) const {
    ports->portIs(Wire::IntfId(name), {.deviceName = name,
                                       .ifIndex = ++lastIndex,
                                       .kind = kind,
                                       .macAddr = *Wire::EthAddr::fromString(address),
                                       .linkLocal = {}});
  }
  std::string taken() {
    status = Kel::makePtr<EntityMib::Status>();
    Inventory const inventory(config, ports, status);
    auto const root = status->root();
    return root->modelName() + "," + root->serialNum() + "," + root->hardwareRev() + "," +
           status->systemMacAddr().stringValue() + "," + stringValue(root->initStatus());
  }

  TemporaryFolder folder;
  InventoryConfig config;
  Kel::Ptr<Ports> ports = Kel::makePtr<Ports>();
  Kel::Ptr<EntityMib::Status> status = Kel::makePtr<EntityMib::Status>();
  Warned warned;
  static inline int lastIndex = 0;
};

TEST_F(InventoryTest, TakesEachFactFromTheFirstSourceThatHasIt) {
  std::string const none = "00:00:00:00:00:00";
  EXPECT_EQ(taken(), ",,," + none + ",initialized");
  folder.write("/dmi/product_name", "Box\n");
  folder.write("/dmi/product_version", "1.0 \n");
  folder.write("/dmi/product_serial", "To Be Filled By O.E.M.\n");
  EXPECT_EQ(taken(), "Box,,1.0," + none + ",initialized");
  portIs("Ethernet2", "02:00:00:00:00:02");
  portIs("Bond1", "02:00:00:00:00:09", PortKind::lag);
  EXPECT_EQ(taken(), "Box,,1.0,02:00:00:00:00:02,initialized");
  folder.write("/i2c/3-0056/eeprom", eeprom(entry(0x21, "AS-48X") + entry(0x26, "\x07")));
  EXPECT_EQ(taken(), "AS-48X,,7,02:00:00:00:00:02,initialized");
  folder.write("/i2c/3-0056/eeprom", eeprom(whole));
  EXPECT_EQ(taken(), "AS-48X,SN0042,R0B,02:11:22:33:44:55,initialized");
  config.modelName = "Mine";
  config.systemMacAddr = Wire::EthAddr::fromString("02:99:00:00:00:01");
  EXPECT_EQ(taken(), "Mine,SN0042,R0B,02:99:00:00:00:01,initialized");
  EXPECT_EQ(warned.text(), "");
}

TEST_F(InventoryTest, PassesOverAnEepromThatMakesNoSense) {
  EXPECT_EQ(crc32(bytes("123456789")), 0xcbf43926U);
  folder.write("/dmi/product_name", "Box\n");
  std::string const good = eeprom(whole);
  std::string badChecksum = good, otherVersion = good;
  badChecksum.back() ^= 1;
  otherVersion[8] = 2;
  std::string const checksumFirst = header(6 + whole.size()) + entry(0xfe, "\0\0\0\0"s) + whole;
  for (auto const& [data, reason] : std::vector<std::pair<std::string, std::string>>{
           {"", "it is empty"},
           {"x" + good, "it does not begin with TlvInfo"},
           {otherVersion, "unknown version 2"},
           {header(0), "it has no entries"},
           {header(9), "its length of 9 bytes goes past its end"},
           {header(4) + "\x21\x03xy", "the entry at byte 11 goes past the end"},
           {checksumFirst, "its checksum is not the last entry"},
           {badChecksum, "entry 0xfe: 0x"},
           {eeprom(entry(0x24, "\x02\x11")), "entry 0x24: not 6 bytes"},
           {eeprom(entry(0x26, "12")), "entry 0x26: not 1 byte"},
           {eeprom(entry(0x23, "SN\r\nX: y")), "entry 0x23: a character that cannot be printed"}}) {
    folder.write("/i2c/3-0056/eeprom", data);
    Warned const warning;
    EXPECT_EQ(taken(), "Box,,,00:00:00:00:00:00,initialized");
    EXPECT_TRUE(warning.text().starts_with("EEPROM_INVALID: The system EEPROM " +
                                           folder.path("/i2c/3-0056/eeprom is not used: ") + reason))
        << warning.text() << reason;
  }
}

TEST_F(InventoryTest, TakesTheAddressOfTheFirstPortThatComes) {
  Inventory const inventory(config, ports, status);
  portIs("Vlan1", "02:00:00:00:00:01", PortKind::vlan);
  portIs("Ethernet7", "02:00:00:00:00:07");
  portIs("Ethernet1", "02:00:00:00:00:02");
  EXPECT_EQ(status->systemMacAddr().stringValue(), "02:00:00:00:00:07");
}

}  // namespace
}  // namespace Linux
