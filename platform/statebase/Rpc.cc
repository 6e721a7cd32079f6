#include "platform/statebase/Rpc.h"

#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/statebase/Json.h"

namespace Statebase {

namespace {

using Kel::Value;
using Kel::ValueMap;

// The parameters of a request. A method takes those that it knows; end() refuses whatever is left.
class Params {
 public:
  explicit Params(Value const* params) {
    if (params == nullptr) return;
    auto const* map = params->as<ValueMap>();
    if (map == nullptr) throw RpcError(RpcCode::invalidParams, "'params' is no object");
    for (auto const& [name, value] : *map) left_.emplace_back(name, &value);
  }

  bool has(std::string_view name) const { return std::ranges::count(left_, name, &Member::first) > 0; }

  Value const* take(std::string_view name) {
    auto const found = std::ranges::find(left_, name, &Member::first);
    if (found == left_.end()) return nullptr;
    Value const* const value = found->second;
    left_.erase(found);
    return value;
  }

  std::string const& takePath() {
    Value const* const value = take("path");
    auto const* path = value != nullptr ? value->as<std::string>() : nullptr;
    if (path == nullptr) throw RpcError(RpcCode::invalidParams, "'path' is missing or no string");
    path_ = *path;
    return *path;
  }

  // The path in "path", or those in "paths", which sets `isList`.
  std::vector<std::string> takePaths(bool& isList) {
    Value const* const value = take("paths");
    isList = value != nullptr;
    if (!isList) return {takePath()};
    auto const* list = value->as<Kel::ValueList>();
    if (list == nullptr) throw RpcError(RpcCode::invalidParams, "'paths' is no list");
    if (list->size() > maxPaths) {
      throw RpcError(RpcCode::tooMany, "more than " + std::to_string(maxPaths) + " paths");
    }
    std::vector<std::string> paths;
    for (Value const& item : *list) {
      auto const* path = item.as<std::string>();
      if (path == nullptr) throw RpcError(RpcCode::invalidParams, "'paths' holds what is no string");
      if (std::ranges::count(paths, *path) > 0) {
        throw RpcError(RpcCode::invalidParams, "it is listed twice", *path);
      }
      paths.push_back(*path);
    }
    return paths;
  }

  bool takeFlag(std::string_view name) {
    Value const* const value = take(name);
    if (value == nullptr) return false;
    auto const* flag = value->as<bool>();
    if (flag == nullptr)
      throw RpcError(RpcCode::invalidParams, "'" + std::string(name) + "' is no boolean", path_);
    return *flag;
  }

  void end() const {
    if (left_.empty()) return;
    throw RpcError(RpcCode::invalidParams, "unknown or repeated parameter '" + left_.front().first + "'",
                   path_);
  }

 private:
  using Member = std::pair<std::string, Value const*>;
  std::vector<Member> left_;
  std::string path_;
};

// Takes the path, for methods that have no other parameter.
std::string onlyPath(Params& params) {
  std::string path = params.takePath();
  params.end();
  return path;
}

// Carries out a method that takes one path or a list: calls `all` with the paths, then `one` for each path,
// and returns what `one` returns, for a list as an object by path.
template <typename All, typename One>
Value forPaths(Params& params, All const& all, One const& one) {
  bool isList = false;
  std::vector<std::string> const paths = params.takePaths(isList);
  params.end();
  all(paths);
  if (!isList) return one(paths.front());
  ValueMap result;
  for (std::string const& path : paths) result.emplace_back(path, one(path));
  return result;
}

void checkPaths(std::vector<std::string> const& paths) {
  for (std::string const& path : paths) {
    if (!splitPath(path)) throw Refusal(Refusal::Kind::unknownPath, path, "malformed path");
  }
}

Tree::Setting setting(Tree const& tree, Params& params) {
  Tree::Setting result;
  result.path = params.takePath();
  Value const* const value = params.take("value");
  Value const* const attributes = params.take("attributes");
  result.replace = params.takeFlag("replace");
  params.end();
  if (value != nullptr && attributes != nullptr) {
    throw RpcError(RpcCode::invalidParams, "'value' and 'attributes' exclude each other", result.path);
  }
  if (value == nullptr && tree.resolve(result.path).type == nullptr) {
    throw RpcError(RpcCode::invalidParams, "'value' is missing", result.path);
  }
  if (value != nullptr) result.value = *value;
  if (value == nullptr) result.value = attributes != nullptr ? *attributes : Value(ValueMap());
  return result;
}

Value carryOut(Tree& tree, RpcSession& session, std::string const& method, Params params) {
  auto const value = [&](std::string const& path) { return tree.getOrNull(path); };
  if (method == "get") {
    if (!params.has("paths")) return tree.get(onlyPath(params));
    return forPaths(params, checkPaths, value);
  }
  if (method == "list") return tree.list(onlyPath(params));
  if (method == "watch") {
    return forPaths(
        params, [&](auto const& paths) { session.watch(paths); }, value);
  }
  if (method == "unwatch") {
    auto const unwatch = [&](std::string const& path) { return Value(session.unwatch(path)); };
    return forPaths(
        params, [](auto const&) {}, unwatch);
  }
  if (method == "set") {
    tree.set(session.role(), setting(tree, params));
    return true;
  }
  if (method == "delete") {
    tree.del(session.role(), onlyPath(params));
    return true;
  }
  if (method == "time") {
    params.end();
    return Kel::now();
  }
  throw RpcError(RpcCode::methodNotFound, "unknown method '" + method + "'");
}

// Throws RpcError when `request`, an object, is no request or notification by the rules of JSON-RPC.
void checkForm(Value const& request) {
  Value const* const version = member(request, "jsonrpc");
  if (version == nullptr || *version != Value("2.0")) {
    throw RpcError(RpcCode::invalidRequest, "'jsonrpc' is not \"2.0\"");
  }
  Value const* const method = member(request, "method");
  if (method == nullptr || method->as<std::string>() == nullptr) {
    throw RpcError(RpcCode::invalidRequest, "'method' is missing or no string");
  }
  Value const* const params = member(request, "params");
  if (params != nullptr && params->as<ValueMap>() == nullptr && params->as<Kel::ValueList>() == nullptr) {
    throw RpcError(RpcCode::invalidRequest, "'params' is no object");
  }
}

int codeOf(Refusal::Kind kind) {
  switch (kind) {
    case Refusal::Kind::unknownPath:
      return RpcCode::unknownPath;
    case Refusal::Kind::badValue:
      return RpcCode::badValue;
    case Refusal::Kind::permission:
      return RpcCode::permission;
  }
  return RpcCode::badValue;
}

bool canBeId(Value const& id) {
  return id.as<Kel::ValueList>() == nullptr && id.as<ValueMap>() == nullptr && id.as<bool>() == nullptr;
}

std::string answer(Value const& id, char const* member, Value value) {
  return dumpJson(ValueMap{{"jsonrpc", "2.0"}, {"id", id}, {member, std::move(value)}}) + "\n";
}

}  // namespace

std::string rpcErrorLine(Value const& id, RpcError const& error) {
  std::string const reason = error.what();
  std::string const message = error.path().empty() ? reason : error.path() + ": " + reason;
  return answer(id, "error",
                ValueMap{{"code", std::int64_t{error.code()}},
                         {"message", message},
                         {"data", ValueMap{{"path", error.path()}, {"reason", reason}}}});
}

std::string rpcChangedLine(std::string const& path, Value value) {
  return dumpJson(ValueMap{{"jsonrpc", "2.0"},
                           {"method", "changed"},
                           {"params", ValueMap{{"path", path}, {"value", std::move(value)}}}}) +
         "\n";
}

std::string rpcAnswer(Tree& tree, RpcSession& session, std::string_view line) {
  Value request;
  try {
    request = parseJson(line);
  } catch (JsonError const& error) {
    return rpcErrorLine(nullptr, RpcError(RpcCode::parseError, std::string("not JSON: ") + error.what()));
  }
  if (request.as<ValueMap>() == nullptr) {
    return rpcErrorLine(nullptr, RpcError(RpcCode::invalidRequest, "a request is an object"));
  }
  Value const* const given = member(request, "id");
  Value const id = given != nullptr && canBeId(*given) ? *given : Value();
  auto const failed = [&](RpcError const& error) {
    return given != nullptr ? rpcErrorLine(id, error) : std::string();
  };
  try {
    if (given != nullptr && !canBeId(*given)) {
      throw RpcError(RpcCode::invalidRequest, "'id' is no string and no number");
    }
    checkForm(request);
  } catch (RpcError const& error) {
    return rpcErrorLine(id, error);
  }
  try {
    std::string const& method = *member(request, "method")->as<std::string>();
    Value result = carryOut(tree, session, method, Params(member(request, "params")));
    return given != nullptr ? answer(id, "result", std::move(result)) : std::string();
  } catch (Refusal const& refusal) {
    return failed(RpcError(codeOf(refusal.kind()), refusal.reason(), refusal.path()));
  } catch (RpcError const& error) {
    return failed(error);
  }
}

}  // namespace Statebase
