#include "zerotouch/agent/ChildLauncher.h"

#include <fcntl.h>
#include <unistd.h>

namespace ZeroTouch {

namespace {

constexpr mode_t outputMode = 0644;

int openOutput(char const* path) {
  return path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, outputMode);
}

}  // namespace

Kel::Ptr<Kel::ChildSiginfo> runCmd(char** argv, char const* stdoutPath, char const* stderrPath) {
  int const out = openOutput(stdoutPath);
  int const err = openOutput(stderrPath);
  auto child = Kel::run(argv, -1, out, err, -1);
  if (out >= 0) close(out);
  if (err >= 0) close(err);
  return child;
}

}  // namespace ZeroTouch
