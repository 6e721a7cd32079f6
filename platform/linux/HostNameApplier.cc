#include "platform/linux/HostNameApplier.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/linux/Place.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

Kel::String currentName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

class HostNameApplier::Reactor : public System::NetConfig::NotifieeConst {
 public:
  Reactor(Kel::Ptr<System::NetConfig const> const& config, HostNameApplier& applier)
      : NotifieeConst(config), applier_(applier) {}
  void onHostname() override { applier_.pass_.in(0); }

 private:
  HostNameApplier& applier_;
};

HostNameApplier::HostNameApplier(Entities const& entities, Kel::String const& runDirectory)
    : config_(entities.netConfig),
      status_(entities.netStatus),
      original_(runDirectory + "/hostname.original", thisPlace("uts")),
      reactor_(Kel::makePtr<Reactor>(config_, *this)) {
  status_->hostnameIs(currentName());
  if (!config_->hostname().empty()) pass_.in(0);
}

HostNameApplier::~HostNameApplier() = default;

void HostNameApplier::apply() {
  Kel::String const& wanted = config_->hostname();
  dropped_.begin();
  if (wanted.empty()) {
    undo();
  } else if (Kel::String const fault = hostNameFault(wanted, HOST_NAME_MAX); !fault.empty()) {
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
  hostNameFailed.log(printable(name), std::strerror(errno));
  return false;
}

}  // namespace Linux
