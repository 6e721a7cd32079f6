// The configuration files of the DHCP clients: a template, then statements that tell the server which switch
// is asking. Written once per start attempt, before any client runs.
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/dhcp/DhcpClient.h"
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

Kel::String identifierStatements(ZeroTouchSm const& sm, Kel::String const& version) {
  Kel::String const identity = vendorId(*sm.chassis());
  Kel::String result =
      "send dhcp-client-identifier " + sm.entityMibStatus()->systemMacAddr().stringValue() + ";\n";
  if (version == "v4") result += "send vendor-class-identifier \"" + escaped(identity) + "\";\n";
  if (version == "v4") result += timingStatements();
  if (version == "v6") result += "send dhcp6.vendor-opts " + vendorOpts(identity) + ";\n";
  return result;
}

std::uintmax_t sizeOf(char const* path) {
  std::error_code error;
  auto const size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
}

// Empty when the file cannot be read to its end: half a template would be a mistake in the configuration.
Kel::String contentOf(char const* path) {
  std::ifstream in(path, std::ios::binary);
  Kel::String result;
  std::array<char, 4096> block;
  while (in.read(block.data(), block.size()) || in.gcount() > 0) result.append(block.data(), in.gcount());
  return in.bad() ? "" : result;
}

}  // namespace

// The generated file is not truncated: a second start attempt in the same boot appends, and of two equal
// statements the last one counts.
std::optional<std::size_t> appendTemplate(char const* base, char const* generated) {
  std::ofstream out(generated, std::ios::binary | std::ios::app);
  if (!out) return std::nullopt;
  Kel::String const content = contentOf(base);
  out << content;
  return content.size();
}

namespace {

constexpr char const* rejectStatement = "reject ";

// Removes what reject() has written: the servers that count may be others by now.
void forgetRejects(char const* path) {
  Kel::String const all = contentOf(path);
  if (all.find(rejectStatement) == Kel::String::npos) return;
  std::istringstream lines(all);
  std::ofstream out(path, std::ios::binary);
  for (Kel::String line; std::getline(lines, line);) {
    if (!line.starts_with(rejectStatement)) out << line << "\n";
  }
}

}  // namespace

bool DhcpClient::reject(Kel::String const& server) {
  if (!rejected_.insert(server).second) return false;
  std::ofstream out(kind_.config, std::ios::binary | std::ios::app);
  out << rejectStatement + server + ";\n" << std::flush;
  return out.good();
}

void DhcpClient::createConfig() {
  forgetRejects(kind_.config);
  rejected_.clear();
  auto const before = sizeOf(kind_.config);
  auto const copied = appendTemplate(kind_.baseConfig, kind_.config);
  if (!copied) {
    std::cerr << "Unable to open either " << kind_.baseConfig << " or " << kind_.config << "\n";
    KEL_ASSERT(!"dhclient configuration", "!\"dhclient configuration\"");
  }
  sm_.addIdentifierStatementsToDhclientConfig(kind_.config, kind_.version);
  auto const added = *copied + identifierStatements(sm_, kind_.version).size();
  configCut_ = sizeOf(kind_.config) != before + added;
  if (!configCut_) return;
  std::error_code ignored;
  std::filesystem::resize_file(kind_.config, before, ignored);
  dhclientConfigCut.log(kind_.config);
}

void DhcpClient::completeConfig() {
  if (configCut_) createConfig();
}

void ZeroTouchSm::doCreateDhclientConfigFile() { dhcpClients_->dhclient.createConfig(); }

void ZeroTouchSm::doCreateDhclient6ConfigFile() { dhcpClients_->dhclient6.createConfig(); }

// A client without its configuration would not even ask for a boot file.
void ZeroTouchSm::doCompleteDhclientConfigFiles() {
  dhcpClients_->dhclient.completeConfig();
  dhcpClients_->dhclient6.completeConfig();
}

void ZeroTouchSm::addIdentifierStatementsToDhclientConfig(char const* file, Kel::String version) const {
  KEL_ASSERT(chassis(), "entityMibRoot");
  std::ofstream out(file, std::ios::app);
  if (!out) {
    std::cerr << "Unable to open " << file << "\n";
    KEL_ASSERT(!"dhclient configuration", "!\"dhclient configuration\"");
  }
  out << identifierStatements(*this, version);
}

}  // namespace ZeroTouch
