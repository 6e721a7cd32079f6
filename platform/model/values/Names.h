// Names of bounded length.
#pragma once

#include <compare>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "platform/kel/Types.h"

namespace KernelNetInfo {

// The name of a network namespace, as ip-netns(8) has it.
class NamespaceName {
 public:
  static constexpr std::string_view typeName = "network namespace name";
  static constexpr std::size_t maxLength = 150;

  NamespaceName() = default;
  // Throws std::range_error when longer than maxLength bytes.
  NamespaceName(Kel::String name) : name_(std::move(name)) {
    if (name_.size() > maxLength) throw std::range_error("NamespaceName::bytes > 150 not allowed");
  }
  NamespaceName(char const* name) : NamespaceName(Kel::String(name)) {}

  Kel::String const& stringValue() const { return name_; }
  static std::optional<NamespaceName> fromString(std::string_view text) {
    if (text.size() > maxLength) return std::nullopt;
    return NamespaceName(Kel::String(text));
  }
  auto operator<=>(NamespaceName const&) const = default;

 private:
  Kel::String name_;
};

}  // namespace KernelNetInfo

namespace L3 {

// The name of a VRF.
class VrfName {
 public:
  static constexpr std::string_view typeName = "VRF name";
  static constexpr std::size_t maxLength = 100;

  VrfName() = default;
  // Throws std::range_error when longer than maxLength bytes.
  VrfName(Kel::String name) : name_(std::move(name)) {
    if (name_.size() > maxLength) throw std::range_error("VrfName::bytes > VrfName::maxLength not allowed");
  }
  VrfName(char const* name) : VrfName(Kel::String(name)) {}

  Kel::String const& stringValue() const { return name_; }
  static std::optional<VrfName> fromString(std::string_view text) {
    if (text.size() > maxLength) return std::nullopt;
    return VrfName(Kel::String(text));
  }
  auto operator<=>(VrfName const&) const = default;

 private:
  Kel::String name_;
};

}  // namespace L3

namespace System {

// The place of a name server in the order of preference, from 0 on.
using NameServerId = std::uint8_t;

}  // namespace System
