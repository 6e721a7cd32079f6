// A server's answer to a download: a byte for the size of the pieces in which it comes (over HTTP when it is
// odd), one for the largest file that is taken, in units of 16 bytes; lines of a header, an empty line, the
// body.
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/fetch/CurlTransfer.h"

using namespace ZeroTouch;

namespace {

// Hands the data over in a buffer of exactly its size, so that the sanitizer sees a read past its end.
std::size_t handOver(decltype(curlWriteCB) callback, std::string_view data, CurlTransfer& transfer) {
  std::vector<char> piece(data.begin(), data.end());
  return callback(piece.data(), 1, piece.size(), &transfer);
}

}  // namespace

void fuzz(std::string_view input) {
  if (input.size() < 2) return;
  static ScratchFile const file;
  std::size_t const pieceSize = static_cast<unsigned char>(input[0]) + 1U;
  CurlTransfer transfer;
  transfer.outFileName = file.path().c_str();
  transfer.isHttp = pieceSize % 2 == 0;
  transfer.maxBytes = static_cast<unsigned char>(input[1]) * 16U;
  input.remove_prefix(2);

  while (!input.empty() && !input.starts_with("\n")) {
    std::string_view const line = input.substr(0, std::min(input.find('\n'), input.size() - 1) + 1);
    KEL_ASSERT(handOver(curlHeaderCB, line, transfer) == line.size(), "no line ends the transfer");
    std::string_view const url = transfer.bootImageUrl.data();
    KEL_ASSERT(url.size() < transfer.bootImageUrl.size() && url.find(' ') == url.npos, "the end of the URL");
    KEL_ASSERT(url.empty() || transfer.bootImageUrlPresent, "a URL that is there");
    input.remove_prefix(line.size());
  }
  take(input);

  std::string taken;
  for (bool fits = true; fits && !input.empty();) {
    std::string_view const piece = input.substr(0, pieceSize);
    fits = taken.size() + piece.size() <= transfer.maxBytes;
    KEL_ASSERT((handOver(curlWriteCB, piece, transfer) == piece.size()) == fits, "all that fits");
    KEL_ASSERT(transfer.failure.empty() == fits, "or a reason");
    if (fits) taken += piece;
    input.remove_prefix(piece.size());
  }
  if (transfer.output != nullptr) std::fflush(transfer.output);  // the transfer closes it
  KEL_ASSERT(transfer.byteCount == taken.size(), "what was counted");
  if (transfer.output != nullptr) KEL_ASSERT(file.read() == taken, "what was kept");
  bool const isScript = transfer.firstByte == '#' && transfer.secondByte == '!';
  KEL_ASSERT(isScript == taken.starts_with("#!") || !transfer.failure.empty(), "what it is");
}
