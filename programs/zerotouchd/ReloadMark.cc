#include "programs/zerotouchd/ReloadMark.h"

#include <filesystem>
#include <iostream>

#include "platform/linux/Place.h"
#include "platform/linux/WholeFile.h"

class ReloadMark::Reactor : public ZeroTouch::ZeroTouchSmModel::NotifieeConst {
 public:
  Reactor(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm, ReloadMark const& mark)
      : NotifieeConst(sm), mark_(mark) {}

  void onCurrentState() override {
    if (notifier().currentState() != ZeroTouch::ProvisioningState::stateShutdown) return;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(mark_.path_).parent_path(), error);
    Kel::String const reason = Linux::replaceWhole(mark_.path_, mark_.place_, 0600);
    if (!reason.empty())
      std::cerr << "zerotouchd: cannot write " << mark_.path_ << ": " << reason << std::endl;
  }

 private:
  ReloadMark const& mark_;
};

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : path_(runDirectory + "/reload-is-due"),
      place_(Linux::thisPlace("uts") + "\n"),
      left_(Linux::readWhole(path_) == place_) {}

ReloadMark::~ReloadMark() = default;

void ReloadMark::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm) {
  reactor_ = sm ? Kel::makePtr<Reactor>(sm, *this) : nullptr;
}
