#include "platform/linux/Ports.h"

#include "platform/kel/Assert.h"

namespace Linux {

Wire::IntfId Ports::intfId(int ifIndex) const {
  auto const found = byIndex_.find(ifIndex);
  return found == byIndex_.end() ? Wire::IntfId() : found->second;
}

void Ports::portIs(Wire::IntfId const& intfId, Port const& port) {
  KEL_ASSERT(port, "a port has an index");
  Port const& before = this->port(intfId);
  if (before && before.ifIndex != port.ifIndex) portDel(intfId);
  byIndex_[port.ifIndex] = intfId;
  port_.set(*this, level, "port", intfId, port, &NotifieeConst::onPort);
}

void Ports::portDel(Wire::IntfId const& intfId) {
  Port const& before = port(intfId);
  if (!before) return;
  auto const indexed = byIndex_.find(before.ifIndex);
  // After a rename the index belongs to the new id already, if that was announced first.
  if (indexed != byIndex_.end() && indexed->second == intfId) byIndex_.erase(indexed);
  port_.del(*this, level, "port", intfId, &NotifieeConst::onPort);
}

}  // namespace Linux
