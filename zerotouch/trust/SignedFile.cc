#include "zerotouch/trust/SignedFile.h"

#include <algorithm>

namespace ZeroTouch {

namespace {

constexpr std::uint8_t integerTag = 0x02, octetsTag = 0x04, oidTag = 0x06, sequenceTag = 0x30, setTag = 0x31;
constexpr std::uint8_t constructed = 0x20, tagged0 = 0xa0;
constexpr std::size_t maxIdBytes = 64;
constexpr std::size_t maxAlgorithmsBytes = 128;
constexpr std::size_t maxTailBytes = 1 << 20;

// 1.2.840.113549.1.7.2 and .1. Files of another content type (RFC 8572 signs such) are for their own readers.
Bytes const signedData{oidTag, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x07, 0x02};
Bytes const plainData{oidTag, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x07, 0x01};

void append(Bytes& to, BytesView bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }

// An element in DER.
Bytes wrapped(std::uint8_t tag, std::initializer_list<BytesView> parts) {
  std::size_t length = 0;
  for (auto const& part : parts) length += part.size();
  Bytes result{tag};
  unsigned count = 0;
  while (length >> 8U * count != 0) ++count;
  if (length >= 0x80) result.push_back(static_cast<std::uint8_t>(0x80 | count));
  for (unsigned i = length >= 0x80 ? count : 1; i-- > 0;)
    result.push_back(static_cast<std::uint8_t>(length >> 8U * i));
  for (auto const& part : parts) append(result, part);
  return result;
}

}  // namespace

void SignedFile::damaged() const {
  throw Refusal{isSigned_ ? "the form of the signed file is damaged" : "the file is not signed"};
}

void SignedFile::cutOff() const {
  throw Refusal{isSigned_ ? "the signed file is cut off" : "the file is not signed"};
}

// At least one byte.
BytesView SignedFile::take(std::uint64_t most) {
  if (ahead_.empty()) ahead_ = source_.next(SIZE_MAX);
  if (ahead_.empty()) cutOff();
  BytesView const result =
      ahead_.first(static_cast<std::size_t>(std::min<std::uint64_t>(most, ahead_.size())));
  ahead_ = ahead_.subspan(result.size());
  position_ += result.size();
  return result;
}

std::uint8_t SignedFile::byte() { return take(1).front(); }

SignedFile::Header SignedFile::header() {
  constexpr std::uint8_t longTag = 0x1f, longLength = 0x80;
  Header result;
  auto const next = [&] { return result.bytes.emplace_back(byte()); };
  result.tag = next();
  if ((result.tag & longTag) == longTag) damaged();
  std::uint8_t const first = next();
  result.indefinite = first == longLength;
  if (result.indefinite && (result.tag & constructed) == 0) damaged();
  if (first <= longLength) {
    result.length = result.indefinite ? 0 : first;
    return result;
  }
  std::size_t const count = first & 0x7fU;
  if (count > 5) damaged();
  for (std::size_t i = 0; i < count; ++i) result.length = result.length << 8U | next();
  bool const shortest = result.length >= longLength && result.length >> 8U * (count - 1) != 0;
  if (!shortest) damaged();
  return result;
}

// Nothing at the end of the innermost level; an element must end where that does, or before.
std::optional<SignedFile::Header> SignedFile::nextInLevel() {
  Level const level = levels_.empty() ? Level() : levels_.back();
  if (!level.indefinite && position_ == level.end) return std::nullopt;
  Header result = header();
  if (level.indefinite && result.tag == 0 && result.length == 0) return std::nullopt;
  if (position_ > level.end || result.length > level.end - position_) damaged();
  return result;
}

SignedFile::Header SignedFile::expected(std::uint8_t tag) {
  auto result = nextInLevel();
  if (!result || result->tag != tag) damaged();
  return *std::move(result);
}

void SignedFile::enter(Header const& header) {
  std::uint64_t const around = levels_.empty() ? UINT64_MAX : levels_.back().end;
  levels_.push_back({header.indefinite, header.indefinite ? around : position_ + header.length});
}

// Leaves the innermost level, which has to be at its end.
void SignedFile::leave(char const* objectionToMore) {
  if (nextInLevel()) throw Refusal{objectionToMore};
  levels_.pop_back();
}

void SignedFile::appendBody(Header const& header, Bytes& to, std::size_t limit) {
  if (header.indefinite || header.length > limit) damaged();
  append(to, header.bytes);
  for (std::uint64_t left = header.length; left > 0;) {
    BytesView const piece = take(left);
    append(to, piece);
    left -= piece.size();
  }
}

Bytes SignedFile::element(std::uint8_t tag, std::size_t limit) {
  Bytes result;
  appendBody(expected(tag), result, limit);
  return result;
}

void SignedFile::readHead() {
  enter(expected(sequenceTag));
  isSigned_ = element(oidTag, maxIdBytes) == signedData;
  if (!isSigned_) damaged();
  enter(expected(tagged0));
  enter(expected(sequenceTag));
  version_ = element(integerTag, 1);
  digestAlgorithms_ = element(setTag, maxAlgorithmsBytes);
  enter(expected(sequenceTag));
  if (element(oidTag, maxIdBytes) != plainData)
    throw Refusal{"the file holds something else than plain data"};
  auto const explicitContent = nextInLevel();
  if (!explicitContent) throw Refusal{"the content of the signed file is not inside"};
  if (explicitContent->tag != tagged0) damaged();
  enter(*explicitContent);
  auto const content = nextInLevel();
  if (!content) throw Refusal{"the content of the signed file is not inside"};
  inPieces_ = content->tag == (octetsTag | constructed);
  if (!inPieces_ && content->tag != octetsTag) damaged();
  inPieces_ ? enter(*content) : void(pieceLeft_ = content->length);
}

BytesView SignedFile::readContent(std::size_t most) {
  while (pieceLeft_ == 0 && inPieces_) {
    auto const piece = nextInLevel();
    if (!piece) {
      levels_.pop_back();
      inPieces_ = false;
    } else if (piece->tag == octetsTag) {
      pieceLeft_ = piece->length;
    } else {
      damaged();
    }
  }
  if (pieceLeft_ == 0) return {};
  BytesView const result = take(std::min<std::uint64_t>(most, pieceLeft_));
  pieceLeft_ -= result.size();
  return result;
}

Bytes SignedFile::readTail() {
  constexpr char const* second = "the signed file has more than one content";
  constexpr char const* more = "bytes follow the end of the signed file";
  leave(second);
  leave(second);
  Bytes tail;
  Bytes last;
  while (auto const header = nextInLevel()) {
    last.clear();
    appendBody(*header, last, maxTailBytes - std::min(maxTailBytes, tail.size()));
    append(tail, last);
  }
  levels_.pop_back();
  leave(more);
  leave(more);
  if (!ahead_.empty() || !source_.next(1).empty()) throw Refusal{more};
  noteSignerVersion(last);
  Bytes const content = wrapped(sequenceTag, {plainData});
  Bytes const data = wrapped(sequenceTag, {version_, digestAlgorithms_, content, tail});
  Bytes const explicitData = wrapped(tagged0, {data});
  return wrapped(sequenceTag, {signedData, explicitData});
}

// The first signature begins, behind the headers of the SET and of its own SEQUENCE, with its version.
void SignedFile::noteSignerVersion(BytesView signatures) {
  for (std::uint8_t const tag : {setTag, sequenceTag}) {
    if (signatures.size() < 2 || signatures[0] != tag) return;
    std::size_t const longer = signatures[1] > 0x80 ? signatures[1] & 0x7fU : 0;
    signatures = signatures.subspan(std::min(signatures.size(), 2 + longer));
  }
  if (signatures.size() >= 3 && signatures[0] == integerTag && signatures[1] == 1)
    signerVersion_ = signatures[2];
}

}  // namespace ZeroTouch
