// What an earlier host left to be put back: the journal of settings, behind its first line.
#include "platform/kel/BootMemory.h"
#include "platform/kel/Log.h"
#include "platform/linux/settings/DeviceSettings.h"
#include "platform/linux/settings/SettingKinds.h"
#include "tests/fuzz/Fuzz.h"

void fuzz(std::string_view input) {
  static ScratchFile const file("undo-journal");
  static std::string const place = Kel::BootMemory::inNamespace("net") + "\n";
  static int const sink [[maybe_unused]] = Kel::logSinkIs(
      [](Kel::LogEvent const& event) { KEL_ASSERT(isHarmless(event.message), "a warning for a terminal"); });
  file.write(place + std::string(input));
  Linux::UndoJournal(file.path());
  std::string const understood = file.read();
  Linux::UndoJournal journal(file.path());
  KEL_ASSERT(file.read() == understood, "the next host reads the same");

  auto const entries = journal.entries();
  for (auto const& [ifIndex, ofDevice] : entries) {
    KEL_ASSERT(ifIndex > 0 && !ofDevice.empty(), "settings of a device");
    for (auto const& [item, original] : ofDevice) {
      Linux::LinkSettings settings;
      bool const refused = !Linux::applyLinkModeText(original, settings).empty();
      KEL_ASSERT(!refused || settings == Linux::LinkSettings(), "what is refused changes nothing");
      KEL_ASSERT(*journal.original(ifIndex, item) == original, "one original");
      journal.entryDel(ifIndex, item);
    }
  }
  KEL_ASSERT(Linux::UndoJournal(file.path()).entries().empty(), "all is put back");
}
