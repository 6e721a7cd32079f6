// Reading: values as objects, and what lies below a path.
#include "platform/statebase/Path.h"
#include "platform/statebase/Tree.h"

namespace Statebase {

namespace {

using Kel::AttributeKind;
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
    // Mounts are nested as their paths are; those of one directory stand together.
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
