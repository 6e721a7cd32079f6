// The settings file on flash: provisioning settings that survive a reboot.
//
// Plain text, one KEY=VALUE a line: the key is all before the first "=", the value all behind it. No
// comments, no quoting, nothing is trimmed. A line without "=" is skipped; of two lines with the same key the
// later one counts.
#pragma once

#include <map>
#include <optional>

#include "platform/kel/Types.h"

namespace ZeroTouch {

inline constexpr char const* defaultConfigFilePath = "/flash/zerotouch-config";
inline constexpr char const* defaultStartupConfigPath = "/flash/startup-config";
// What the host remembers of its runs; the agent itself knows nothing of it.
inline constexpr char const* historyPath = "/flash/zerotouch-history";

// The entry that keeps provisioning off for one boot, written just before the reload that ends a run.
inline constexpr char const* disableSetting = "DISABLE";
inline constexpr char const* disableOnNextReload = "NextReload";

using Settings = std::map<Kel::String, Kel::String>;

// Nothing when the file cannot be opened. `path` is the real one, already rooted.
std::optional<Settings> readSettings(Kel::String const& path);

// Replaces the file; "" or the reason of the failure, as Kel::replaceFile.
Kel::String writeSettings(Kel::String const& path, Settings const& settings);

}  // namespace ZeroTouch
