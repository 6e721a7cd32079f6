// What the process as a whole knows: its clock, the system's name and kind. `activityManager()` is the one of
// the process.
#pragma once

#include "platform/kel/Clock.h"
#include "platform/kel/Types.h"

namespace Kel {

class ActivityManagerConfig : public Entity {
 public:
  Ptr<Clock const> clock() const { return clock_; }

  // The name by which this system's state is known ("SYSNAME"); empty until the host sets it.
  String const& systemName() const { return systemName_; }
  void systemNameIs(String name) { systemName_ = std::move(name); }

  // "fixed" for a system with one supervisor; any other value means that a standby supervisor may exist.
  String const& cellType() const { return cellType_; }
  void cellTypeIs(String cellType) { cellType_ = std::move(cellType); }

 private:
  Ptr<Clock const> clock_ = makePtr<Clock>();
  String systemName_;
  String cellType_ = "fixed";
};

class ActivityManager : public Entity {
 public:
  Ptr<ActivityManagerConfig> const& config() const { return config_; }

 private:
  Ptr<ActivityManagerConfig> config_ = makePtr<ActivityManagerConfig>();
};

Ptr<ActivityManager> const& activityManager();

}  // namespace Kel
