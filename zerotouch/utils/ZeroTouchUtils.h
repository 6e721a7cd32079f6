// What several rooms share: path rooting, argument vectors, the first bytes of a file, starting child
// processes.
#pragma once

#include <optional>

#include "platform/kel/Child.h"
#include "platform/kel/Types.h"

namespace ZeroTouch {

// Where a flash path really is: below the environment variable "FILESYSTEM_ROOT", or below "/mnt" when that
// is unset or empty. Plain concatenation: "/flash/x" becomes "/mnt/flash/x".
Kel::String filePathFromFSRoot(Kel::String const& path);

// Every element of a null-terminated vector followed by a blank, for trace lines.
Kel::String argvToString(char const* const* argv);

// The first `limit` bytes of a regular file, and whether it holds more; nothing when there is no such file or
// it cannot be opened. Never waits, as reading a named pipe would.
struct FileStart {
  Kel::String text;
  bool cut = false;
};
std::optional<FileStart> readStart(Kel::String const& path, std::size_t limit);

// Whether a byte is no text: below the blank, or DEL.
inline bool isControl(char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f; }

// Starts argv[0] (null-terminated `argv`, the caller's) and returns its record; a reactor on the record
// learns of the end. A path, when not null, receives that stream: created if missing, truncated, mode 0644. A
// stream whose path is null or cannot be opened is the agent's own. A child with a path is contained
// (Kel::runContained).
Kel::Ptr<Kel::ChildSiginfo> runCmd(char** argv, char const* stdoutPath, char const* stderrPath);

}  // namespace ZeroTouch
