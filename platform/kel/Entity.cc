#include "platform/kel/Entity.h"

#include <algorithm>

#include "platform/kel/EntityType.h"

namespace Kel {

NotifieeBase::NotifieeBase(Ptr<Entity const> notifier, unsigned level)
    : notifier_(std::move(notifier)), level_(level) {
  if (notifier_) notifier_->notifieeIs(this);
}

NotifieeBase::~NotifieeBase() {
  if (notifier_) notifier_->notifieeDel(this);
}

Entity::~Entity() = default;

void Entity::watcherDel(Watcher* watcher) const { std::erase(watchers_, watcher); }

void Entity::notifyWatchers(std::string_view attribute, std::string_view key) const {
  for (Watcher* watcher : watchers_) watcher->onChange(*this, attribute, key);
}

void Entity::notifieeDel(NotifieeBase* notifiee) const {
  auto const found = std::find(notifiees_.begin(), notifiees_.end(), notifiee);
  if (found == notifiees_.end()) return;
  if (deliveries_ > 0) {
    *found = nullptr;
    hasGaps_ = true;
  } else {
    notifiees_.erase(found);
  }
}

void Entity::deliveryDone() const {
  if (--deliveries_ > 0 || !hasGaps_) return;
  std::erase(notifiees_, nullptr);
  hasGaps_ = false;
}

AttributeType const* EntityType::attribute(std::string_view attributeName) const {
  for (AttributeType const& candidate : own) {
    if (attributeName == candidate.name) return &candidate;
  }
  return base != nullptr ? base->attribute(attributeName) : nullptr;
}

std::vector<AttributeType const*> EntityType::attributes() const {
  std::vector<AttributeType const*> result;
  if (base != nullptr) result = base->attributes();
  for (AttributeType const& attribute : own) result.push_back(&attribute);
  return result;
}

}  // namespace Kel
