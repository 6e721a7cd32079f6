#include "zerotouch/trust/Source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/kel/Format.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t pieceBytes = 65'536;
constexpr std::size_t longestFooter = 128;
constexpr std::string_view begin = "-----BEGIN ";

}  // namespace

Source::Source(Kel::String const& path)
    : fd_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
  if (fd_ < 0) throw Refusal{Kel::format("cannot read %s: %s", path, std::strerror(errno))};
  readRaw();
  std::string_view const text(reinterpret_cast<char const*>(raw_.data()), raw_.size());
  if (!text.starts_with(begin)) return;
  std::size_t const end = text.find('\n');
  auto const line = text.substr(0, std::min(text.find_last_not_of("\r\n", end) + 1, end));
  for (Kel::String const label : {"CMS", "PKCS7"}) {
    if (line == Kel::String(begin) + label + "-----") label_ = label;
  }
  if (label_.empty() || end == std::string_view::npos) return;  // what follows is no DER
  decoder_.reset(EVP_ENCODE_CTX_new());
  EVP_DecodeInit(decoder_.get());
  raw_.erase(raw_.begin(), raw_.begin() + static_cast<std::ptrdiff_t>(end) + 1);
  bytes_ = &decoded_;
  decode();
}

Source::~Source() {
  if (fd_ >= 0) close(fd_);
}

bool Source::readRaw() {
  raw_.resize(pieceBytes);
  ssize_t got = 0;
  do {
    got = read(fd_, raw_.data(), raw_.size());
  } while (got < 0 && errno == EINTR);
  raw_.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  if (got < 0) throw Refusal{Kel::format("cannot read the file: %s", std::strerror(errno))};
  return got > 0;
}

void Source::decode() {
  decoded_.resize(raw_.size() + 64);
  std::size_t length = 0;
  if (footer_.empty() && !raw_.empty()) {
    auto const data = static_cast<std::size_t>(std::ranges::find(raw_, '-') - raw_.begin());
    int written = 0;
    if (EVP_DecodeUpdate(decoder_.get(), decoded_.data(), &written, raw_.data(), static_cast<int>(data)) < 0)
      throw Refusal{"its PEM encoding is damaged"};
    length = static_cast<std::size_t>(written);
    raw_.erase(raw_.begin(), raw_.begin() + static_cast<std::ptrdiff_t>(data));
  }
  decoded_.resize(length);
  footer_.append(raw_.begin(), raw_.end());
  if (footer_.size() > longestFooter) throw Refusal{"bytes follow the end of the signed file"};
}

void Source::checkFooter() const {
  int written = 0;
  std::array<unsigned char, 64> rest{};
  if (EVP_DecodeFinal(decoder_.get(), rest.data(), &written) < 0 || written != 0 || footer_.empty())
    throw Refusal{"the signed file is cut off"};
  Kel::String const end = "-----END " + label_ + "-----";
  if (!footer_.starts_with(end)) throw Refusal{"its PEM encoding is damaged"};
  if (footer_.find_first_not_of("\r\n", end.size()) != Kel::String::npos)
    throw Refusal{"bytes follow the end of the signed file"};
}

bool Source::fill() {
  taken_ = 0;
  if (!decoder_) return readRaw();
  do {
    if (!readRaw()) {
      decoded_.clear();
      checkFooter();
      return false;
    }
    decode();
  } while (decoded_.empty());
  return true;
}

BytesView Source::next(std::size_t most) {
  if (taken_ == bytes_->size() && (most == 0 || !fill())) return {};
  BytesView const result = BytesView(*bytes_).subspan(taken_, std::min(most, bytes_->size() - taken_));
  taken_ += result.size();
  return result;
}

}  // namespace ZeroTouch
