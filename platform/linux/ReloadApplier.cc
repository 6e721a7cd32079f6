#include "platform/linux/ReloadApplier.h"

#include "platform/linux/Warnings.h"

namespace Linux {

namespace {
constexpr Kel::Seconds limit = 60;
constexpr Kel::Seconds retryDelay = 60;
}  // namespace

class ReloadApplier::Reactor : public System::Reload::Config::NotifieeConst {
 public:
  Reactor(Kel::Ptr<System::Reload::Config const> const& config, ReloadApplier& applier)
      : NotifieeConst(config), applier_(applier) {}
  void onReloadTime() override { applier_.handleReloadTime(); }

 private:
  ReloadApplier& applier_;
};

ReloadApplier::ReloadApplier(Entities const& entities, CommandLine command, std::function<void()> onRequest)
    : config_(entities.reloadConfig),
      commandLine_(std::move(command)),
      onRequest_(std::move(onRequest)),
      reactor_(Kel::makePtr<Reactor>(config_, *this)) {}

ReloadApplier::~ReloadApplier() = default;

// A request that comes while an earlier one is being carried out is met by it.
void ReloadApplier::handleReloadTime() {
  if (config_->reloadTime() <= 0) {
    next_.cancel();
    return;
  }
  onRequest_();
  if (!command_) next_.in(0);
}

void ReloadApplier::run() {
  command_ = std::make_unique<Command>(commandLine_, "ZEROTOUCH_RELOAD_REASON=" + config_->reason(), limit,
                                       [this](Kel::String const& failure) { handleEnd(failure); });
}

void ReloadApplier::handleEnd(Kel::String const& failure) {
  command_.reset();
  if (failure.empty() || config_->reloadTime() <= 0) return;
  reloadFailed.log(stringValue(commandLine_), failure, retryDelay);
  next_.in(retryDelay);
}

}  // namespace Linux
