#include "zerotouch/dhcp/ClientConfig.h"

#include "platform/kel/Format.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

// The number that RFC 5612 reserves for documentation; a product puts its own registered one here.
constexpr std::uint32_t enterpriseNumber = 32473;
constexpr unsigned vendorIdSubOption = 1;

Kel::String vendorId(EntityMib::Fru const& chassis) {
  Kel::String result = "Ostrel";
  for (Kel::String const& value : {chassis.modelName(), chassis.hardwareRev(), chassis.serialNum()}) {
    if (!value.empty()) result += ";" + value;
  }
  return result;
}

// Escapes quotes, backslashes and control bytes so that dhclient reads the same text back from between quotes
// (dhclient.conf(5)).
Kel::String escaped(Kel::String const& text) {
  Kel::String result;
  for (char const c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (isControl(c)) {
      auto const byte = static_cast<unsigned char>(c);
      result += '\\';
      for (int const digit : {byte >> 6, byte >> 3 & 7, byte & 7}) result += static_cast<char>('0' + digit);
    } else {
      result += c;
    }
  }
  return result;
}

// The payload of DHCPv6 option 17 (RFC 8415, 21.17) as dhclient reads it: octets joined by colons.
Kel::String vendorOpts(Kel::String const& data) {
  Kel::String const header = Kel::format("%08x%04x%04x", enterpriseNumber, vendorIdSubOption, data.size());
  Kel::String result;
  for (std::size_t i = 0; i < header.size(); i += 2) result += header.substr(i, 2) + ":";
  for (std::size_t i = 0; i < data.size(); ++i) {
    // A byte above 0x7f is widened as a signed character and shows as ffffff80 and so on. Identities are
    // ASCII.
    auto const widened = static_cast<std::uint32_t>(static_cast<signed char>(data[i]));
    result += (i == 0 ? "" : ":") + Kel::format("%02x", widened);
  }
  return result;
}

// Of two statements the last one counts. A client that outlasts the longest query says by itself when nobody
// answers, and else goes on with the same question.
Kel::String timingStatements() {
  bool const rfc = policy()->dhcp()->clientTiming() == ClientTiming::rfc;
  bool const patient = rfc || policy()->pacing()->retryBackoffMax() > 0;
  // RFC 2131, 4.1: the second question after 4 s, then after twice as long, which the client draws at random.
  // Not up to the 64 s of a client that asks for ever: a server whose queue was full has lost most of the
  // questions.
  return Kel::String(patient ? "timeout 58;\n" : "") +
         (rfc ? "initial-interval 4;\nbackoff-cutoff 8;\n" : "");
}

}  // namespace

Kel::String identifierStatements(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& chassis,
                                 Kel::String const& version) {
  Kel::String const identity = vendorId(chassis);
  Kel::String result = "send dhcp-client-identifier " + systemMacAddr.stringValue() + ";\n";
  if (version == "v4") result += "send vendor-class-identifier \"" + escaped(identity) + "\";\n";
  if (version == "v4") result += timingStatements();
  if (version == "v6") result += "send dhcp6.vendor-opts " + vendorOpts(identity) + ";\n";
  return result;
}

}  // namespace ZeroTouch
