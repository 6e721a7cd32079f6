// Writes down what is applied to the system and what is undone.
#pragma once

#include <map>

#include "platform/model/handles.h"
#include "programs/zerotouchd/history/Ring.h"

// Must be destroyed before the entities, and after everything that changes them. A watcher of the history
// must change no entity.
class ChangeRecorder : private Kel::Watcher {
 public:
  ChangeRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Change>& ring);
  ~ChangeRecorder() override;
  ChangeRecorder(ChangeRecorder const&) = delete;
  ChangeRecorder& operator=(ChangeRecorder const&) = delete;

 private:
  // An entity and its key in the collection that holds it, such as a port or a prefix. children_ owns the
  // key.
  struct Followed {
    Kel::Ptr<Kel::Entity const> entity;
    std::string_view key;
  };
  // An attribute of an entity or, with a key, an entry of a collection.
  struct Place {
    Kel::Entity const* entity;
    std::string_view attribute;  // points into the type description
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
  std::map<Place, Kel::String> known_;  // the values that are applied now
};
