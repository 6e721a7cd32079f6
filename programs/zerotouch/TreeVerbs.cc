// get, set, list: the state tree itself.
#include "platform/kel/Format.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// The argument as JSON. What is no JSON, such as unlimited or 10.0.0.1, is a string.
Kel::Value fromArgument(std::string const& argument) {
  try {
    return Statebase::parseJson(argument);
  } catch (Statebase::JsonError const&) {
    return argument;
  }
}

}  // namespace

void getPath(Context const& context, std::string const& path) {
  Kel::Value const value = context.call("get", {{"path", path}});
  if (context.json) {
    printJson(value);
  } else {
    auto const* string = value.as<std::string>();
    print((string != nullptr ? Kel::printable(*string) : text(value)) + "\n");
  }
}

void setPath(Context const& context, std::string const& path, std::string const& value) {
  Kel::Value const result = context.call("set", {{"path", path}, {"value", fromArgument(value)}});
  if (context.json) printJson(result);
}

void listPath(Context const& context, std::string const& path) {
  Kel::Value const entries = context.call("list", {{"path", path}});
  if (context.json) {
    printJson(entries);
    return;
  }
  Rows rows{{"Name", "Kind", "Type", "Unit", "Meaning"}};
  auto const* items = entries.as<Kel::ValueList>();
  for (Kel::Value const& entry : items != nullptr ? *items : Kel::ValueList()) {
    std::vector<std::string> row;
    for (char const* name : {"name", "kind", "type", "unit", "documentation"}) {
      Kel::Value const& cell = at(entry, {name});
      row.push_back(cell == Kel::Value() ? "" : text(cell));
    }
    rows.push_back(std::move(row));
  }
  print(table(rows));
}

}  // namespace ZeroTouchCommand
