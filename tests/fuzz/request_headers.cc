// What an HTTP request says of the switch, from the files of its software's version and of its architecture
// and from what the firmware tells (DMI). In the input they are parted by a line of "--".
#include "platform/linux/system/Inventory.h"
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/fetch/BootFile.h"

void fuzz(std::string_view input) {
  static ScratchFile const version;
  static ScratchFile const architecture;
  static ScratchFile const model("product_name");
  for (auto const* const file : {&version, &architecture, &model}) file->write(take(input, "\n--\n"));

  static auto const ports = Kel::makePtr<Linux::Ports>();
  Linux::InventoryConfig config;
  config.serialNum = "SN1";
  config.eeprom = "";
  config.dmi = std::filesystem::path(model.path()).parent_path();
  auto const status = Kel::makePtr<EntityMib::Status>();
  Linux::Inventory const inventory(config, ports, status);
  KEL_ASSERT(isPrintable(status->root()->modelName()), "a text for people");

  constexpr std::size_t longest = 1024;
  std::size_t count = 0;
  for (std::string_view line :
       ZeroTouch::requestHeaders({}, *status->root(), version.path(), architecture.path())) {
    KEL_ASSERT(std::ranges::none_of(line, [](unsigned char c) { return c < ' ' || c == 0x7f; }), "one line");
    KEL_ASSERT(take(line, ": ").starts_with("X-Ostrel-") && line.size() <= longest, "a name and a value");
    ++count;
  }
  KEL_ASSERT(count == 5 || count == 6, "all but a version that the file does not have");
}
