#include "platform/linux/system/LogHostApplier.h"

#include <utility>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

Kel::String const firstLine = "# Written by zerotouchd, which also removes this file.\n";
constexpr char defaultVrf[] = "default";
constexpr Kel::Seconds reloadLimit = 30;

// Since the file is not flushed, a power cut can leave a part of it, or zeros in its place.
bool isOurs(Kel::String const& contents) {
  auto const written = contents.substr(0, contents.find_last_not_of('\0') + 1);
  return written.starts_with(firstLine) || firstLine.starts_with(written);
}

}  // namespace

LogHostApplier::LogHostApplier(Entities const& entities, Kel::String path, CommandLine reloadCommand)
    : config_(entities.logConfig),
      path_(std::move(path)),
      reloadCommand_(std::move(reloadCommand)),
      vrfs_(config_, &LogMgr::LogConfig::vrfLoggingHost, &LogMgr::LogConfig::NotifieeConst::onVrfLoggingHost,
            [this](L3::VrfName const&) {
              if (!stopped_) pass_.in(0);
            }) {}

void LogHostApplier::removeLeftBehind(Kel::String const& path) {
  auto const current = Kel::readFile(path);
  if (!current || !isOurs(*current)) return;
  if (auto const failure = Kel::removeFile(path); !failure.empty()) systemFileFailed.log(failure);
}

void LogHostApplier::apply() {
  Kel::String const wanted = contents();
  if (wanted.empty()) {
    undo();
  } else if (Kel::readFile(path_) != wanted && replace(wanted)) {
    reload();
  }
}

bool LogHostApplier::undo() {
  auto const current = Kel::readFile(path_);
  if (!current || !isOurs(*current) || !replace(std::nullopt)) return false;
  reload();
  return true;
}

void LogHostApplier::stop() {
  stopped_ = true;
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
      others +=
          "# Not sent to: the servers of VRF " + Kel::printable(vrf.stringValue(), Kel::longestShown) + "\n";
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

// Nothing means that there is to be no file.
bool LogHostApplier::replace(std::optional<Kel::String> const& contents) {
  auto const current = Kel::readFile(path_);
  bool const foreign = current && !isOurs(*current);
  Kel::String const failure = foreign    ? path_ + " belongs to somebody else"
                              : contents ? Kel::changeFile(path_, *contents)
                                         : Kel::removeFile(path_);
  // Where rsyslog is not installed every change fails in the same way; one warning is enough.
  if (failure != failure_ && !failure.empty()) systemFileFailed.log(failure);
  failure_ = failure;
  return failure.empty();
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
