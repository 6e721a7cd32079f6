// Mounts, and what a path names.
#include "platform/statebase/Tree.h"

#include <algorithm>

#include "platform/kel/Assert.h"
#include "platform/statebase/Path.h"

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

// Refuses a key that cannot be one of the collection's. Every collection but one of references can check.
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

}  // namespace Statebase
