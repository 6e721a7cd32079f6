// Generated from fruit.toml; do not edit.
#pragma once

#include "platform/kel/EntityType.h"

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
    explicit NotifieeConst(Kel::Ptr<Plant const> const& notifier, unsigned deepest = level);
    ~NotifieeConst() override;
    Plant const& notifier() const { return static_cast<Plant const&>(*notifierEntity()); }
    virtual void onHeight() {}
    virtual void onLeaf(std::uint8_t const&) {}
  };

  explicit Plant(Kel::Name name, Fruit::Colour colour);
  ~Plant() override;
  Kel::EntityType const* entityType() const override;

  Kel::Name const& name() const { return name_; }

  // Its colour.
  Fruit::Colour const& colour() const { return colour_.get(); }

  // Height, in time to climb. (seconds)
  Kel::Seconds height() const { return height_.get(); }
  void heightIs(Kel::Seconds value);

  // By number.
  Kel::Collection<std::uint8_t, Fruit::Leaf> const& leaf() const { return leaf_; }
  Fruit::Leaf const& leaf(std::uint8_t const& key) const { return leaf_.get(key); }
  void leafIs(std::uint8_t const& key, Fruit::Leaf value);
  void leafDel(std::uint8_t const& key);
  void leafDelAll();
  void leafNotify(std::uint8_t const& key);

 private:
  Kel::Name name_;
  Kel::Attr<Fruit::Colour> colour_;
  Kel::Attr<Kel::Seconds> height_{Kel::never};
  Kel::Collection<std::uint8_t, Fruit::Leaf> leaf_;
};

// Stands before what it is made of.
class Tree : public Fruit::Plant {
 public:
  static constexpr unsigned level = 2;
  static Kel::EntityType const type;

  class NotifieeConst : public Fruit::Plant::NotifieeConst {
   public:
    explicit NotifieeConst(Kel::Ptr<Tree const> const& notifier, unsigned deepest = level);
    ~NotifieeConst() override;
    Tree const& notifier() const { return static_cast<Tree const&>(*notifierEntity()); }
    virtual void onGraft(Kel::Name const&) {}
    virtual void onSeed() {}
  };

  explicit Tree(Kel::Name name, Fruit::Colour colour);
  ~Tree() override;
  Kel::EntityType const* entityType() const override;

  // By name.
  Kel::Collection<Kel::Name, Kel::Ptr<Fruit::Plant>> const& graft() const { return graft_; }
  Kel::Ptr<Fruit::Plant> const& graft(Kel::Name const& key) const { return graft_.get(key); }
  void graftIs(Kel::Ptr<Fruit::Plant> const& entity);
  Kel::Ptr<Fruit::Plant> graftIs(Kel::Name const& key, Fruit::Colour const& colour);
  void graftDel(Kel::Name const& key);
  void graftDelAll();
  void graftNotify(Kel::Name const& key);

  // What it grew from.
  Kel::Ptr<Fruit::Plant const> const& seed() const { return seed_.get(); }
  void seedIs(Kel::Ptr<Fruit::Plant const> value);

 private:
  Kel::Collection<Kel::Name, Kel::Ptr<Fruit::Plant>> graft_;
  Kel::Attr<Kel::Ptr<Fruit::Plant const>> seed_{};
};

}
