#include "programs/zerotouch/ReporterStatus.h"

#include <filesystem>

#include "platform/kel/WholeFile.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"

namespace ZeroTouchCommand {

Kel::Value reporterStatus(std::string const& socketPath) {
  constexpr std::size_t most = 64 << 10;
  std::string const folder = std::filesystem::path(socketPath).parent_path().string() + "-reporter";
  auto const file = Kel::readFile(folder + "/status.json", nullptr, most);
  if (!file) return {};
  try {
    return Statebase::parseJson(*file);
  } catch (Statebase::JsonError const&) {  // somebody else wrote it
    return {};
  }
}

std::string reporterInWords(Kel::Value const& status) {
  std::string const line = memberText(status, "delivered") + " events delivered, " +
                           memberText(status, "waiting") + " waiting, " + memberText(status, "dropped") +
                           " dropped";
  std::string const failure = memberText(status, "failure");
  return failure.empty() ? line : line + "; the last delivery failed: " + failure;
}

}  // namespace ZeroTouchCommand
