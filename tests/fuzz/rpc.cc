// Requests to the state tree, one a line: the answer fits the request, and what is refused changes nothing.
#include "tests/fuzz/StateTree.h"

using Statebase::dumpJson;
using Statebase::member;

namespace {

// Whether JSON-RPC calls it a request or a notification, apart from its id.
bool isValid(Kel::Value const& request) {
  Kel::Value const* const version = member(request, "jsonrpc");
  Kel::Value const* const method = member(request, "method");
  Kel::Value const* const params = member(request, "params");
  return version != nullptr && *version == Kel::Value("2.0") && method != nullptr &&
         method->as<std::string>() &&
         (params == nullptr || params->as<Kel::ValueMap>() || params->as<Kel::ValueList>());
}

// The id in the answer to a request, as JSON; nothing when there is to be no answer.
std::optional<std::string> answeredId(std::optional<Kel::Value> const& request) {
  if (!request || request->as<Kel::ValueMap>() == nullptr) return "null";
  Kel::Value const* const id = member(*request, "id");
  if (id == nullptr) return isValid(*request) ? std::nullopt : std::optional<std::string>("null");
  bool const isPlain = !id->as<bool>() && !id->as<Kel::ValueList>() && !id->as<Kel::ValueMap>();
  return isPlain ? dumpJson(*id) : "null";
}

// Whether the request was carried out, as far as the answer tells.
bool checkAnswer(std::optional<Kel::Value> const& request, std::string const& answer) {
  auto const id = answeredId(request);
  KEL_ASSERT(id.has_value() == !answer.empty(), "an answer to what has an id or is no request");
  if (!id) return false;
  KEL_ASSERT(answer.find('\n') == answer.size() - 1, "one line");
  auto const message = parsed(answer);
  KEL_ASSERT(message && dumpJson(*member(*message, "id")) == *id, "the request's id");
  Kel::Value const* const error = member(*message, "error");
  KEL_ASSERT((error == nullptr) == (member(*message, "result") != nullptr), "a result or an error");
  if (error != nullptr) KEL_ASSERT(*member(*error, "message") != Kel::Value(""), "a reason");
  return error == nullptr;
}

void change(StateTree& state, Kel::Value const& request, std::string_view line) {
  Kel::Value const before = state.tree.get("/zerotouch");
  std::string const answer = state.answer(line);
  if (!checkAnswer(request, answer)) {
    KEL_ASSERT(answer.empty() || state.tree.get("/zerotouch") == before, "nothing is done by halves");
    return;
  }
  if (*member(request, "method") != Kel::Value("set")) return;
  std::string const path = *member(*member(request, "params"), "path")->as<std::string>();
  Kel::Value const value = state.tree.get(path);
  state.tree.set(Statebase::Role::root, {.path = path, .value = value});
  KEL_ASSERT(state.tree.get(path) == value, "what is read can be written");
}

}  // namespace

void fuzz(std::string_view input) {
  StateTree state;
  while (!input.empty()) {
    std::string_view const line = take(input);
    auto const request = parsed(line);
    std::string const text = request ? dumpJson(*request) : "";
    if (request) KEL_ASSERT(dumpJson(*parsed(text)) == text, "JSON means the same");
    Kel::Value const* const method = request ? member(*request, "method") : nullptr;
    if (method != nullptr && (*method == Kel::Value("set") || *method == Kel::Value("delete"))) {
      change(state, *request, line);
    } else {
      checkAnswer(request, state.answer(line));
    }
  }
}
