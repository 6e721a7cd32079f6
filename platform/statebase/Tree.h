// The state tree: entities mounted at paths, read and written by generic code through their type
// descriptions.
//
// A path (Json.h) names a directory ("/interface"), a mounted entity, one of its attributes, an entry of a
// collection, or, through the entities held, anything further down:
// /interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus. References are shown as null and never walked.
//
// Bad input throws Refusal. A write is one step: all of it is checked before any of it is applied.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/EntityType.h"

namespace Statebase {

// Who may write below a mount.
enum class Access { readOnly, rootWrites, groupWrites };
// Who asks. The host is the program that holds the tree; it may write everything.
enum class Role { none, group, root, host };

class Refusal : public std::runtime_error {
 public:
  enum class Kind { unknownPath, badValue, permission };

  Refusal(Kind kind, std::string path, std::string reason)
      : std::runtime_error(path + ": " + reason),
        kind_(kind),
        path_(std::move(path)),
        reason_(std::move(reason)) {}

  Kind kind() const { return kind_; }
  std::string const& path() const { return path_; }
  std::string const& reason() const { return reason_; }

 private:
  Kind kind_;
  std::string path_;
  std::string reason_;
};

class Tree {
 public:
  // What a path names. Everything that a path goes through must be known to the types; entities may be
  // absent.
  struct Location {
    std::string path;
    bool directory = false;
    Access access = Access::readOnly;
    Kel::AttributeType const* attribute = nullptr;  // null for a directory and for a mounted entity
    std::optional<std::string> key;                 // of an entry
    Kel::Ptr<Kel::Entity> owner;                    // holds the attribute; null when it is absent
    // When an entity is named: its type (the declared one while it is absent), and itself.
    Kel::EntityType const* type = nullptr;
    Kel::Ptr<Kel::Entity> entity;
    // The entities that the path goes through, from the mounted one on, with their paths.
    std::vector<std::pair<Kel::Ptr<Kel::Entity>, std::string>> passed;

    bool isCollection() const;
    bool isEntry() const { return key.has_value(); }
    bool isPresent() const;
  };

  // `entity` is of the model, `path` of plain names without escapes; no mount lies below another.
  void mount(std::string const& path, Kel::Ptr<Kel::Entity> entity, Access access);

  // Below a mount that the group may write, this attribute of the mounted entity is for root alone.
  void rootWritesOnly(std::string const& path) { rootOnly_.insert(path); }

  // Lets go of the entity at exactly this path. No server may serve the tree any more.
  void unmount(std::string const& path) { mounts_.erase(path); }

  Location resolve(std::string_view path) const;

  // The value of an attribute or entry; a collection, an entity or a directory as an object (a set of keys as
  // a list).
  Kel::Value get(std::string_view path) const;
  // The same, but null for what does not exist or is no path.
  Kel::Value getOrNull(std::string_view path) const;
  // What lies directly below: for each a name, a kind and, where there is one, type, key type, unit and
  // documentation.
  Kel::Value list(std::string_view path) const;

  struct Setting {
    std::string path;
    Kel::Value value;      // of an entity: an object, whose members are applied in their order
    bool replace = false;  // removes an entity that is there first
  };
  // Writes an attribute, an entry or an entity; an entry or optional entity that is absent is created.
  void set(Role role, Setting const& setting);
  // Refuses what set() would refuse.
  void checkSet(Role role, Setting const& setting) const;

  // Removes an entry, an optional entity, or all entries of a collection. What is absent already is no error.
  void del(Role role, std::string_view path);

  // Calls `visit` for each entity at or below the location.
  using Visit = std::function<void(Kel::Ptr<Kel::Entity> const& entity, std::string const& path)>;
  void visit(Location const& location, Visit const& visit) const;

 private:
  struct Mount {
    Kel::Ptr<Kel::Entity> entity;
    Access access;
  };

  Kel::Value read(Location const& location) const;
  // What lies directly below a directory.
  std::vector<std::string> names(std::string const& directory) const;

  // By path, so that what lies below a directory stands together.
  std::map<std::string, Mount, std::less<>> mounts_;
  std::set<std::string> rootOnly_;
};

}  // namespace Statebase
