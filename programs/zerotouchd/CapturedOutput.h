// What a program writes, kept in a file of a bounded size: a program that writes without end must not fill
// the disk.
//
// The program writes to a pipe, and the loop copies from there a piece at a time, when nothing else is to be
// done. Of what exceeds the limit, the beginning and the end are kept, with a line in between that says how
// many bytes are missing. The file is in that form at any time, so that nothing has to be done to it when
// this process is killed.
#pragma once

#include <cstdint>
#include <string>

#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"

class CapturedOutput {
 public:
  static constexpr std::uint64_t limit = 4 << 20;  // bytes in the file

  // `file` is an empty file, which is opened once more; the descriptor stays the caller's. -1, or a file that
  // cannot be opened once more, captures nothing.
  explicit CapturedOutput(int file);
  ~CapturedOutput();
  CapturedOutput(CapturedOutput const&) = delete;
  CapturedOutput& operator=(CapturedOutput const&) = delete;

  // Where the program writes; to be given to it instead of the file, and then closed. -1 when nothing is
  // captured.
  int writeEnd() const { return writeEnd_; }
  void closeWriteEnd();

  // Copies all that is in the pipe now.
  void drain();

 private:
  void copySome();
  std::uint64_t copy(std::uint64_t most);
  void append(char const* data, std::uint64_t size);
  void makeRoom();
  void close();

  int file_ = -1;
  int writeEnd_ = -1;
  Kel::Ptr<Kel::FileDescriptor> pipe_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor readable_;
  std::uint64_t size_ = 0;  // of the file
  std::uint64_t end_ = 0;   // where in the file the end of the output begins; 0 when the file holds all of it
  std::uint64_t leftOut_ = 0;  // bytes
};
