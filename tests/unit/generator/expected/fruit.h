// Generated from fruit.toml; do not edit.
#pragma once

#include "platform/kel/Attr.h"
#include "platform/kel/Collection.h"
#include "platform/kel/EntityType.h"
#include "platform/kel/Described.h"

namespace Fruit {

// A colour.
enum class Colour : std::uint32_t {
  red = 1,
  green = 2,
};
Kel::String stringValue(Colour value);
constexpr Colour operator|(Colour a, Colour b) {
  return static_cast<Colour>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr Colour operator&(Colour a, Colour b) {
  return static_cast<Colour>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}

// A leaf.
struct Leaf {
  std::uint16_t length{5};  // in millimetres
  Kel::String label{"a \"leaf\""};  // its label
  auto operator<=>(Leaf const&) const = default;
};

}

namespace Kel {
template <>
struct Codec<Fruit::Colour> {
  static Value toValue(Fruit::Colour value) { return stringValue(value); }
  static std::string toText(Fruit::Colour value) { return stringValue(value); }
  static std::string fromText(std::string_view text, Fruit::Colour& out) { return fromValue(Value(text), out); }
  static std::string fromValue(Value const& value, Fruit::Colour& out);
};
template <>
struct Codec<Fruit::Leaf> {
  static Value toValue(Fruit::Leaf const& value);
  static std::string fromValue(Value const& value, Fruit::Leaf& out);
};
}

namespace Fruit {

// Grows.
class Plant : public Kel::Entity {
 public:
  static constexpr unsigned level = 1;
  static Kel::EntityType const type;

  class NotifieeConst : public Kel::NotifieeBase {
   public:
    explicit NotifieeConst(Kel::Ptr<Plant const> const& notifier, unsigned deepest = level)
        : Kel::NotifieeBase(notifier, deepest) {}
    Plant const& notifier() const { return static_cast<Plant const&>(*notifierEntity()); }
    virtual void onHeight() {}
    virtual void onLeaf(std::uint8_t const&) {}
  };

  explicit Plant(Kel::Name name)
      : name_(std::move(name)) {}
  Kel::EntityType const* entityType() const override { return &type; }

  Kel::Name const& name() const { return name_; }

  // Height, in time to climb. (seconds)
  Kel::Seconds height() const { return height_.get(); }
  void heightIs(Kel::Seconds value) { height_.set(*this, level, "height", std::move(value), &NotifieeConst::onHeight); }

  // By number.
  Kel::Collection<std::uint8_t, Fruit::Leaf> const& leaf() const { return leaf_; }
  Fruit::Leaf const& leaf(std::uint8_t const& key) const { return leaf_.get(key); }
  void leafIs(std::uint8_t const& key, Fruit::Leaf value) { leaf_.set(*this, level, "leaf", key, std::move(value), &NotifieeConst::onLeaf); }
  void leafDel(std::uint8_t const& key) { leaf_.del(*this, level, "leaf", key, &NotifieeConst::onLeaf); }
  void leafDelAll() { leaf_.delAll(*this, level, "leaf", &NotifieeConst::onLeaf); }
  void leafNotify(std::uint8_t const& key) { leaf_.announce(*this, level, "leaf", key, &NotifieeConst::onLeaf); }

 private:
  Kel::Name name_;
  Kel::Attr<Kel::Seconds> height_{Kel::never};
  Kel::Collection<std::uint8_t, Fruit::Leaf> leaf_;
};

// An apple.
class Apple : public Kel::Entity {
 public:
  static constexpr unsigned level = 1;
  static Kel::EntityType const type;

  class NotifieeConst : public Kel::NotifieeBase {
   public:
    explicit NotifieeConst(Kel::Ptr<Apple const> const& notifier, unsigned deepest = level)
        : Kel::NotifieeBase(notifier, deepest) {}
    Apple const& notifier() const { return static_cast<Apple const&>(*notifierEntity()); }
    virtual void onTaste() {}
    virtual void onPlant() {}
  };

  explicit Apple(std::uint32_t branch, Fruit::Colour colour)
      : branch_(std::move(branch)), colour_(std::move(colour)) {}
  Kel::EntityType const* entityType() const override { return &type; }

  std::uint32_t const& branch() const { return branch_; }

  // Its colour.
  Fruit::Colour const& colour() const { return colour_.get(); }

  // Its taste.
  Kel::String const& taste() const { return taste_.get(); }
  void tasteIs(Kel::String value) { taste_.set(*this, level, "taste", std::move(value), &NotifieeConst::onTaste); }

  // Where it grew.
  Kel::Ptr<Fruit::Plant const> const& plant() const { return plant_.get(); }
  void plantIs(Kel::Ptr<Fruit::Plant const> value) { plant_.set(*this, level, "plant", std::move(value), &NotifieeConst::onPlant); }

 private:
  std::uint32_t branch_;
  Kel::Attr<Fruit::Colour> colour_;
  Kel::Attr<Kel::String> taste_{"sweet"};
  Kel::Attr<Kel::Ptr<Fruit::Plant const>> plant_{};
};

// Stands before what it is made of.
class Tree : public Fruit::Plant {
 public:
  static constexpr unsigned level = 2;
  static Kel::EntityType const type;

  class NotifieeConst : public Fruit::Plant::NotifieeConst {
   public:
    explicit NotifieeConst(Kel::Ptr<Tree const> const& notifier, unsigned deepest = level)
        : Fruit::Plant::NotifieeConst(notifier, deepest) {}
    Tree const& notifier() const { return static_cast<Tree const&>(*notifierEntity()); }
    virtual void onApple(std::uint32_t const&) {}
  };

  explicit Tree(Kel::Name name)
      : Fruit::Plant(std::move(name)) {}
  Kel::EntityType const* entityType() const override { return &type; }

  // By branch.
  Kel::Collection<std::uint32_t, Kel::Ptr<Fruit::Apple>> const& apple() const { return apple_; }
  Kel::Ptr<Fruit::Apple> const& apple(std::uint32_t const& key) const { return apple_.get(key); }
  void appleIs(Kel::Ptr<Fruit::Apple> const& entity) { apple_.set(*this, level, "apple", entity->branch(), entity, &NotifieeConst::onApple); }
  Kel::Ptr<Fruit::Apple> appleIs(std::uint32_t const& key, Fruit::Colour const& colour) {
    if (Kel::Ptr<Fruit::Apple> const found = apple(key)) {
      Kel::checkSame("colour", colour, found->colour());
      return found;
    }
    auto const created = Kel::makePtr<Fruit::Apple>(key, colour);
    appleIs(created);
    return created;
  }
  void appleDel(std::uint32_t const& key) { apple_.del(*this, level, "apple", key, &NotifieeConst::onApple); }
  void appleDelAll() { apple_.delAll(*this, level, "apple", &NotifieeConst::onApple); }
  void appleNotify(std::uint32_t const& key) { apple_.announce(*this, level, "apple", key, &NotifieeConst::onApple); }

 private:
  Kel::Collection<std::uint32_t, Kel::Ptr<Fruit::Apple>> apple_;
};

}
