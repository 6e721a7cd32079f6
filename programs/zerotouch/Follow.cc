#include "programs/zerotouch/Follow.h"

#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr char const* statesPath = "/log/history/state";

// The host tells of changes in the order of the paths, so that a state comes after all that changed with it.
Snapshot::Paths paths() {
  Snapshot::Paths result = statusPaths();
  result.emplace_back(statesPath);
  return result;
}

}  // namespace

StateFollower::StateFollower(Statebase::Client& host, Entered entered)
    : host_(host), entered_(std::move(entered)), snapshot_(host, paths(), Snapshot::Reading::follow) {}

void StateFollower::begin() {
  auto const* const past = snapshot_[statesPath].as<Kel::ValueMap>();
  if (past == nullptr || past->empty()) throw Refused("no agent is loaded");
  entered_(past->back().second);
}

bool StateFollower::takeChange(Kel::Seconds seconds) {
  auto const change = host_.readNotification(seconds);
  if (!change) return false;
  std::string const path = memberText(change->params, "path");
  Kel::Value const& value = at(change->params, {"value"});
  if (!Statebase::isWithin(path, statesPath)) {
    snapshot_.apply(path, value);
  } else if (value != Kel::Value()) {  // an old entry is null once the host has dropped it
    entered_(value);
  }
  return true;
}

}  // namespace ZeroTouchCommand
