// The description of an entity's type, generated from the schema: what generic code needs to list, read and
// write its attributes. Plain data and function pointers; the functions are handed an entity of the described
// type.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/Entity.h"
#include "platform/kel/Value.h"

namespace Kel {

struct EntityType;

enum class AttributeKind {
  value,      // one value
  values,     // a collection of values by key
  keys,       // a set of keys
  entity,     // one entity, which may be absent
  entities,   // a collection of entities by key
  reference,  // a handle to an entity that lives elsewhere; shown by its key, never walked
};

struct AttributeType {
  char const* name;
  AttributeKind kind;
  char const* keyType;  // of a collection, else ""
  char const* type;
  char const* unit;
  char const* documentation;
  // The type of the entities held (for entity, entities and reference), else nullptr.
  EntityType const* childType;

  // The attribute's value, or that of the entry `key`; null when there is no such entry. For value, values
  // and keys; of a reference the key of its entity, nullptr when the type has none.
  Value (*get)(Entity const& entity, std::string_view key);
  // The keys of a collection.
  std::vector<std::string> (*keys)(Entity const& entity);
  // The entity held (under `key`); nullptr when there is none. For entity and entities.
  Entity* (*child)(Entity const& entity, std::string_view key);

  // Writing gives "" or the reason why the input is refused. With a null entity the input is only checked.
  std::string (*set)(Entity* entity, std::string_view key, Value const& value);
  // Creates the entity (under `key`) when it is absent. With a null entity the key is only checked.
  std::string (*create)(Entity* entity, std::string_view key);
  // Removes the entry `key`, or the entity held; nothing happens when there is none.
  std::string (*del)(Entity* entity, std::string_view key);
};

struct EntityType {
  char const* name;
  char const* documentation;
  EntityType const* base;
  std::span<AttributeType const> own;
  // Looks through the base types too; nullptr when there is no such attribute.
  AttributeType const* attribute(std::string_view attributeName) const;
  // Base types first, in the order of the schema.
  std::vector<AttributeType const*> attributes() const;
};

}  // namespace Kel
