// Files that are read, and replaced, as a whole.
//
// A file is replaced by one that is written beside it and renamed over it, so that a reader finds the old
// contents or the new ones. So does a power cut when the new file is flushed before; that can take seconds on
// a busy disk, so it is done only for what has to outlive one. The file beside it is called
// PATH.zerotouch-new: a crash leaves at most that one, and the next replacement or removeUnfinished() removes
// it. It is made anew each time, so that a link or a file that somebody put there is never written through.
// The functions that change something return "" or what failed, with the path and the system's reason; the
// file is then as it was, unless only the last flush failed.
#pragma once

#include <functional>
#include <optional>

#include "platform/kel/Types.h"

namespace Kel {

// The contents of a regular file; nothing when there is none or it cannot be read. A named pipe is no regular
// file, so that this never waits. `failure`, when given, is set to what failed, or to "" when the file was
// read or there is none.
std::optional<String> readFile(String const& path, String* failure = nullptr,
                               std::size_t most = String::npos);

// Replaces what stands at `path`, be it a link, by a file with this mode that belongs to this process. It is
// not flushed to the disk unless it has to outlive a power cut, since a busy disk can take seconds for that.
// Where the file system is full, the missing bytes are told.
String replaceFile(String const& path, String const& contents, unsigned mode = 0644,
                   bool outlivesPower = true);

// The same with the contents of the regular file `source`, of any size; `source` must not be a link. A
// regular file that is replaced leaves its mode and its owner to the new one. Nothing is written when the
// file system has not enough room; what is missing is then said in bytes. On a slow disk this takes long:
// 4 MiB are flushed to it at a time, and `betweenPieces` is called before the first such piece and after
// each. The number of the error that kept the new contents from being written goes to `errorNumber`.
String replaceFileByCopy(String const& path, String const& source, unsigned mode,
                         std::function<void()> const& betweenPieces, int* errorNumber = nullptr);

// Removes the file beside `path` that a replacement leaves when it is killed.
void removeUnfinished(String const& path);

// Changes a file that belongs to the system: the contents behind a link are replaced and the link stays, and
// so do mode and owner of a file that exists; a new one gets `mode`. Where only the file itself can be
// written (it is a mount of its own, or its folder is read-only), it is rewritten in place, and for a moment
// holds neither the old contents nor the new ones. It is not flushed.
String changeFile(String const& path, String const& contents, unsigned mode = 0644);

// Removes the file, or what a link leads to. That there is none is no failure.
String removeFile(String const& path);

}  // namespace Kel
