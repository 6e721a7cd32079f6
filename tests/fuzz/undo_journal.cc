// What an earlier host left to be put back: the journal of settings, behind its first line.
#include "platform/kel/BootMemory.h"
#include "platform/kel/Log.h"
#include "platform/linux/settings/DeviceSettings.h"
#include "platform/linux/settings/SettingKinds.h"
#include "tests/fuzz/Fuzz.h"

namespace {

std::string text(Linux::UndoJournal const& journal) {
  std::string result;
  for (auto const& [ifIndex, entries] : journal.entries()) {
    KEL_ASSERT(ifIndex > 0 && !entries.empty(), "settings of a device");
    for (auto const& [item, original] : entries)
      result.append(std::to_string(ifIndex)).append(" " + item + " " + original + "\n");
  }
  return result;
}

}  // namespace

void fuzz(std::string_view input) {
  static ScratchFile const file("undo-journal");
  static std::string const place = Kel::BootMemory::inNamespace("net") + "\n";
  static int const sink [[maybe_unused]] = Kel::logSinkIs(
      [](Kel::LogEvent const& event) { KEL_ASSERT(isPrintable(event.message), "a plain warning"); });
  file.write(place + std::string(input));
  std::string before;
  {
    Linux::UndoJournal journal(file.path());
    before = text(journal);
    auto const entries = journal.entries();
    for (auto const& [ifIndex, ofDevice] : entries) {
      for (auto const& [item, original] : ofDevice) {
        Linux::LinkSettings settings;
        bool const refused = !Linux::applyLinkModeText(original, settings).empty();
        KEL_ASSERT(!refused || settings == Linux::LinkSettings(), "what is refused changes nothing");
        KEL_ASSERT(*journal.original(ifIndex, item) == original, "one original");
      }
    }
  }
  Linux::UndoJournal journal(file.path());
  KEL_ASSERT(text(journal) == before, "the next host reads the same");
  auto const entries = journal.entries();
  for (auto const& [ifIndex, ofDevice] : entries) {
    for (auto const& entry : ofDevice) journal.entryDel(ifIndex, entry.item);
  }
  KEL_ASSERT(journal.entries().empty() && text(Linux::UndoJournal(file.path())).empty(), "all is put back");
}
