#include "programs/zerotouch-reporter/CloudEvent.h"

#include <array>
#include <cctype>
#include <cmath>
#include <ctime>

#include "platform/kel/Format.h"
#include "platform/statebase/Json.h"

namespace {

// A source is a reference to a URI (RFC 3986), in which a serial number may need escapes.
Kel::String escaped(Kel::String const& text) {
  Kel::String result;
  for (char const c : text) {
    bool const plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                       std::string_view("-._~").find(c) != std::string_view::npos;
    result += plain ? Kel::String(1, c) : Kel::format("%%%02X", unsigned{static_cast<unsigned char>(c)});
  }
  return result;
}

}  // namespace

Kel::String timestamp(Kel::Seconds since1970) {
  auto const whole = static_cast<std::time_t>(std::floor(since1970));
  auto const thousandths = static_cast<int>((since1970 - std::floor(since1970)) * 1000);
  std::tm utc{};
  gmtime_r(&whole, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%FT%T", &utc);
  return Kel::format("%s.%03dZ", text.data(), thousandths);
}

Kel::String jsonOf(CloudEvent const& event) {
  return Statebase::dumpJson(
      Kel::ValueMap{{"specversion", "1.0"},
                    {"id", event.id},
                    {"source", escaped(event.source)},
                    {"type", event.type},
                    {"time", timestamp(event.time)},
                    // In an order that texts have too, as the extension "sequence" asks for.
                    {"sequence", Kel::format("%020d", event.sequence)},
                    {"datacontenttype", "application/json"},
                    {"data", event.data}});
}
