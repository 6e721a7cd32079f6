// The outer form of a signed file: CMS SignedData with the content inside (RFC 5652, 5.1).
//
// OpenSSL 3.0 can only read such a file as a whole into memory. So the content is taken out here, piece by
// piece, and what is left, a few KiB, is put together as if it had been signed without the content, for
// OpenSSL to parse and to verify. Lengths may be definite (DER), or indefinite where OpenSSL writes them so
// when it streams. The form is read strictly: exactly one content, nothing behind its end.
#pragma once

#include <optional>

#include "zerotouch/trust/Source.h"

namespace ZeroTouch {

// The functions are called in their order. Each throws Refusal.
class SignedFile {
 public:
  explicit SignedFile(Kel::String const& path) : source_(path) {}

  // Reads up to the content.
  void readHead();
  // The next bytes of the content, `most` at most; none at its end.
  BytesView readContent(std::size_t most);
  // Reads the rest. Returns the whole without its content, in DER.
  Bytes readTail();

  // The algorithms by which the content is digested, a SET in DER.
  Bytes const& digestAlgorithms() const { return digestAlgorithms_; }
  unsigned version() const { return version_.empty() ? 0 : version_.back(); }
  // The version of its syntax that the signature claims to follow; known once the tail is read.
  unsigned signerVersion() const { return signerVersion_; }

 private:
  struct Header {
    std::uint8_t tag = 0;
    bool indefinite = false;
    std::uint64_t length = 0;
    Bytes bytes;  // its own
  };
  // An element that is not read to its end yet; `end` is where it ends, or at least the one around it.
  struct Level {
    bool indefinite = false;
    std::uint64_t end = UINT64_MAX;
  };

  [[noreturn]] void damaged() const;
  [[noreturn]] void cutOff() const;
  BytesView take(std::uint64_t most);
  std::uint8_t byte();
  Header header();
  std::optional<Header> nextInLevel();
  Header expected(std::uint8_t tag);
  void enter(Header const& header);
  void appendBody(Header const& header, Bytes& to, std::size_t limit);
  Bytes element(std::uint8_t tag, std::size_t limit);
  void leave(char const* objectionToMore);
  void noteSignerVersion(BytesView tail);

  Source source_;
  BytesView ahead_;             // read from the source, but not taken yet
  std::uint64_t position_ = 0;  // of the next byte to take
  std::vector<Level> levels_;
  bool isSigned_ = false;  // so it says
  bool inPieces_ = false;  // the content
  std::uint64_t pieceLeft_ = 0;
  Bytes version_, digestAlgorithms_;
  unsigned signerVersion_ = 0;
};

}  // namespace ZeroTouch
