// Reading and replacing a whole file of the system's configuration.
#pragma once

#include <optional>

#include "platform/kel/Types.h"

namespace Linux {

// Nothing when there is no such file, or it cannot be read.
std::optional<Kel::String> readWhole(Kel::String const& path);

// Replaces what `path` holds; nothing means that there is to be no such file. A symbolic link stays one: what
// it leads to is replaced. A reader finds the old contents or the new ones, unless the file can only be
// written where it is (it is a mount of its own, or its directory is read-only): then both for a moment. Mode
// and owner stay; a new file has `mode`. Returns "" or why it failed, which leaves what was there.
Kel::String replaceWhole(Kel::String const& path, std::optional<Kel::String> const& contents,
                         unsigned mode = 0644);

}  // namespace Linux
