// Generated from fruit.toml; do not edit.
#include "platform/model/fruit.h"

namespace Fruit {
Kel::String stringValue(Colour value) {
  switch (value) {
    case Colour::red: return "red";
    case Colour::green: return "green";
  }
  return std::to_string(static_cast<std::uint32_t>(value));
}
}

std::string Kel::Codec<Fruit::Colour>::fromValue(Value const& value, Fruit::Colour& out) {
  using Fruit::Colour;
  if (auto const* text = value.as<std::string>()) {
    if (*text == "red") { out = Colour::red; return {}; }
    if (*text == "green") { out = Colour::green; return {}; }
  }
  return "expected one of red, green";
}

Kel::Value Kel::Codec<Fruit::Leaf>::toValue(Fruit::Leaf const& value) {
  return ValueMap{{"label", Codec<Kel::String>::toValue(value.label)}};
}

std::string Kel::Codec<Fruit::Leaf>::fromValue(Value const& value, Fruit::Leaf& out) {
  auto const* map = value.as<ValueMap>();
  if (map == nullptr) return "expected an object";
  Fruit::Leaf parsed;
  for (auto const& [name, field] : *map) {
    if (name == "label") {
      if (auto error = Codec<Kel::String>::fromValue(field, parsed.label); !error.empty()) return "label: " + error;
      continue;
    }
    return "unknown field '" + name + "'";
  }
  out = parsed;
  return {};
}

namespace Fruit {
Plant::Plant(Kel::Name name, Fruit::Colour colour) : name_(std::move(name)), colour_(std::move(colour)) {}
Plant::~Plant() = default;
Kel::EntityType const* Plant::entityType() const { return &type; }
Plant::NotifieeConst::NotifieeConst(Kel::Ptr<Plant const> const& notifier, unsigned deepest) : Kel::NotifieeBase(notifier, deepest) {}
Plant::NotifieeConst::~NotifieeConst() = default;
void Plant::heightIs(Kel::Seconds value) {
  height_.set(*this, level, "height", std::move(value), &NotifieeConst::onHeight);
}
void Plant::leafIs(std::uint8_t const& key, Fruit::Leaf value) {
  leaf_.set(*this, level, "leaf", key, std::move(value), &NotifieeConst::onLeaf);
}
void Plant::leafDel(std::uint8_t const& key) {
  leaf_.del(*this, level, "leaf", key, &NotifieeConst::onLeaf);
}
void Plant::leafDelAll() {
  leaf_.delAll(*this, level, "leaf", &NotifieeConst::onLeaf);
}
void Plant::leafNotify(std::uint8_t const& key) {
  leaf_.announce(*this, level, "leaf", key, &NotifieeConst::onLeaf);
}
}

static Kel::AttributeType const attributesOfPlant[] = {
    {"colour", Kel::AttributeKind::value, "", "Fruit::Colour", "", "Its colour.", nullptr,
     [](Kel::Entity const& e, std::string_view) { return Kel::Codec<Fruit::Colour>::toValue(static_cast<Fruit::Plant const&>(e).colour()); },
     nullptr,
     nullptr,
     nullptr,
     nullptr,
     nullptr},
    {"height", Kel::AttributeKind::value, "", "seconds", "seconds", "Height, in time to climb.", nullptr,
     [](Kel::Entity const& e, std::string_view) { return Kel::Codec<Kel::Seconds>::toValue(static_cast<Fruit::Plant const&>(e).height()); },
     nullptr,
     nullptr,
     []([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k, Kel::Value const& v) { return Kel::withValue<Kel::Seconds>(e, v, [](Kel::Entity& own, Kel::Seconds const& x) { static_cast<Fruit::Plant&>(own).heightIs(x); }, [](Kel::Seconds const& x) { if (x < 1) return std::string("expected at least 1"); return std::string(); }); },
     nullptr,
     nullptr},
    {"leaf", Kel::AttributeKind::values, "u8", "Fruit::Leaf", "", "By number.", nullptr,
     [](Kel::Entity const& e, std::string_view k) { return Kel::entryValue(static_cast<Fruit::Plant const&>(e).leaf(), k); },
     [](Kel::Entity const& e) { return Kel::keyTexts(static_cast<Fruit::Plant const&>(e).leaf()); },
     nullptr,
     []([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k, Kel::Value const& v) { return Kel::withKeyAndValue<std::uint8_t, Fruit::Leaf>(e, k, v, [](Kel::Entity& own, std::uint8_t const& key, Fruit::Leaf const& x) { static_cast<Fruit::Plant&>(own).leafIs(key, x); }); },
     nullptr,
     []([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k) { return Kel::withKey<std::uint8_t>(e, k, [](Kel::Entity& own, std::uint8_t const& key) { static_cast<Fruit::Plant&>(own).leafDel(key); }); }},
};
constinit Kel::EntityType const Fruit::Plant::type = {"Fruit::Plant", "Grows.", nullptr, attributesOfPlant};

namespace Fruit {
Tree::Tree(Kel::Name name, Fruit::Colour colour) : Fruit::Plant(std::move(name), std::move(colour)) {}
Tree::~Tree() = default;
Kel::EntityType const* Tree::entityType() const { return &type; }
Tree::NotifieeConst::NotifieeConst(Kel::Ptr<Tree const> const& notifier, unsigned deepest) : Fruit::Plant::NotifieeConst(notifier, deepest) {}
Tree::NotifieeConst::~NotifieeConst() = default;
void Tree::graftIs(Kel::Ptr<Fruit::Plant> const& entity) {
  graft_.set(*this, level, "graft", entity->name(), entity, &NotifieeConst::onGraft);
}
Kel::Ptr<Fruit::Plant> Tree::graftIs(Kel::Name const& key, Fruit::Colour const& colour) {
  if (Kel::Ptr<Fruit::Plant> const found = graft(key)) {
    Kel::checkSame("colour", colour, found->colour());
    return found;
  }
  auto const created = Kel::makePtr<Fruit::Plant>(key, colour);
  graftIs(created);
  return created;
}
void Tree::graftDel(Kel::Name const& key) {
  graft_.del(*this, level, "graft", key, &NotifieeConst::onGraft);
}
void Tree::graftDelAll() {
  graft_.delAll(*this, level, "graft", &NotifieeConst::onGraft);
}
void Tree::graftNotify(Kel::Name const& key) {
  graft_.announce(*this, level, "graft", key, &NotifieeConst::onGraft);
}
void Tree::seedIs(Kel::Ptr<Fruit::Plant const> value) {
  seed_.set(*this, level, "seed", std::move(value), &NotifieeConst::onSeed);
}
}

static Kel::AttributeType const attributesOfTree[] = {
    {"graft", Kel::AttributeKind::entities, "name", "Fruit::Plant", "", "By name.", &Fruit::Plant::type,
     nullptr,
     [](Kel::Entity const& e) { return Kel::keyTexts(static_cast<Fruit::Tree const&>(e).graft()); },
     [](Kel::Entity const& e, std::string_view k) { return Kel::entryChild(static_cast<Fruit::Tree const&>(e).graft(), k); },
     nullptr,
     nullptr,
     []([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k) { return Kel::withKey<Kel::Name>(e, k, [](Kel::Entity& own, Kel::Name const& key) { static_cast<Fruit::Tree&>(own).graftDel(key); }); }},
    {"seed", Kel::AttributeKind::reference, "", "Fruit::Plant", "", "What it grew from.", &Fruit::Plant::type,
     [](Kel::Entity const& e, std::string_view) { auto const& held = static_cast<Fruit::Tree const&>(e).seed(); return held ? Kel::Codec<Kel::Name>::toValue(held->name()) : Kel::Value(); },
     nullptr,
     nullptr,
     nullptr,
     nullptr,
     nullptr},
};
constinit Kel::EntityType const Fruit::Tree::type = {"Fruit::Tree", "Stands before what it is made of.", &Fruit::Plant::type, attributesOfTree};

