#include "zerotouch/utils/ZeroTouchUtils.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "platform/kel/WholeFile.h"

namespace ZeroTouch {

namespace {

constexpr mode_t outputMode = 0644;

// A named pipe that stands there without a reader counts as one that cannot be opened: the agent does not
// wait.
int openOutput(char const* path) {
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return path == nullptr ? -1 : open(path, flags, outputMode);
}

}  // namespace

Kel::String filePathFromFSRoot(Kel::String const& path) {
  char const* const root = std::getenv("FILESYSTEM_ROOT");
  return (root != nullptr && *root != '\0' ? Kel::String(root) : "/mnt") + path;
}

Kel::String argvToString(char const* const* argv) {
  Kel::String result;
  for (; *argv != nullptr; ++argv) result += Kel::String(*argv) + " ";
  return result;
}

std::optional<FileStart> readStart(Kel::String const& path, std::size_t limit) {
  auto text = Kel::readFile(path, nullptr, limit + 1);
  if (!text) return std::nullopt;
  bool const cut = text->size() > limit;
  if (cut) text->resize(limit);
  return FileStart{std::move(*text), cut};
}

Kel::Ptr<Kel::ChildSiginfo> runCmd(char** argv, char const* stdoutPath, char const* stderrPath) {
  int const out = openOutput(stdoutPath);
  int const err = openOutput(stderrPath);
  bool const contained = stdoutPath != nullptr || stderrPath != nullptr;
  auto child = contained ? Kel::runContained(argv, -1, out, err) : Kel::run(argv, -1, out, err, -1);
  if (out >= 0) close(out);
  if (err >= 0) close(err);
  return child;
}

}  // namespace ZeroTouch
