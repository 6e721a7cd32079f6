#include "platform/linux/system/LogHostApplier.h"

#include <utility>

#include "platform/linux/Warnings.h"
#include "platform/linux/WholeFile.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

Kel::String const firstLine = "# Written by zerotouchd, which also removes this file.\n";
constexpr char defaultVrf[] = "default";
constexpr Kel::Seconds reloadLimit = 30;

bool isOurs(Kel::String const& contents) { return contents.starts_with(firstLine); }

}  // namespace

class LogHostApplier::VrfReactor : public LogMgr::VrfLoggingHost::NotifieeConst {
 public:
  VrfReactor(Kel::Ptr<LogMgr::VrfLoggingHost const> const& hosts, LogHostApplier& applier)
      : NotifieeConst(hosts), applier_(applier) {}
  void onLoggingHost(Kel::String const&) override { applier_.pass_.in(0); }

 private:
  LogHostApplier& applier_;
};

class LogHostApplier::ConfigReactor : public LogMgr::LogConfig::NotifieeConst {
 public:
  ConfigReactor(Kel::Ptr<LogMgr::LogConfig const> const& config, LogHostApplier& applier)
      : NotifieeConst(config), applier_(applier) {}
  void onVrfLoggingHost(L3::VrfName const& vrf) override { applier_.handleVrf(vrf); }

 private:
  LogHostApplier& applier_;
};

LogHostApplier::LogHostApplier(Entities const& entities, Kel::String path, CommandLine reloadCommand)
    : config_(entities.logConfig),
      path_(std::move(path)),
      reloadCommand_(std::move(reloadCommand)),
      configReactor_(Kel::makePtr<ConfigReactor>(config_, *this)) {
  for (auto const& vrf : config_->vrfLoggingHost().keys()) handleVrf(vrf);
}

LogHostApplier::~LogHostApplier() = default;

void LogHostApplier::removeLeftBehind(Kel::String const& path) {
  auto const current = readWhole(path);
  if (!current || !isOurs(*current)) return;
  if (Kel::String const reason = replaceWhole(path, std::nullopt); !reason.empty())
    systemFileFailed.log(path, reason);
}

void LogHostApplier::handleVrf(L3::VrfName const& vrf) {
  if (auto const hosts = config_->vrfLoggingHost(vrf)) {
    vrfReactors_[vrf] = Kel::makePtr<VrfReactor>(hosts, *this);
  } else {
    vrfReactors_.erase(vrf);
  }
  pass_.in(0);
}

void LogHostApplier::apply() {
  Kel::String const wanted = contents();
  if (wanted.empty()) {
    undo();
  } else if (readWhole(path_) != wanted && replace(wanted)) {
    reload();
  }
}

bool LogHostApplier::undo() {
  auto const current = readWhole(path_);
  if (!current || !isOurs(*current) || !replace(std::nullopt)) return false;
  reload();
  return true;
}

void LogHostApplier::stop() {
  configReactor_ = nullptr;
  vrfReactors_.clear();
  pass_.cancel();
  undo();
}

// "" when there is no server to send to.
Kel::String LogHostApplier::contents() {
  Kel::String actions;
  Kel::String others;
  dropped_.begin();
  for (auto const& [vrf, hosts] : config_->vrfLoggingHost()) {
    if (vrf != L3::VrfName(defaultVrf)) {
      others += "# Not sent to: the servers of VRF " + Grammar::printable(vrf.stringValue()) + "\n";
      continue;
    }
    for (auto const& [key, server] : hosts->loggingHost()) {
      bool const isAddress = Wire::IpGenAddr::fromString(server.host).has_value();
      if (Kel::String const fault = isAddress ? "" : Grammar::nameFault(server.host); !fault.empty()) {
        dropped_.add("log server", server.host, fault);
        continue;
      }
      actions += "*.* action(type=\"omfwd\" target=\"" + server.host + "\" port=\"" +
                 std::to_string(server.port) + "\" protocol=\"udp\")\n";
    }
  }
  return actions.empty() ? "" : firstLine + others + actions;
}

bool LogHostApplier::replace(std::optional<Kel::String> const& contents) {
  auto const current = readWhole(path_);
  bool const foreign = current && !isOurs(*current);
  Kel::String const reason = foreign ? "somebody else wrote it" : replaceWhole(path_, contents);
  // Without rsyslog each change fails alike, and the operator knows after the first.
  if (reason != failure_ && !reason.empty()) systemFileFailed.log(path_, reason);
  failure_ = reason;
  return reason.empty();
}

void LogHostApplier::reload() {
  again_ = command_ != nullptr;
  if (again_) return;
  command_ = std::make_unique<Command>(reloadCommand_, "", reloadLimit,
                                       [this](Kel::String const& failure) { handleReloaded(failure); });
}

void LogHostApplier::handleReloaded(Kel::String const& failure) {
  command_.reset();
  if (!failure.empty()) logReloadFailed.log(stringValue(reloadCommand_), failure);
  if (again_) reload();
}

}  // namespace Linux
