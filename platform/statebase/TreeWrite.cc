// Writing walks the input twice: the first walk only checks, the second one applies.
#include "platform/statebase/Json.h"
#include "platform/statebase/Tree.h"

namespace Statebase {

namespace {

using Kel::AttributeKind;
using Kel::AttributeType;
using Kel::Entity;
using Kel::EntityType;
using Kel::Value;
using Kel::ValueList;
using Kel::ValueMap;

[[noreturn]] void bad(std::string path, std::string reason) {
  throw Refusal(Refusal::Kind::badValue, std::move(path), std::move(reason));
}

// The walk that checks hands no entity to the functions of the type descriptions, so that they look at the
// input only. During the walk that applies, a handler may remove the entity that is being written; the rest
// of its input is then dropped, which is no error.
class Writer {
 public:
  explicit Writer(bool checking) : checking_(checking) {}

  void attribute(AttributeType const& type, Entity* owner, std::string const& path,
                 Value const& value) const {
    switch (type.kind) {
      case AttributeKind::reference:
        bad(path, "a reference cannot be written");
      case AttributeKind::value:
        return plain(type, owner, {}, path, value);
      case AttributeKind::entity:
        return held(type, owner, {}, path, value, false);
      case AttributeKind::keys:
        return keys(type, owner, path, value);
      case AttributeKind::values:
      case AttributeKind::entities:
        break;
    }
    for (auto const& [key, item] : members(path, value))
      entry(type, owner, key, join(path, key), item, false);
  }

  void entry(AttributeType const& type, Entity* owner, std::string const& key, std::string const& path,
             Value const& value, bool replace) const {
    if (key.empty()) bad(path, "an empty key");
    if (type.kind == AttributeKind::entities) return held(type, owner, key, path, value, replace);
    if (type.kind == AttributeKind::values) return plain(type, owner, key, path, value);
    if (value != Value(true)) bad(path, "expected true");
    create(type, owner, key, path);
  }

  // Writes the entity that `owner` holds; makes it first when it is absent.
  void held(AttributeType const& type, Entity* owner, std::string const& key, std::string const& path,
            Value const& value, bool replace) const {
    Entity* existing = owner != nullptr ? type.child(*owner, key) : nullptr;
    if (replace && existing != nullptr) {
      if (type.del == nullptr) bad(path, "it cannot be replaced");
      if (!checking_) type.del(owner, key);
      existing = nullptr;
    }
    if (existing == nullptr) {
      create(type, owner, key, path);
      if (!checking_) existing = type.child(*owner, key);
      if (!checking_ && existing == nullptr) return;
    }
    entity(existing != nullptr ? *existing->entityType() : *type.childType, existing, path, value);
  }

  void entity(EntityType const& type, Entity* target, std::string const& path, Value const& value) const {
    Kel::Ptr<Entity> const hold(target);
    for (auto const& [name, item] : members(path, value)) {
      AttributeType const* const found = type.attribute(name);
      std::string const itemPath = join(path, name);
      if (found == nullptr) {
        throw Refusal(Refusal::Kind::unknownPath, itemPath,
                      std::string(type.name) + " has no attribute '" + name + "'");
      }
      attribute(*found, target, itemPath, item);
    }
  }

 private:
  Entity* target(Entity* entity) const { return checking_ ? nullptr : entity; }

  static ValueMap const& members(std::string const& path, Value const& value) {
    auto const* map = value.as<ValueMap>();
    if (map == nullptr) bad(path, "expected an object");
    return *map;
  }

  void plain(AttributeType const& type, Entity* owner, std::string const& key, std::string const& path,
             Value const& value) const {
    if (type.set == nullptr) bad(path, "it is fixed when its entity is created");
    if (auto reason = type.set(target(owner), key, value); !reason.empty()) bad(path, reason);
  }

  void create(AttributeType const& type, Entity* owner, std::string const& key,
              std::string const& path) const {
    if (type.create == nullptr) bad(path, "it cannot be created from outside");
    if (auto reason = type.create(target(owner), key); !reason.empty()) bad(path, reason);
  }

  void keys(AttributeType const& type, Entity* owner, std::string const& path, Value const& value) const {
    auto const* list = value.as<ValueList>();
    if (list == nullptr) bad(path, "expected a list of keys");
    for (Value const& item : *list) {
      auto const* key = item.as<std::string>();
      if (key == nullptr) bad(path, "expected a list of strings");
      entry(type, owner, *key, join(path, *key), Value(true), false);
    }
  }

  bool checking_;
};

bool mayWrite(Role role, Access access) {
  switch (role) {
    case Role::none:
      return false;
    case Role::group:
      return access == Access::groupWrites;
    case Role::root:
      return access != Access::readOnly;
    case Role::host:
      return true;
  }
  return false;
}

[[noreturn]] void refuse(std::string const& path, bool byRoot) {
  throw Refusal(Refusal::Kind::permission, path, byRoot ? "only root may write it" : "it is read-only");
}

void checkRole(Role role, Tree::Location const& at) {
  if (!mayWrite(role, at.access)) refuse(at.path, at.access == Access::rootWrites && role == Role::group);
}

// A value for an entity may hold the attribute as well.
void checkRootOnly(std::set<std::string> const& rootOnly, std::string const& path, Value const& value) {
  if (rootOnly.contains(path)) refuse(path, true);
  auto const* const members = value.as<ValueMap>();
  if (members == nullptr) return;
  for (auto const& [name, member] : *members) {
    if (rootOnly.contains(join(path, name))) refuse(join(path, name), true);
  }
}

Tree::Location writable(Tree const& tree, Role role, std::string_view path) {
  Tree::Location at = tree.resolve(path);
  if (at.directory) bad(at.path, "a directory cannot be written");
  checkRole(role, at);
  if (at.attribute != nullptr && !at.owner) {
    throw Refusal(Refusal::Kind::unknownPath, at.path, "what should hold it does not exist");
  }
  return at;
}

void write(Tree::Location const& at, Tree::Setting const& setting, bool checking) {
  Writer const writer(checking);
  Kel::Ptr<Entity> const owner = at.owner;
  if (setting.replace && (at.attribute == nullptr || at.type == nullptr)) {
    bad(at.path, "only an entity that another one holds can be replaced");
  }
  if (at.attribute == nullptr) {
    writer.entity(*at.type, at.entity.get(), at.path, setting.value);
  } else if (at.key) {
    writer.entry(*at.attribute, owner.get(), *at.key, at.path, setting.value, setting.replace);
  } else if (at.type != nullptr) {
    writer.held(*at.attribute, owner.get(), {}, at.path, setting.value, setting.replace);
  } else {
    writer.attribute(*at.attribute, owner.get(), at.path, setting.value);
  }
}

}  // namespace

void Tree::checkSet(Role role, Setting const& setting) const {
  Location const at = writable(*this, role, setting.path);
  if (role == Role::group) checkRootOnly(rootOnly_, at.path, setting.value);
  write(at, setting, true);
}

void Tree::set(Role role, Setting const& setting) {
  checkSet(role, setting);
  write(resolve(setting.path), setting, false);
}

void Tree::del(Role role, std::string_view path) {
  Location const at = writable(*this, role, path);
  if (at.attribute == nullptr) bad(at.path, "what is mounted cannot be deleted");
  bool const removable = at.key || at.type != nullptr || at.isCollection();
  if (!removable || at.attribute->del == nullptr) bad(at.path, "it cannot be deleted");
  if (!at.isCollection()) {
    at.attribute->del(at.owner.get(), at.key.value_or(""));
    return;
  }
  for (std::string const& key : at.attribute->keys(*at.owner)) at.attribute->del(at.owner.get(), key);
}

}  // namespace Statebase
