#include "platform/statebase/Json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Statebase {

namespace {

std::optional<std::string> unescaped(std::string_view segment) {
  std::string result;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    if (segment[i] != '~') {
      result += segment[i];
      continue;
    }
    if (++i == segment.size() || (segment[i] != '0' && segment[i] != '1')) return std::nullopt;
    result += segment[i] == '0' ? '~' : '/';
  }
  return result;
}

}  // namespace

std::optional<std::vector<std::string>> splitPath(std::string_view path) {
  std::vector<std::string> segments;
  if (path == "/") return segments;
  if (path.empty()) return std::nullopt;
  while (!path.empty()) {
    if (path.front() != '/') return std::nullopt;
    path.remove_prefix(1);
    std::size_t const end = std::min(path.find('/'), path.size());
    auto segment = unescaped(path.substr(0, end));
    if (!segment || segment->empty()) return std::nullopt;
    segments.push_back(*std::move(segment));
    path.remove_prefix(end);
  }
  return segments;
}

std::string join(std::string_view path, std::string_view segment) {
  std::string result(path == "/" ? "" : path);
  result += '/';
  for (char const c : segment) {
    if (c == '~') {
      result += "~0";
    } else if (c == '/') {
      result += "~1";
    } else {
      result += c;
    }
  }
  return result;
}

bool isWithin(std::string_view path, std::string_view ancestor) {
  if (ancestor == "/") return true;
  return path.starts_with(ancestor) && (path.size() == ancestor.size() || path[ancestor.size()] == '/');
}

namespace {

using Json = nlohmann::ordered_json;

// Walks the characters of a text, and counts the lines while the parser reads them.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;

  CountingIterator(char const* position, unsigned* line) : position_(position), line_(line) {}

  reference operator*() const { return *position_; }
  CountingIterator& operator++() {
    if (*position_++ == '\n') ++*line_;
    return *this;
  }
  CountingIterator operator++(int) {
    auto const before = *this;
    ++*this;
    return before;
  }
  bool operator==(CountingIterator const& other) const { return position_ == other.position_; }
  bool operator!=(CountingIterator const& other) const { return position_ != other.position_; }

 private:
  char const* position_;
  unsigned* line_;
};

// Builds the value while the parser reads.
class Builder : public Json::json_sax_t {
 public:
  Builder(unsigned const& line, JsonLines* lines) : line_(line), lines_(lines) {}

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(std::int64_t{value}); }
  bool number_unsigned(number_unsigned_t value) override { return add(std::uint64_t{value}); }
  bool number_float(number_float_t value, string_t const&) override { return add(value); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(true); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(false); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    Frame& frame = frames_.back();
    frame.name = std::move(name);
    if (lines_ != nullptr) {
      frame.namePath =
          frames_.size() == 1 && frame.name.starts_with('/') ? frame.name : join(frame.path, frame.name);
      lines_->try_emplace(frame.namePath, line_);
    }
    return true;
  }

  bool parse_error(std::size_t, std::string const&, Json::exception const& error) override {
    // The library begins with the kind of the exception and the position, which are not for operators.
    std::string reason = error.what();
    reason.erase(0, reason.find("] ") + 2);
    if (reason.starts_with("parse error")) reason.erase(0, reason.find(": ") + 2);
    throw JsonError(line_, reason.substr(0, longestReason));
  }

  Kel::Value result() { return std::move(result_); }

 private:
  static constexpr std::size_t longestReason = 300;

  struct Frame {
    bool object;
    std::string path;
    std::string name;
    std::string namePath;
    Kel::ValueMap members;
    Kel::ValueList items;
  };

  bool open(bool object) {
    if (frames_.size() == maxJsonDepth) {
      throw JsonError(line_, "nested deeper than " + std::to_string(maxJsonDepth) + " levels");
    }
    std::string path = frames_.empty() ? std::string() : frames_.back().namePath;
    frames_.push_back(
        {.object = object, .path = std::move(path), .name = {}, .namePath = {}, .members = {}, .items = {}});
    return true;
  }

  bool close() {
    Frame done = std::move(frames_.back());
    frames_.pop_back();
    return done.object ? add(std::move(done.members)) : add(std::move(done.items));
  }

  bool add(Kel::Value value) {
    if (frames_.empty()) {
      result_ = std::move(value);
    } else if (Frame& frame = frames_.back(); frame.object) {
      frame.members.emplace_back(std::move(frame.name), std::move(value));
    } else {
      frame.items.push_back(std::move(value));
    }
    return true;
  }

  unsigned const& line_;
  JsonLines* lines_;
  std::vector<Frame> frames_;
  Kel::Value result_;
};

Json toJson(Kel::Value const& value);

struct ToJson {
  Json operator()(Kel::ValueList const& list) const {
    Json result = Json::array();
    for (Kel::Value const& item : list) result.push_back(toJson(item));
    return result;
  }
  Json operator()(Kel::ValueMap const& map) const {
    Json result = Json::object();
    // Appended directly: the usual insertion compares with every member that is there already.
    auto& members = result.get_ref<Json::object_t&>();
    for (auto const& [name, item] : map) members.emplace_back(name, toJson(item));
    return result;
  }
  template <typename T>
  Json operator()(T const& plain) const {
    return plain;
  }
};

Json toJson(Kel::Value const& value) { return std::visit(ToJson(), value.variant()); }

}  // namespace

Kel::Value parseJson(std::string_view text, JsonLines* lines) {
  unsigned line = 1;
  // The parser takes a zero byte for the end of the text, and would not look at what follows it.
  if (std::size_t const zero = text.find('\0'); zero != std::string_view::npos) {
    line += static_cast<unsigned>(std::ranges::count(text.substr(0, zero), '\n'));
    throw JsonError(line, "byte " + std::to_string(zero + 1) + " is zero, which no JSON text holds");
  }
  Builder builder(line, lines);
  Json::sax_parse(CountingIterator(text.data(), &line), CountingIterator(text.data() + text.size(), &line),
                  &builder);
  return builder.result();
}

std::string dumpJson(Kel::Value const& value, int indent) {
  return toJson(value).dump(indent, ' ', false, Json::error_handler_t::replace);
}

Kel::Value const* member(Kel::Value const& object, std::string_view name) {
  auto const* map = object.as<Kel::ValueMap>();
  if (map == nullptr) return nullptr;
  for (auto const& [memberName, value] : *map) {
    if (memberName == name) return &value;
  }
  return nullptr;
}

Kel::Value const& at(Kel::Value const& object, std::span<std::string const> names) {
  static Kel::Value const none;
  Kel::Value const* value = &object;
  for (auto const& name : names) {
    value = member(*value, name);
    if (value == nullptr) return none;
  }
  return *value;
}

Kel::Value const& at(Kel::Value const& object, std::initializer_list<std::string> names) {
  return at(object, std::span(names.begin(), names.size()));
}

std::string text(Kel::Value const& value, std::string otherwise) {
  auto const* const found = value.as<std::string>();
  return found != nullptr ? *found : otherwise;
}

double number(Kel::Value const& value) {
  double result = 0;
  Kel::Codec<double>::fromValue(value, result);
  return result;
}

}  // namespace Statebase
