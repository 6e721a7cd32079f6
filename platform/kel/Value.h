// A neutral value, in which generic code (the state socket, the command line, the settings of the host) reads
// and writes attributes without knowing their types. Close to JSON, but kept free of any JSON library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Kel {

class Value;
using ValueList = std::vector<Value>;
// In the order in which the members were written: attributes are set in that order.
using ValueMap = std::vector<std::pair<std::string, Value>>;

class Value {
 public:
  using Variant = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string,
                               ValueList, ValueMap>;

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool v) : variant_(v) {}
  Value(std::int64_t v) : variant_(v) {}
  Value(std::uint64_t v) : variant_(v) {}
  Value(std::uint32_t v) : variant_(std::uint64_t{v}) {}
  Value(double v) : variant_(v) {}
  Value(std::string v) : variant_(std::move(v)) {}
  Value(std::string_view v) : variant_(std::string(v)) {}
  Value(char const* v) : variant_(std::string(v)) {}
  Value(ValueList v) : variant_(std::move(v)) {}
  Value(ValueMap v) : variant_(std::move(v)) {}

  Variant const& variant() const { return variant_; }

  template <typename T>
  T const* as() const {
    return std::get_if<T>(&variant_);
  }

  bool operator==(Value const&) const = default;

 private:
  Variant variant_ = nullptr;
};

}  // namespace Kel
