// What is mounted, what a path names, and how that is read.
#include "platform/statebase/Tree.h"

#include <algorithm>

#include "platform/kel/Assert.h"
#include "platform/statebase/Json.h"

namespace Statebase {

namespace {

using Kel::AttributeKind;
using Location = Tree::Location;

[[noreturn]] void unknown(std::string path, std::string reason) {
  throw Refusal(Refusal::Kind::unknownPath, std::move(path), std::move(reason));
}

bool isDirectoryOf(std::string_view path, std::string_view mount) {
  return path == "/" || (isWithin(mount, path) && mount.size() > path.size());
}

// Refuses a key that the collection could never hold. Collections of references cannot tell.
void checkKey(Kel::AttributeType const& attribute, std::string const& path, std::string const& key) {
  if (attribute.del == nullptr) return;
  if (auto reason = attribute.del(nullptr, key); !reason.empty()) unknown(path, reason);
}

void nameEntity(Location& at, Kel::EntityType const* declared, Kel::Entity* entity) {
  at.entity = Kel::Ptr<Kel::Entity>(entity);
  at.type = entity != nullptr ? entity->entityType() : declared;
}

void stepToAttribute(Location& at, std::string const& name) {
  Kel::AttributeType const* const attribute = at.type->attribute(name);
  std::string path = join(at.path, name);
  if (attribute == nullptr) unknown(path, std::string(at.type->name) + " has no attribute '" + name + "'");
  if (at.entity) at.passed.emplace_back(at.entity, at.path);
  at.path = std::move(path);
  at.attribute = attribute;
  at.owner = std::move(at.entity);
  at.key.reset();
  at.type = nullptr;
  at.entity = nullptr;
  if (attribute->kind == AttributeKind::entity) {
    nameEntity(at, attribute->childType, at.owner ? attribute->child(*at.owner, {}) : nullptr);
  }
}

void stepToEntry(Location& at, std::string const& key) {
  at.path = join(at.path, key);
  checkKey(*at.attribute, at.path, key);
  at.key = key;
  if (at.attribute->kind == AttributeKind::entities) {
    nameEntity(at, at.attribute->childType, at.owner ? at.attribute->child(*at.owner, key) : nullptr);
  }
}

}  // namespace

bool Location::isCollection() const {
  if (attribute == nullptr || key) return false;
  return attribute->kind == AttributeKind::values || attribute->kind == AttributeKind::keys ||
         attribute->kind == AttributeKind::entities;
}

bool Location::isPresent() const {
  if (directory) return true;
  if (type != nullptr) return bool(entity);
  if (!owner) return false;
  return !key || attribute->get(*owner, *key) != Kel::Value();
}

void Tree::mount(std::string const& path, Kel::Ptr<Kel::Entity> entity, Access access) {
  KEL_ASSERT(entity && entity->entityType() != nullptr, "entity && entity->entityType()");
  for (auto const& [other, mounted] : mounts_) {
    KEL_ASSERT(!isWithin(path, other) && !isWithin(other, path), "no mount lies below another");
  }
  mounts_.emplace(path, Mount{std::move(entity), access});
}

Location Tree::resolve(std::string_view path) const {
  auto const segments = splitPath(path);
  if (!segments) unknown(std::string(path), "malformed path");
  Location at;
  at.path = "/";
  at.directory = true;
  for (std::string const& segment : *segments) {
    if (at.directory) {
      at.path = join(at.path, segment);
      if (auto const found = mounts_.find(at.path); found != mounts_.end()) {
        at.directory = false;
        at.access = found->second.access;
        nameEntity(at, nullptr, found->second.entity.get());
      } else if (std::ranges::none_of(mounts_,
                                      [&](auto const& m) { return isDirectoryOf(at.path, m.first); })) {
        unknown(std::string(path), "nothing is at " + at.path);
      }
    } else if (at.type != nullptr) {
      stepToAttribute(at, segment);
    } else if (at.isCollection()) {
      stepToEntry(at, segment);
    } else {
      unknown(std::string(path), "nothing lies below " + at.path);
    }
  }
  return at;
}

void Tree::visit(Location const& location, Visit const& visitor) const {
  if (location.directory) {
    for (auto const& [path, mounted] : mounts_) {
      if (isDirectoryOf(location.path, path)) visit(resolve(path), visitor);
    }
  } else if (location.entity) {
    visitor(location.entity, location.path);
    for (Kel::AttributeType const* attribute : location.type->attributes()) {
      if (attribute->kind != AttributeKind::entity && attribute->kind != AttributeKind::entities) continue;
      Location below = location;
      stepToAttribute(below, attribute->name);
      visit(below, visitor);
    }
  } else if (location.isCollection() && location.attribute->kind == AttributeKind::entities &&
             location.owner) {
    for (std::string const& key : location.attribute->keys(*location.owner)) {
      Location below = location;
      stepToEntry(below, key);
      visit(below, visitor);
    }
  }
}

// What follows reads.

namespace {

using Kel::AttributeType;
using Kel::Entity;
using Kel::Value;
using Kel::ValueList;
using Kel::ValueMap;

Value entityValue(Entity const* entity);

Value entryValue(AttributeType const& attribute, Entity const& owner, std::string const& key) {
  if (attribute.kind == AttributeKind::entities) return entityValue(attribute.child(owner, key));
  return attribute.get(owner, key);
}

Value attributeValue(AttributeType const& attribute, Entity const& owner) {
  switch (attribute.kind) {
    case AttributeKind::value:
      return attribute.get(owner, {});
    case AttributeKind::entity:
      return entityValue(attribute.child(owner, {}));
    case AttributeKind::reference:
      return attribute.get != nullptr ? attribute.get(owner, {}) : nullptr;
    case AttributeKind::keys: {
      ValueList list;
      for (std::string& key : attribute.keys(owner)) list.emplace_back(std::move(key));
      return list;
    }
    case AttributeKind::values:
    case AttributeKind::entities:
      break;
  }
  ValueMap map;
  for (std::string& key : attribute.keys(owner)) {
    Value value = entryValue(attribute, owner, key);
    map.emplace_back(std::move(key), std::move(value));
  }
  return map;
}

Value entityValue(Entity const* entity) {
  if (entity == nullptr) return nullptr;
  ValueMap map;
  for (AttributeType const* attribute : entity->entityType()->attributes()) {
    map.emplace_back(attribute->name, attributeValue(*attribute, *entity));
  }
  return map;
}

char const* kindName(AttributeKind kind) {
  switch (kind) {
    case AttributeKind::value:
      return "value";
    case AttributeKind::values:
      return "values";
    case AttributeKind::keys:
      return "keys";
    case AttributeKind::entity:
      return "entity";
    case AttributeKind::entities:
      return "entities";
    case AttributeKind::reference:
      return "reference";
  }
  return "";
}

Value described(std::string const& name, char const* kind,
                std::initializer_list<std::pair<char const*, char const*>> more) {
  ValueMap map{{"name", name}, {"kind", kind}};
  for (auto const& [member, text] : more) {
    if (*text != '\0') map.emplace_back(member, text);
  }
  return map;
}

Value described(AttributeType const& attribute) {
  return described(attribute.name, kindName(attribute.kind),
                   {{"type", attribute.type},
                    {"keyType", attribute.keyType},
                    {"unit", attribute.unit},
                    {"documentation", attribute.documentation}});
}

char const* entryKind(AttributeKind collection) {
  if (collection == AttributeKind::entities) return "entity";
  return collection == AttributeKind::keys ? "key" : "value";
}

}  // namespace

Value Tree::read(Location const& at) const {
  if (at.directory) {
    // The object has a member for each directory or mounted entity directly below this directory.
    ValueMap map;
    for (auto const& name : names(at.path)) map.emplace_back(name, read(resolve(join(at.path, name))));
    return map;
  }
  if (at.type != nullptr) return entityValue(at.entity.get());
  if (!at.owner) return nullptr;
  return at.key ? entryValue(*at.attribute, *at.owner, *at.key) : attributeValue(*at.attribute, *at.owner);
}

Value Tree::get(std::string_view path) const {
  Location const at = resolve(path);
  if (!at.isPresent()) throw Refusal(Refusal::Kind::unknownPath, at.path, "no such entry");
  return read(at);
}

Value Tree::getOrNull(std::string_view path) const {
  try {
    return read(resolve(path));
  } catch (Refusal const&) {
    return nullptr;
  }
}

Value Tree::list(std::string_view path) const {
  Location const at = resolve(path);
  if (!at.isPresent()) throw Refusal(Refusal::Kind::unknownPath, at.path, "no such entry");
  ValueList list;
  if (at.directory) {
    for (auto const& name : names(at.path)) {
      Location const below = resolve(join(at.path, name));
      list.push_back(below.directory ? described(name, "directory", {})
                                     : described(name, "entity",
                                                 {{"type", below.type->name},
                                                  {"documentation", below.type->documentation}}));
    }
  } else if (at.type != nullptr) {
    for (AttributeType const* attribute : at.type->attributes()) list.push_back(described(*attribute));
  } else if (at.isCollection()) {
    for (std::string const& key : at.attribute->keys(*at.owner)) {
      list.push_back(described(key, entryKind(at.attribute->kind), {{"type", at.attribute->type}}));
    }
  }
  return list;
}

std::vector<std::string> Tree::names(std::string const& directory) const {
  std::vector<std::string> result;
  for (auto const& [path, mounted] : mounts_) {
    if (!isWithin(path, directory)) continue;
    std::size_t const start = directory == "/" ? 1 : directory.size() + 1;
    std::string name = path.substr(start, path.find('/', start) - start);
    if (result.empty() || result.back() != name) result.push_back(std::move(name));
  }
  return result;
}

}  // namespace Statebase
