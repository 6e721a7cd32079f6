#include "platform/linux/system/NetConfigAppliers.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sstream>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

void Original::valueIs(Kel::String const& value) {
  value_ = value;
  if (auto const failure = memory_.keep(value); !failure.empty()) undoJournalFailed.log(failure);
}

void Original::discard() {
  if (!value_) return;
  value_.reset();
  if (auto const failure = memory_.forget(); !failure.empty()) undoJournalFailed.log(failure);
}

namespace {

Kel::String currentName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

HostNameApplier::HostNameApplier(Entities const& entities, Kel::String const& runDirectory)
    : config_(entities.netConfig),
      status_(entities.netStatus),
      original_(runDirectory + "/hostname.original", Kel::BootMemory::inNamespace("uts")),
      reactor_(config_, &System::NetConfig::NotifieeConst::onHostname, [this] { pass_.in(0); }) {
  status_->hostnameIs(currentName());
  if (!config_->hostname().empty()) pass_.in(0);
}

void HostNameApplier::apply() {
  Kel::String const& wanted = config_->hostname();
  dropped_.begin();
  if (wanted.empty()) {
    undo();
  } else if (Kel::String const fault = Grammar::nameFault(wanted, HOST_NAME_MAX); !fault.empty()) {
    dropped_.add("host name", wanted, fault);
  } else if (Kel::String const current = currentName(); current != wanted) {
    bool const changedBefore = original_.value().has_value();
    if (!changedBefore) original_.valueIs(current);
    if (!set(wanted) && !changedBefore) original_.discard();
  }
  status_->hostnameIs(currentName());
}

bool HostNameApplier::undo() {
  if (!original_.value()) return false;
  bool const done = set(*original_.value());
  original_.discard();
  status_->hostnameIs(currentName());
  return done;
}

void HostNameApplier::keep() { original_.discard(); }

bool HostNameApplier::set(Kel::String const& name) {
  if (sethostname(name.data(), name.size()) == 0) return true;
  hostNameFailed.log(Kel::printable(name, Kel::longestShown), std::strerror(errno));
  return false;
}

namespace {

Kel::String const firstLine =
    "# Written by zerotouchd. What stood here before comes back when provisioning takes its settings back.\n";
constexpr std::size_t serversAsked = 3;  // by the C library's resolver

// The original is kept as one of these, which says whether there was a file, and its contents.
constexpr char present = '+';
constexpr char absent = '-';

bool isOurs(std::optional<Kel::String> const& contents) {
  return contents && contents->starts_with(firstLine);
}

}  // namespace

ResolvConfApplier::ResolvConfApplier(Entities const& entities, Kel::String path,
                                     Kel::String const& runDirectory)
    : config_(entities.netConfig),
      status_(entities.netStatus),
      path_(std::move(path)),
      original_(runDirectory + "/resolv.conf.original", "file " + path_),
      reactor_(
          config_,
          {&System::NetConfig::NotifieeConst::onDomainName, &System::NetConfig::NotifieeConst::onNameServer,
           &System::NetConfig::NotifieeConst::onV6NameServer},
          [this] { pass_.in(0); }) {
  updateStatus();
  if (!contents().empty()) pass_.in(0);
}

void ResolvConfApplier::apply() {
  Kel::String const wanted = contents();
  if (wanted.empty()) {
    undo();
  } else {
    write(wanted);
  }
  updateStatus();
}

void ResolvConfApplier::write(Kel::String const& contents) {
  auto const current = Kel::readFile(path_);
  if (current == contents) return;
  if (!original_.value() || !isOurs(current))
    original_.valueIs(current ? present + *current : Kel::String{absent});
  if (auto const failure = Kel::changeFile(path_, contents); !failure.empty()) systemFileFailed.log(failure);
}

bool ResolvConfApplier::undo() {
  if (!original_.value()) return false;
  Kel::String const original = *original_.value();
  bool done = isOurs(Kel::readFile(path_));
  if (done) {
    bool const wasThere = original.starts_with(present);
    Kel::String const failure =
        wasThere ? Kel::changeFile(path_, original.substr(1)) : Kel::removeFile(path_);
    done = failure.empty();
    if (!done) systemFileFailed.log(failure);
  }
  original_.discard();
  updateStatus();
  return done;
}

void ResolvConfApplier::keep() { original_.discard(); }

// "" when nothing usable is configured.
Kel::String ResolvConfApplier::contents() {
  dropped_.begin();
  Kel::String const search = domains();
  auto const servers = nameServers();
  if (search.empty() && servers.empty()) return "";
  Kel::String result = firstLine;
  if (!search.empty()) result += "search" + search + "\n";
  for (std::size_t i = 0; i < servers.size(); ++i) {
    if (i == serversAsked) result += "# The C library's resolver asks no more than those above.\n";
    result += "nameserver " + servers[i] + "\n";
  }
  return result;
}

// Returns the usable names with a blank before each. The option is meant for one name, but servers send
// several.
Kel::String ResolvConfApplier::domains() {
  Kel::String result;
  std::istringstream words(config_->domainName());
  for (Kel::String name; std::getline(words, name, ' ');) {
    if (name.empty()) continue;
    bool const rooted = name.size() > 1 && name.ends_with('.');
    Kel::String const plain = rooted ? name.substr(0, name.size() - 1) : name;
    if (Kel::String const why = Grammar::nameFault(plain); !why.empty()) {
      dropped_.add("domain name", name, why);
    } else {
      result += " " + plain;
    }
  }
  return result;
}

std::vector<Kel::String> ResolvConfApplier::nameServers() {
  std::vector<Kel::String> result;
  auto const take = [&](auto const& servers) {
    for (auto const& [index, address] : servers) {
      if (Kel::String const why = Grammar::hostFault(address); !why.empty()) {
        dropped_.add("name server", address.stringValue(), why);
      } else {
        result.push_back(address.stringValue());
      }
    }
  };
  take(config_->nameServer());
  take(config_->v6NameServer());
  return result;
}

// The resolver uses the last of the search and domain lines, whose first name is the domain.
void ResolvConfApplier::updateStatus() {
  std::istringstream lines(Kel::readFile(path_).value_or(""));
  Kel::String domain;
  for (Kel::String line; std::getline(lines, line);) {
    std::istringstream words(line);
    Kel::String keyword;
    Kel::String name;
    words >> keyword >> name;
    if (keyword == "search" || keyword == "domain") domain = name;
  }
  status_->domainNameIs(domain);
}

}  // namespace Linux
