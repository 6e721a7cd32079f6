#include "programs/zerotouchd/ReloadMark.h"

#include <filesystem>
#include <utility>

#include "platform/linux/Place.h"
#include "platform/linux/WholeFile.h"
#include "programs/zerotouchd/Console.h"

class ReloadMark::Reactor : public ZeroTouch::ZeroTouchSmModel::NotifieeConst {
 public:
  Reactor(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm, ReloadMark const& mark)
      : NotifieeConst(sm), mark_(mark) {}

  // Nothing comes between a shutdown that is asked for and its state, so the mark is left at once.
  void onTransitionState() override { handleState(notifier().transitionState()); }
  void onCurrentState() override { handleState(notifier().currentState()); }

 private:
  void handleState(ZeroTouch::ProvisioningState state) {
    if (state != ZeroTouch::ProvisioningState::stateShutdown || std::exchange(written_, true)) return;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(mark_.path_).parent_path(), error);
    Kel::String const reason = Linux::replaceWhole(mark_.path_, mark_.place_, 0600);
    if (!reason.empty()) say("cannot write " + mark_.path_ + ": " + reason);
  }

  ReloadMark const& mark_;
  bool written_ = false;
};

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : path_(runDirectory + "/reload-is-due"),
      place_(Linux::thisPlace("uts") + "\n"),
      left_(Linux::readWhole(path_) == place_) {}

ReloadMark::~ReloadMark() = default;

void ReloadMark::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm) {
  reactor_ = sm ? Kel::makePtr<Reactor>(sm, *this) : nullptr;
}
