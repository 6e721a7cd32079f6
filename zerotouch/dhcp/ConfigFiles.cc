// The configuration files of the DHCP clients: a template, then statements that tell the server which switch
// is asking. Written once per start attempt, before any client runs.
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/ClientConfig.h"
#include "zerotouch/dhcp/DhcpClient.h"

namespace ZeroTouch {

namespace {

Kel::String statementsOf(ZeroTouchSm const& sm, Kel::String const& version) {
  return identifierStatements(sm.entityMibStatus()->systemMacAddr(), *sm.chassis(), version);
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
  auto const added = *copied + statementsOf(sm_, kind_.version).size();
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
  out << statementsOf(*this, version);
}

}  // namespace ZeroTouch
