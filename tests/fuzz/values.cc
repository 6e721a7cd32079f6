// The text forms of addresses and names: what is accepted is written as a text that means the same.
#include "platform/model/values/Wire.h"
#include "tests/fuzz/Fuzz.h"

namespace {

template <typename... Values>
void read(std::string_view text) {
  auto const check = [text]<typename V>(std::optional<V> const& value) {
    if (!value) return;
    KEL_ASSERT(isPrintable(value->stringValue()) || value->stringValue() == text, "a text form");
    KEL_ASSERT(V::fromString(value->stringValue()) == value, "the text form means the value");
  };
  (check(Values::fromString(text)), ...);
}

}  // namespace

void fuzz(std::string_view input) {
  read<Wire::IntfId, Wire::EthAddr, Wire::IpAddr, Wire::Ip6Addr, Wire::IpAddrWithMask, Wire::Ip6AddrWithMask,
       Wire::IpGenAddr, Wire::IpGenAddrWithMask>(input);
}
