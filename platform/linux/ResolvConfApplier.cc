#include "platform/linux/ResolvConfApplier.h"

#include <sstream>

#include "platform/linux/Link.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/WholeFile.h"

namespace Linux {

namespace {

Kel::String const firstLine =
    "# Written by zerotouchd. What stood here before comes back when provisioning takes its settings back.\n";
constexpr std::size_t serversAsked = 3;  // by the C library's resolver

// What the original's file holds: whether there was one, then its contents.
constexpr char present = '+';
constexpr char absent = '-';

Kel::String const nothingUsable = "not the address of a name server";

Kel::String fault(Wire::IpAddr const& address) {
  std::uint32_t const first = address.value >> 24;
  return first == 0 || first == 127 || first >= 224 ? nothingUsable : "";
}

// A link-local address says nothing without its link.
Kel::String fault(Wire::Ip6Addr const& address) {
  bool const loopback = address == Wire::Ip6Addr::fromString("::1");
  bool const multicast = address.bytes[0] == 0xff;
  bool const linkLocal = isLinkLocal(Wire::Ip6AddrWithMask{address, 128});
  return address.isZero() || loopback || multicast || linkLocal ? nothingUsable : "";
}

bool isOurs(std::optional<Kel::String> const& contents) {
  return contents && contents->starts_with(firstLine);
}

}  // namespace

class ResolvConfApplier::Reactor : public System::NetConfig::NotifieeConst {
 public:
  Reactor(Kel::Ptr<System::NetConfig const> const& config, ResolvConfApplier& applier)
      : NotifieeConst(config), applier_(applier) {}
  void onDomainName() override { changed(); }
  void onNameServer(std::uint8_t const&) override { changed(); }
  void onV6NameServer(std::uint8_t const&) override { changed(); }

 private:
  void changed() { applier_.pass_.in(0); }

  ResolvConfApplier& applier_;
};

ResolvConfApplier::ResolvConfApplier(Entities const& entities, Kel::String path,
                                     Kel::String const& runDirectory)
    : config_(entities.netConfig),
      status_(entities.netStatus),
      path_(std::move(path)),
      original_(runDirectory + "/resolv.conf.original", "file " + path_),
      reactor_(Kel::makePtr<Reactor>(config_, *this)) {
  updateStatus();
  if (!contents().empty()) pass_.in(0);
}

ResolvConfApplier::~ResolvConfApplier() = default;

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
  auto const current = readWhole(path_);
  if (current == contents) return;
  if (!original_.value() || !isOurs(current))
    original_.valueIs(current ? present + *current : Kel::String{absent});
  Kel::String const reason = replaceWhole(path_, contents);
  if (!reason.empty()) systemFileFailed.log(path_, reason);
}

bool ResolvConfApplier::undo() {
  if (!original_.value()) return false;
  Kel::String const original = *original_.value();
  bool done = isOurs(readWhole(path_));
  if (done) {
    bool const wasThere = original.starts_with(present);
    Kel::String const reason =
        replaceWhole(path_, wasThere ? std::optional(original.substr(1)) : std::nullopt);
    done = reason.empty();
    if (!done) systemFileFailed.log(path_, reason);
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

// Each with a blank before it. Servers send several in what is meant for one.
Kel::String ResolvConfApplier::domains() {
  Kel::String result;
  std::istringstream words(config_->domainName());
  for (Kel::String name; std::getline(words, name, ' ');) {
    if (name.empty()) continue;
    bool const rooted = name.size() > 1 && name.ends_with('.');
    Kel::String const plain = rooted ? name.substr(0, name.size() - 1) : name;
    if (Kel::String const why = hostNameFault(plain, maxDomainName); !why.empty()) {
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
      if (Kel::String const why = fault(address); !why.empty()) {
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

// The first name of the last line of its kind counts.
void ResolvConfApplier::updateStatus() {
  std::istringstream lines(readWhole(path_).value_or(""));
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
