// The settings file on flash, and where its SAVE_FILE puts the startup configuration.
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/fetch/Install.h"
#include "zerotouch/utils/SettingsFile.h"

namespace {

struct Flash {
  TemporaryFolder root;
  std::string const flash = root.path("/flash/");

  Flash() {
    setenv("FILESYSTEM_ROOT", root.path().c_str(), 1);
    std::filesystem::create_directories(flash + "folder");
    std::filesystem::create_directory_symlink("/", flash + "out");
  }
};

}  // namespace

void fuzz(std::string_view input) {
  static Flash const flash;
  static ScratchFile const file;
  file.write(input);
  auto const settings = *ZeroTouch::readSettings(file.path());
  for (auto const& [key, value] : settings) {
    KEL_ASSERT(key.find_first_of("=\n") == key.npos && value.find('\n') == value.npos, "a line's two parts");
    KEL_ASSERT(input.find(key + "=" + value) != input.npos, "as in the file");
  }
  KEL_ASSERT(ZeroTouch::writeSettings(file.path(), settings).empty(), "the file can be written");
  KEL_ASSERT(ZeroTouch::readSettings(file.path()) == settings, "what is written reads the same");

  auto const saveFile = settings.find("SAVE_FILE");
  if (saveFile == settings.end() || saveFile->second.empty()) return;
  if (!ZeroTouch::saveFileObjection(saveFile->second).empty()) return;
  std::filesystem::path const target = flash.flash + saveFile->second;
  std::string const folder = std::filesystem::canonical(target.parent_path()).string() + "/";
  KEL_ASSERT(folder.starts_with(flash.flash), "a folder of the flash");
  KEL_ASSERT(target.has_filename() && !std::filesystem::is_directory(target), "the name of a file");
}
