// The bytes of a signed file, one after the other: as they are (DER), or decoded (PEM).
#pragma once

#include "zerotouch/trust/OpenSsl.h"

namespace ZeroTouch {

class Source {
 public:
  // Throws Refusal when the file cannot be opened.
  explicit Source(Kel::String const& path);
  ~Source();
  Source(Source const&) = delete;
  Source& operator=(Source const&) = delete;

  // The next bytes, `most` at most, valid until the next call; none at the end. Throws Refusal when the file
  // cannot be read, or is not PEM to its end.
  BytesView next(std::size_t most);

 private:
  bool fill();
  bool readRaw();
  void decode();
  void checkFooter() const;

  int fd_;
  Bytes raw_, decoded_;
  Bytes const* bytes_ = &raw_;  // those of the two that hold what comes next, from taken_ on
  std::size_t taken_ = 0;
  std::unique_ptr<EVP_ENCODE_CTX, Release<EVP_ENCODE_CTX_free>> decoder_;  // of PEM
  Kel::String label_;
  Kel::String footer_;  // all from the first "-" behind the data on
};

}  // namespace ZeroTouch
