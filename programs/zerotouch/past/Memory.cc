#include "programs/zerotouch/past/Memory.h"

#include <cstdio>
#include <filesystem>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouchCommand {

namespace {

constexpr std::uintmax_t maxBytes = 1 << 20;

}  // namespace

Memory readMemory() {
  Kel::String const path = ZeroTouch::filePathFromFSRoot(ZeroTouch::historyPath);
  std::error_code error;
  bool const tooLarge = std::filesystem::file_size(path, error) > maxBytes && !error;
  Kel::String failure;
  auto const contents = tooLarge ? std::nullopt : Kel::readFile(path, &failure);
  if (!failure.empty()) throw Refused(failure);
  if (tooLarge) throw Refused(path + " is too large to be a history");
  if (!contents) throw Refused("nothing is remembered: there is no " + path);
  try {
    Kel::Value const file = Statebase::parseJson(*contents);
    Memory const memory{number(at(file, {"time"})), at(file, {"runs"}), at(file, {"tree"})};
    if (memory.runs.as<Kel::ValueList>() == nullptr) throw Refused(path + " is no history");
    return memory;
  } catch (Statebase::JsonError const& damage) {
    throw Refused(path + " is damaged: " + damage.what());
  }
}

Snapshot lastKnown(Context const& context, Snapshot::Paths const& paths) {
  try {
    Statebase::Client host(context.socketPath);
    return {host, paths};
  } catch (Statebase::ConnectionError const&) {
    Memory memory;
    try {
      memory = readMemory();
    } catch (Refused const&) {
      // Then the failure to reach the host is what matters.
    }
    if (memory.time <= 0) throw;
    if (!context.json) {
      std::fprintf(stderr, "zerotouch: no host is running; this is what the flash remembers, as of %s\n",
                   dateAndTime(memory.time).c_str());
    }
    return {memory.tree, paths, memory.time};
  }
}

}  // namespace ZeroTouchCommand
