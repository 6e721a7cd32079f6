// That a run of this boot has come to stateShutdown, kept in the run directory: a host that is started again
// before the system has reloaded neither begins another run nor undoes anything, but sees to the reload.
#pragma once

#include "platform/model/agent.h"

class ReloadMark {
 public:
  explicit ReloadMark(Kel::String const& runDirectory);
  ~ReloadMark();
  ReloadMark(ReloadMark const&) = delete;
  ReloadMark& operator=(ReloadMark const&) = delete;

  // Whether an earlier host of this boot has left it.
  bool left() const { return left_; }
  Kel::String const& path() const { return path_; }
  // Null: nobody any more.
  void follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm);

 private:
  class Reactor;

  Kel::String path_;
  Kel::String place_;
  bool left_;
  Kel::Ptr<Reactor> reactor_;
};
