// get, set, list: the state tree itself.
#include <memory>

#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Table.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// JSON or, failing that, a string: unlimited, 10.0.0.1.
Kel::Value fromArgument(std::string const& argument) {
  try {
    return Statebase::parseJson(argument);
  } catch (Statebase::JsonError const&) {
    return argument;
  }
}

void get(Context const& context, std::string const& path) {
  Kel::Value const value = context.call("get", {{"path", path}});
  if (context.json) {
    printJson(value);
  } else {
    auto const* string = value.as<std::string>();
    print((string != nullptr ? printable(*string) : text(value)) + "\n");
  }
}

void set(Context const& context, std::string const& path, std::string const& value) {
  Kel::Value const result = context.call("set", {{"path", path}, {"value", fromArgument(value)}});
  if (context.json) printJson(result);
}

void list(Context const& context, std::string const& path) {
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

}  // namespace

void addTreeVerbs(CLI::App& program, Context const& context) {
  auto const path = std::make_shared<std::string>();
  auto const value = std::make_shared<std::string>();
  auto const add = [&](char const* name, char const* does, std::vector<std::string> const& examples) {
    CLI::App* const verb = addVerb(program, name, does, examples);
    verb->add_option("path", *path, "As in /zerotouch/config/enabled")->required()->type_name("");
    return verb;
  };
  add("get", "Show a part of the state tree",
      {"zerotouch get /zerotouch/config", "zerotouch get /zerotouch/sm/currentState"})
      ->callback([&context, path] { get(context, *path); });
  add("list", "Show what lies below a path", {"zerotouch list /", "zerotouch list /zerotouch/sm"})
      ->callback([&context, path] { list(context, *path); });
  CLI::App* const setter = add("set", "Write a part of the state tree",
                               {"zerotouch set /zerotouch/config/maxRunTime 3600",
                                "zerotouch set /zerotouch/config/maxRunTime unlimited"});
  setter->add_option("value", *value, "JSON, or a string")->required()->type_name("");
  setter->callback([&context, path, value] { set(context, *path, *value); });
}

}  // namespace ZeroTouchCommand
