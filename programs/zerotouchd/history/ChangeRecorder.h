// Writes down what is applied to the system and what is undone.
#pragma once

#include <map>

#include "platform/model/handles.h"
#include "programs/zerotouchd/history/Ring.h"

// Goes before the entities do, and after all who change them. Of the entities, only the history is changed,
// whose own watchers take note only.
class ChangeRecorder : private Kel::Watcher {
 public:
  ChangeRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Change>& ring);
  ~ChangeRecorder() override;
  ChangeRecorder(ChangeRecorder const&) = delete;
  ChangeRecorder& operator=(ChangeRecorder const&) = delete;

 private:
  // An entity, with its key: the port or prefix that it is about. The key stands in children_.
  struct Followed {
    Kel::Ptr<Kel::Entity const> entity;
    std::string_view key;
  };
  // An attribute's, or a collection's entry's.
  struct Place {
    Kel::Entity const* entity;
    std::string_view attribute;  // as its type names it
    Kel::String key;
    auto operator<=>(Place const&) const = default;
  };

  void onChange(Kel::Entity const& entity, std::string_view attribute, std::string_view key) override;
  void follow(Kel::Entity const& entity, std::string_view key);
  void childChanged(Place const& place, Kel::AttributeType const& attribute);
  void forget(Kel::Entity const& entity);
  void valueChanged(Place const& place, Kel::AttributeType const& attribute);
  void write(Place const& place, Kel::String const& value);

  Ring<History::Change>& ring_;
  std::map<Kel::Entity const*, Followed> followed_;
  std::map<Place, Kel::Entity const*> children_;
  std::map<Place, Kel::String> known_;  // what is applied now
};
