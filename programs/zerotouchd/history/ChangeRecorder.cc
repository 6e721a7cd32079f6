#include "programs/zerotouchd/history/ChangeRecorder.h"

#include "platform/kel/Clock.h"

namespace {

// Attributes whose changes are written down, and as what. With `keyCounts`, the key of a collection's entry
// is written down, not its value.
struct Rule {
  std::string_view attribute;
  char const* what;
  bool keyCounts = false;
};

constexpr Rule rules[] = {
    {"enabled", "provisioning enabled"},
    {"cancelled", "provisioning cancelled"},
    {"hostname", "host name"},
    {"domainName", "domain"},
    {"nameServer", "name server"},
    {"v6NameServer", "name server"},
    {"addrWithMask", "IPv4 address"},
    {"addr", "IPv6 address", true},
    {"mtu", "MTU"},
    {"linkModeLocal", "speed"},
    {"via", "route", true},
    {"loggingHost", "log server", true},
    {"reason", "reload"},
};

Rule const* ruleFor(std::string_view attribute) {
  auto const* const rule = std::ranges::find(rules, attribute, &Rule::attribute);
  return rule != std::end(rules) ? rule : nullptr;
}

// The value for people, or "" for one that means that nothing is set.
Kel::String textOf(Kel::Value const& value) {
  if (auto const* flag = value.as<bool>()) return *flag ? "yes" : "";
  if (auto const* number = value.as<std::uint64_t>()) return *number == 1500 ? "" : std::to_string(*number);
  auto const* const text = value.as<std::string>();
  if (text == nullptr || *text == "linkModeDefault" || text->starts_with("0.0.0.0/")) return "";
  return text->starts_with("linkMode") ? text->substr(8) : *text;
}

bool holdsEntities(Kel::AttributeType const& attribute) {
  return attribute.kind == Kel::AttributeKind::entity || attribute.kind == Kel::AttributeKind::entities;
}

}  // namespace

ChangeRecorder::ChangeRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Change>& ring)
    : ring_(ring) {
  follow(*entities.config, "");
  follow(*entities.netConfig, "");
  follow(*entities.reloadConfig, "");
  follow(*entities.ipConfig, "");
  follow(*entities.ip6Config, "");
  follow(*entities.epicd, "");
  follow(*entities.vicd, "");
  follow(*entities.routingConfig, "");
  follow(*entities.sysLoggingConfig, "");
}

ChangeRecorder::~ChangeRecorder() {
  for (auto const& [address, followed] : followed_) followed.entity->watcherDel(this);
}

void ChangeRecorder::follow(Kel::Entity const& entity, std::string_view key) {
  auto const [entry, isNew] =
      followed_.try_emplace(&entity, Followed{Kel::Ptr<Kel::Entity const>(&entity), key});
  if (!isNew) return;
  entity.watcherIs(this);
  for (auto const* attribute : entity.entityType()->attributes()) {
    if (!holdsEntities(*attribute)) continue;
    bool const collection = attribute->kind == Kel::AttributeKind::entities;
    for (auto const& child : collection ? attribute->keys(entity) : std::vector<std::string>{""})
      childChanged({&entity, attribute->name, child}, *attribute);
  }
}

void ChangeRecorder::onChange(Kel::Entity const& entity, std::string_view name, std::string_view key) {
  // An entity that was removed may live on, since others may hold it; its changes do not matter any more.
  if (!followed_.contains(&entity)) return;
  auto const& attribute = *entity.entityType()->attribute(name);
  Place const place{&entity, attribute.name, Kel::String(key)};
  if (holdsEntities(attribute)) {
    childChanged(place, attribute);
  } else if (ruleFor(name) != nullptr) {
    valueChanged(place, attribute);
  }
}

void ChangeRecorder::childChanged(Place const& place, Kel::AttributeType const& attribute) {
  Kel::Entity const* const child = attribute.child(*place.entity, place.key);
  auto const before = children_.find(place);
  if (before != children_.end() && before->second != child) {
    forget(*before->second);
    children_.erase(before);
  }
  if (child == nullptr) return;
  auto const entry = children_.insert_or_assign(place, child).first;
  follow(*child, entry->first.key);
}

// Takes an entity for undone that has been removed. Entities that are removed hold no other entities.
void ChangeRecorder::forget(Kel::Entity const& entity) {
  Place const first{&entity, "", ""};
  while (!known_.empty()) {
    auto const next = known_.lower_bound(first);
    if (next == known_.end() || next->first.entity != &entity) break;
    write(Place(next->first), "");
  }
  followed_.erase(&entity);
}

void ChangeRecorder::valueChanged(Place const& place, Kel::AttributeType const& attribute) {
  if (attribute.kind == Kel::AttributeKind::value) {
    write(place, textOf(attribute.get(*place.entity, "")));
    return;
  }
  Kel::Value const entry = attribute.get(*place.entity, place.key);
  bool const there = entry != Kel::Value() && entry != Kel::Value(false);
  write(place, !there ? "" : ruleFor(place.attribute)->keyCounts ? place.key : textOf(entry));
}

// Writes down that the value at `place` has become `value`; "" means that it was taken back.
void ChangeRecorder::write(Place const& place, Kel::String const& value) {
  auto const known = known_.find(place);
  bool const undone = value.empty();
  if (known == known_.end() ? undone : known->second == value) return;
  Kel::String where(followed_.at(place.entity).key);
  if (place.attribute == "loggingHost") where = "VRF " + where;
  auto const add = [&](Kel::String const& text, bool takenBack) {
    ring_.add({Kel::now(), ruleFor(place.attribute)->what, where, shortened(text), takenBack});
  };
  // A value that is replaced counts as undone, so that each value that was applied is undone exactly once.
  if (known != known_.end()) add(known->second, true);
  if (undone) {
    known_.erase(known);
  } else {
    add(value, false);
    known_.insert_or_assign(place, value);
  }
}
