#include "programs/zerotouchd/CapturedOutput.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace {

constexpr std::uint64_t piece = 64 << 10;
constexpr std::uint64_t beginning = CapturedOutput::limit / 2;  // what is kept of it
constexpr std::uint64_t shortestEnd = CapturedOutput::limit / 4;

}  // namespace

CapturedOutput::CapturedOutput(int file) {
  if (file < 0) return;
  // The caller's descriptor may be for writing only, and parts of the file have to be moved.
  file_ = open(("/proc/self/fd/" + std::to_string(file)).c_str(), O_RDWR | O_CLOEXEC);
  int ends[2];
  if (file_ < 0 || pipe2(ends, O_CLOEXEC) != 0) {
    close();
    return;
  }
  writeEnd_ = ends[1];
  pipe_->descriptorIs(ends[0]);
  pipe_->nonBlockingIs(true);
  pipe_->lateIs(true);
  pipe_->notifyOnReadableIs(true);
  readable_ =
      Kel::Reactor(pipe_, &Kel::FileDescriptor::NotifieeConst::onReadableCount, [this] { copySome(); });
}

CapturedOutput::~CapturedOutput() {
  closeWriteEnd();
  close();
}

void CapturedOutput::closeWriteEnd() {
  if (writeEnd_ >= 0) ::close(writeEnd_);
  writeEnd_ = -1;
}

void CapturedOutput::close() {
  int const pipe = pipe_->descriptor();
  pipe_->descriptorIs(-1);
  for (int const fd : {pipe, file_}) {
    if (fd >= 0) ::close(fd);
  }
  file_ = -1;
}

void CapturedOutput::copySome() { copy(piece); }

void CapturedOutput::drain() {
  int waiting = 0;
  if (file_ < 0 || ioctl(pipe_->descriptor(), FIONREAD, &waiting) != 0) return;
  // A program may make its pipe larger than what is kept of it.
  auto left = std::min(static_cast<std::uint64_t>(std::max(waiting, 0)), 2 * limit);
  while (left > 0) {
    auto const copied = copy(left);
    if (copied == 0) return;
    left -= copied;
  }
}

// Returns the number of bytes; 0 when there is nothing, or nobody is left who could write.
std::uint64_t CapturedOutput::copy(std::uint64_t most) {
  std::array<char, piece> buffer;
  ssize_t got = 0;
  do {
    got = read(pipe_->descriptor(), buffer.data(), std::min(most, piece));
  } while (got < 0 && errno == EINTR);
  if (got > 0) {
    append(buffer.data(), static_cast<std::uint64_t>(got));
    return static_cast<std::uint64_t>(got);
  }
  if (got == 0 || errno != EAGAIN) close();
  return 0;
}

// What the disk does not take is lost: the program is not to be stopped.
void CapturedOutput::append(char const* data, std::uint64_t size) {
  if (size_ + size > limit) makeRoom();
  while (size > 0) {
    auto const written = pwrite(file_, data, size, static_cast<off_t>(size_));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    size_ += static_cast<std::uint64_t>(written);
    data += written;
    size -= static_cast<std::uint64_t>(written);
  }
}

// Drops what stands between the beginning and the last part of the output.
void CapturedOutput::makeRoom() {
  if (end_ == 0) end_ = beginning;
  auto from = size_ - shortestEnd;
  auto const to = size_;
  leftOut_ += from - end_;
  std::string const line = "\n[" + std::to_string(leftOut_) + " bytes left out]\n";
  size_ = beginning;
  append(line.data(), line.size());
  end_ = size_;
  std::array<char, piece> kept;
  while (from < to) {
    auto const got = pread(file_, kept.data(), kept.size(), static_cast<off_t>(from));
    if (got <= 0) break;
    append(kept.data(), static_cast<std::uint64_t>(got));
    from += static_cast<std::uint64_t>(got);
  }
  if (ftruncate(file_, static_cast<off_t>(size_)) != 0) close();
}
