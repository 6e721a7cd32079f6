// Generated from basket.toml; do not edit.
#pragma once

#include "platform/kel/Attr.h"
#include "platform/kel/Collection.h"
#include "platform/kel/EntityType.h"
#include "platform/kel/Described.h"
#include "platform/model/fruit.h"
#include "platform/model/values/Wire.h"

namespace Kitchen::Basket {

// Holds what grew elsewhere.
class Basket : public Kel::Entity {
 public:
  static constexpr unsigned level = 1;
  static Kel::EntityType const type;

  class NotifieeConst : public Kel::NotifieeBase {
   public:
    explicit NotifieeConst(Kel::Ptr<Basket const> const& notifier, unsigned deepest = level)
        : Kel::NotifieeBase(notifier, deepest) {}
    Basket const& notifier() const { return static_cast<Basket const&>(*notifierEntity()); }
    virtual void onBest() {}
    virtual void onContent(std::uint32_t const&) {}
    virtual void onAddress(Wire::IpAddr const&) {}
    virtual void onLid() {}
  };

  explicit Basket(Kel::Ptr<Fruit::Plant const> tree)
      : tree_(std::move(tree)) {}
  Kel::EntityType const* entityType() const override { return &type; }

  // Where it stands.
  Kel::Ptr<Fruit::Plant const> const& tree() const { return tree_.get(); }

  // The best one.
  Kel::Ptr<Fruit::Apple> const& best() const { return best_.get(); }
  void bestIs(Kel::Ptr<Fruit::Apple> value) { best_.set(*this, level, "best", std::move(value), &NotifieeConst::onBest); }

  // All of them.
  Kel::Collection<std::uint32_t, Kel::Ptr<Fruit::Apple const>> const& content() const { return content_; }
  Kel::Ptr<Fruit::Apple const> const& content(std::uint32_t const& key) const { return content_.get(key); }
  void contentIs(Kel::Ptr<Fruit::Apple const> const& entity) { content_.set(*this, level, "content", entity->branch(), entity, &NotifieeConst::onContent); }
  void contentDel(std::uint32_t const& key) { content_.del(*this, level, "content", key, &NotifieeConst::onContent); }
  void contentDelAll() { content_.delAll(*this, level, "content", &NotifieeConst::onContent); }
  void contentNotify(std::uint32_t const& key) { content_.announce(*this, level, "content", key, &NotifieeConst::onContent); }

  // Where it may go.
  Kel::Collection<Wire::IpAddr, bool> const& address() const { return address_; }
  bool address(Wire::IpAddr const& key) const { return address_.get(key); }
  void addressIs(Wire::IpAddr const& key) { address_.set(*this, level, "address", key, true, &NotifieeConst::onAddress); }
  void addressDel(Wire::IpAddr const& key) { address_.del(*this, level, "address", key, &NotifieeConst::onAddress); }
  void addressDelAll() { address_.delAll(*this, level, "address", &NotifieeConst::onAddress); }
  void addressNotify(Wire::IpAddr const& key) { address_.announce(*this, level, "address", key, &NotifieeConst::onAddress); }

  // Absent when open.
  Kel::Ptr<Fruit::Trunk> const& lid() const { return lid_.get(); }
  void lidIs(Kel::Ptr<Fruit::Trunk> value) { lid_.set(*this, level, "lid", std::move(value), &NotifieeConst::onLid); }
  Kel::Ptr<Fruit::Trunk> lidIs() {
    if (Kel::Ptr<Fruit::Trunk> const found = lid()) return found;
    auto const created = Kel::makePtr<Fruit::Trunk>();
    lidIs(created);
    return created;
  }
  void lidDel() { lidIs(nullptr); }

 private:
  Kel::Attr<Kel::Ptr<Fruit::Plant const>> tree_;
  Kel::Attr<Kel::Ptr<Fruit::Apple>> best_{};
  Kel::Collection<std::uint32_t, Kel::Ptr<Fruit::Apple const>> content_;
  Kel::Collection<Wire::IpAddr, bool> address_;
  Kel::Attr<Kel::Ptr<Fruit::Trunk>> lid_;
};

}
