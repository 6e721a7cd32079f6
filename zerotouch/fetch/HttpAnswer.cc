#include "zerotouch/fetch/HttpAnswer.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "platform/kel/Clock.h"
#include "zerotouch/fetch/CurlTransfer.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t longestValue = 1'024;
constexpr unsigned tooManyRequests = 429, unavailable = 503;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool same(std::string_view name, std::string_view other) {
  return name.size() == other.size() && strncasecmp(name.data(), other.data(), name.size()) == 0;
}

// The number at the beginning of the text, which is cut off.
std::optional<std::uint64_t> leadingNumber(std::string_view& text) {
  std::uint64_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

Kel::String strongTag(std::string_view value) {
  bool const quoted = value.size() > 2 && value.front() == '"' && value.back() == '"';
  auto const plain = [](char c) { return c > ' ' && c < 0x7f && c != '"'; };
  return quoted && std::ranges::all_of(value.substr(1, value.size() - 2), plain) ? Kel::String(value) : "";
}

}  // namespace

void HttpAnswer::note(std::string_view line) {
  if (line.starts_with("HTTP/")) {
    bool const framed = line.substr(5, 1) >= "2";
    std::string_view code = line.substr(std::min(line.find(' '), line.size() - 1) + 1);
    *this = {};
    status = static_cast<unsigned>(leadingNumber(code).value_or(0));
    tellsEnd = framed;
    return;
  }
  std::size_t const colon = line.find(':');
  if (colon == std::string_view::npos || line.size() > longestValue) return;
  std::string_view const name = line.substr(0, colon);
  std::string_view value = trimmed(line.substr(colon + 1));
  if (same(name, "Content-Length")) {
    auto const number = leadingNumber(value);
    length = number.value_or(0);
    tellsEnd = tellsEnd || number.has_value();
  } else if (same(name, "Transfer-Encoding")) {
    tellsEnd = true;
  } else if (same(name, "Location")) {
    location = value;
  } else if (same(name, "ETag")) {
    etag = strongTag(value);
  } else if (same(name, "Retry-After")) {
    retryAfter = value;
  } else if (same(name, "Date")) {
    date = value;
  } else if (same(name, "Content-Range") && value.starts_with("bytes ")) {
    value.remove_prefix(6);
    rangeFirst = leadingNumber(value).value_or(0);
    value.remove_prefix(std::min(value.find('/'), value.size() - 1) + 1);
    total = leadingNumber(value).value_or(0);
  }
}

std::optional<Kel::Seconds> HttpAnswer::pause(Curl const& curl) const {
  if ((status != tooManyRequests && status != unavailable) || retryAfter.empty()) return std::nullopt;
  std::string_view text = retryAfter;
  auto const seconds = leadingNumber(text);
  if (seconds && text.empty()) return static_cast<Kel::Seconds>(*seconds);
  auto const until = curl.getdate(retryAfter.c_str(), nullptr);
  auto const now = date.empty() ? time_t(-1) : curl.getdate(date.c_str(), nullptr);
  if (until < 0) return std::nullopt;
  return static_cast<Kel::Seconds>(until) - (now < 0 ? Kel::now() : static_cast<Kel::Seconds>(now));
}

}  // namespace ZeroTouch
