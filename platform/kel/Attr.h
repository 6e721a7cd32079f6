// One attribute of an entity. The generated class holds it and passes itself as the owner.
#pragma once

#include <string_view>
#include <utility>

#include "platform/kel/Entity.h"

namespace Kel {

template <typename T>
class Attr {
 public:
  Attr() = default;
  explicit Attr(T initial) : value_(std::move(initial)) {}

  T const& get() const { return value_; }

  // Stores and notifies, unless the value is the one already held.
  template <typename N>
  void set(Entity& owner, unsigned level, std::string_view name, T value, void (N::*hook)()) {
    if (value_ == value) return;
    value_ = std::move(value);
    owner.notify(level, name, hook);
  }

 private:
  T value_{};
};

}  // namespace Kel
