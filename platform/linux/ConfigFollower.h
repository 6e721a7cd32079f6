// Queues a port whenever one of its configuration entities appears, changes or is withdrawn.
#pragma once

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class ConfigFollower {
 public:
  // `queue` outlives the follower.
  ConfigFollower(Entities const& entities, ApplyQueue& queue);

 private:
  std::vector<Kel::Ptr<Kel::NotifieeBase>> directoryReactors_;
};

}  // namespace Linux
