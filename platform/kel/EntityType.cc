#include "platform/kel/EntityType.h"

namespace Kel {

AttributeType const* EntityType::attribute(std::string_view attributeName) const {
  for (AttributeType const& candidate : own) {
    if (attributeName == candidate.name) return &candidate;
  }
  return base != nullptr ? base->attribute(attributeName) : nullptr;
}

std::vector<AttributeType const*> EntityType::attributes() const {
  std::vector<AttributeType const*> result;
  if (base != nullptr) result = base->attributes();
  for (AttributeType const& attribute : own) result.push_back(&attribute);
  return result;
}

}  // namespace Kel
