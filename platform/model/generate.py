#!/usr/bin/env python3
"""Turns the schemas (schema/*.toml) into C++ entity classes with uniform accessors, and into docs/state-model.md.

    generate.py cpp OUTPUT_DIR SCHEMA...      one NAME.h and NAME.cc per schema, and handles.h for the one that lists handles
    generate.py markdown OUTPUT SCHEMA...     the description for people

The generated code holds no logic: it calls Kel::Attr, Kel::Collection and Kel::Codec, where the rules live. What a schema
may say is told in model.py.
"""
import pathlib
import sys

sys.dont_write_bytecode = True
from model import RESULTS, SCALARS, Model, SchemaError, capital, quoted  # noqa: E402

KINDS = {"type": "value", "values": "values", "keys": "keys", "entity": "entity", "entities": "entities",
         "reference": "reference", "references": "keys"}


def limits(a):
    """The checks that input for the attribute `x` has to pass besides those of its type."""
    checks = ""
    for option, operator, words in (("min", "<", "at least"), ("max", ">", "at most")):
        if option in a.entry:
            bound = a.entry[option]
            checks += f'if (x {operator} {bound}) return std::string("expected {words} {bound}"); '
    if "max_bytes" in a.entry:
        bound = a.entry["max_bytes"]
        checks += f'if (x.size() > {bound}) return std::string("longer than {bound} bytes"); '
    return checks


def enum_code(enum):
    name, full, values = enum.name, enum.full, enum.values
    names = "\n".join(f"    case {name}::{value}: return {quoted(value)};" for value in values)
    cases = "\n".join(f"    if (*text == {quoted(v)}) {{ out = {name}::{v}; return {{}}; }}" for v in values)
    members = "".join(f"  {value} = {number},\n" for value, number in values.items())
    header = f"// {enum.doc}\nenum class {name} : std::uint32_t {{\n{members}}};\nKel::String stringValue({name} value);\n"
    if enum.flags:
        for operator in "|&":
            header += (f"constexpr {name} operator{operator}({name} a, {name} b) {{\n  return static_cast<{name}>("
                       f"static_cast<std::uint32_t>(a) {operator} static_cast<std::uint32_t>(b));\n}}\n")
    codec = (f"template <>\nstruct Codec<{full}> {{\n  static Value toValue({full} value) {{ return stringValue(value); }}\n"
             f"  static std::string toText({full} value) {{ return stringValue(value); }}\n"
             f"  static std::string fromText(std::string_view text, {full}& out) {{ return fromValue(Value(text), out); }}\n"
             f"  static std::string fromValue(Value const& value, {full}& out);\n}};\n")
    body = (f"namespace {enum.schema.namespace} {{\nKel::String stringValue({name} value) {{\n  switch (value) {{\n{names}\n  }}\n"
            f"  return std::to_string(static_cast<std::uint32_t>(value));\n}}\n}}\n\n"
            f"std::string Kel::Codec<{full}>::fromValue(Value const& value, {full}& out) {{\n  using {full};\n"
            f"  if (auto const* text = value.as<std::string>()) {{\n{cases}\n  }}\n"
            f"  return \"expected one of {', '.join(values)}\";\n}}\n\n")
    return header + "\n", codec, body


def struct_code(struct):
    name, full = struct.name, struct.full
    header = f"// {struct.doc}\nstruct {name} {{\n"
    for field, cpp, initial, doc, _ in struct.fields:
        header += f"  {cpp} {field}{{{initial}}};  // {doc}\n"
    header += f"  auto operator<=>({name} const&) const = default;\n}};\n"
    codec = (f"template <>\nstruct Codec<{full}> {{\n  static Value toValue({full} const& value);\n"
             f"  static std::string fromValue(Value const& value, {full}& out);\n}};\n")
    to_value = ", ".join(f'{{"{f}", Codec<{cpp}>::toValue(value.{f})}}' for f, cpp, *_ in struct.fields)
    reads = "".join(f'    if (name == "{f}") {{\n      if (auto error = Codec<{cpp}>::fromValue(field, parsed.{f}); !error.empty()) '
                    f'return "{f}: " + error;\n      continue;\n    }}\n' for f, cpp, *_ in struct.fields)
    body = (f"Kel::Value Kel::Codec<{full}>::toValue({full} const& value) {{\n  return ValueMap{{{to_value}}};\n}}\n\n"
            f"std::string Kel::Codec<{full}>::fromValue(Value const& value, {full}& out) {{\n"
            f"  auto const* map = value.as<ValueMap>();\n  if (map == nullptr) return \"expected an object\";\n"
            f"  {full} parsed;\n  for (auto const& [name, field] : *map) {{\n{reads}"
            f"    return \"unknown field '\" + name + \"'\";\n  }}\n  out = parsed;\n  return {{}};\n}}\n\n")
    return header + "\n", codec, body


def accessors(a):
    """Of one attribute the accessors' declarations, the private member, and what is defined in the source file.

    Each definition is (result, signature, body). Only readers are inline: all that notifies is compiled once, not in every
    file that includes the header.
    """
    n, N, hook = a.name, capital(a.name), f"&NotifieeConst::{a.hook}"
    set_ = f'{n}_.set(*this, level, "{n}", '
    code, definitions = "", []
    if a.form in ("type", "reference", "entity"):
        cpp = a.handle if a.holds_entity else a.cpp
        by_value = a.form == "type" and a.declared in SCALARS and a.declared not in ("string", "name")
        code = f"  {cpp if by_value else cpp + ' const&'} {n}() const {{ return {n}_.get(); }}\n"
        initial = a.initial
        if a.constructor:
            return code, f"  Kel::Attr<{cpp}> {n}_;\n", []
        definitions.append(("void", f"{n}Is({cpp} value)", f"{set_}std::move(value), {hook});"))
        if a.form == "entity":
            initial = f"{{Kel::makePtr<{a.cpp}>()}}" if a.entry.get("always") else ""
            if not a.target.parameters:
                definitions.append((a.handle, f"{n}Is()", f"if ({a.handle} const found = {n}()) return found;\n"
                                    f"  auto const created = Kel::makePtr<{a.cpp}>();\n  {n}Is(created);\n  return created;"))
            if not a.entry.get("always"):
                code += f"  void {n}Del() {{ {n}Is(nullptr); }}\n"
        member = f"  Kel::Attr<{cpp}> {n}_{initial};\n"
    else:
        value = {"values": a.cpp, "keys": "bool"}.get(a.form) or a.handle
        collection = f"Kel::Collection<{a.key}, {value}>"
        member = f"  {collection} {n}_;\n"
        code = f"  {collection} const& {n}() const {{ return {n}_; }}\n"
        code += f"  {value if a.form == 'keys' else value + ' const&'} {n}({a.key} const& key) const {{ return {n}_.get(key); }}\n"
        if a.form == "values":
            definitions.append(("void", f"{n}Is({a.key} const& key, {a.cpp} value)", f"{set_}key, std::move(value), {hook});"))
        elif a.form == "keys":
            definitions.append(("void", f"{n}Is({a.key} const& key)", f"{set_}key, true, {hook});"))
        else:
            definitions.append(("void", f"{n}Is({a.handle} const& entity)", f"{set_}entity->{a.target.key_name}(), entity, {hook});"))
        if a.form == "entities":
            parameters = "".join(f", {cpp} const& {name}" for cpp, name in a.target.arguments)
            arguments = "".join(f", {name}" for _, name in a.target.arguments)
            checks = "".join(f'    Kel::checkSame("{name}", {name}, found->{name}());\n' for _, name in a.target.arguments)
            definitions.append((a.handle, f"{n}Is({a.key} const& key{parameters})", f"if ({a.handle} const found = {n}(key)) {{\n"
                                f"{checks}    return found;\n  }}\n  auto const created = Kel::makePtr<{a.cpp}>(key{arguments});\n"
                                f"  {n}Is(created);\n  return created;"))
        definitions += [("void", f"{n}Del({a.key} const& key)", f'{n}_.del(*this, level, "{n}", key, {hook});'),
                        ("void", f"{n}DelAll()", f'{n}_.delAll(*this, level, "{n}", {hook});'),
                        ("void", f"{n}Notify({a.key} const& key)", f'{n}_.announce(*this, level, "{n}", key, {hook});')]
    return code + "".join(f"  {result} {signature};\n" for result, signature, _ in definitions), member, definitions


def handles_code(schema):
    """What is made of the list of handles: parameters, arguments, and the entities themselves with their places."""
    macros = ""
    for name, words, handles in (
            ("AGENT_HANDLE", "The handles that the platform gives to the agent", schema.handles),
            ("PASSED_HANDLE", "Those that the agent passes on to its state machine", [h for h in schema.handles if h.passed])):
        parameters = ", \\\n  ".join(handle.parameter for handle in handles)
        macros += (f"// {words}: as the parameters of a function, and as the arguments of a call.\n"
                   f"#define {name}_PARAMETERS \\\n  {parameters}\n"
                   f"#define {name}S {', '.join(handle.name for handle in handles)}\n\n")
    members = "".join(f"  Kel::Ptr<{h.type}> {h.name} = Kel::makePtr<{h.type}>();\n" for h in schema.handles)
    visits = "".join(f'    visit("{h.mount}", {h.name}, MountWriters::{h.writers});\n' for h in schema.handles)
    return (f'#pragma once\n\n#include "platform/model/{schema.name}.h"\n\n{macros}namespace {schema.namespace} {{\n\n'
            "// Who may write a mounted entity from outside, besides the platform: nobody, root, or the group too.\n"
            "enum class MountWriters { platform, root, group };\n\n"
            "// The entities that the agent is given, made fresh: what a host mounts into its state tree, and a test hands over.\n"
            f"struct MountedEntities {{\n{members}\n"
            "  // Calls `visit` with the path, the handle and the writers of each, in the order above.\n"
            f"  template <typename Visit>\n  void each(Visit const& visit) const {{\n{visits}  }}\n\n"
            "  // `factory` is the agent's agentCreatorFactory.\n"
            "  template <typename Factory>\n  auto createAgent(Factory factory) const {\n    return factory(AGENT_HANDLES);\n"
            "  }\n};\n\n}\n")


def entity_code(entity):
    """The class of one entity, and the definitions of its members."""
    name, base = entity.name, entity.base.full if entity.base else "Kel::Entity"
    notifiee_base = f"{base}::NotifieeConst" if entity.base else "Kel::NotifieeBase"
    hooks = public = private = bodies = ""
    for a in entity.attributes:
        code, member, definitions = accessors(a)
        unit = f" ({a.unit})" if a.unit else ""
        public += f"\n  // {a.doc}{unit}\n{code}"
        private += member
        bodies += "".join(f"{result} {name}::{signature} {{\n  {body}\n}}\n" for result, signature, body in definitions)
        if not a.constructor:
            hooks += f"    virtual void {a.hook}({a.key + ' const&' if a.key else ''}) {{}}\n"
    if entity.key_name and not entity.base:
        public = f"\n  {entity.key_type} const& {entity.key_name}() const {{ return {entity.key_name}_; }}\n" + public
        private = f"  {entity.key_type} {entity.key_name}_;\n" + private
    for operation, options in entity.operations.items():
        public += f"\n  // {options['doc']}\n  virtual {RESULTS[options['returns']]} {operation}() {{ return {{}}; }}\n"
    if any(not handle.passed for handle in entity.handles):
        passed = ", ".join(f"{handle.name}()" for handle in entity.handles if handle.passed)
        public += ("\n  // Calls `use` with the handles that are passed on, in their order.\n"
                   f"  template <typename Use>\n  void passHandles(Use const& use) const {{ use({passed}); }}\n")
    signature = f"{name}({', '.join(f'{cpp} {n}' for cpp, n in entity.parameters)})"
    own = entity.parameters[len(entity.inherited):] if entity.base else entity.parameters
    initialisers = [f"{base}({', '.join(f'std::move({n})' for _, n in entity.inherited)})"] if entity.inherited else []
    initialisers += [f"{n}_(std::move({n}))" for _, n in own]
    notifiee = f"{name}::NotifieeConst"
    bodies = (f"{name}::{signature}{' : ' if initialisers else ''}{', '.join(initialisers)} {{}}\n{name}::~{name}() = default;\n"
              f"Kel::EntityType const* {name}::entityType() const {{ return &type; }}\n"
              f"{notifiee}::NotifieeConst(Kel::Ptr<{name} const> const& notifier, unsigned deepest) : {notifiee_base}(notifier, deepest) {{}}\n"
              f"{notifiee}::~NotifieeConst() = default;\n{bodies}")
    header = (f"// {entity.doc}\nclass {name} : public {base} {{\n public:\n  static constexpr unsigned level = {entity.level};\n"
              f"  static Kel::EntityType const type;\n\n  class NotifieeConst : public {notifiee_base} {{\n   public:\n"
              f"    explicit NotifieeConst(Kel::Ptr<{name} const> const& notifier, unsigned deepest = level);\n"
              f"    ~NotifieeConst() override;\n"
              f"    {name} const& notifier() const {{ return static_cast<{name} const&>(*notifierEntity()); }}\n{hooks}  }};\n\n"
              f"  {'explicit ' if entity.parameters else ''}{signature};\n  ~{name}() override;\n"
              f"  Kel::EntityType const* entityType() const override;\n{public}"
              + (f"\n private:\n{private}" if private else "") + "};\n\n")
    return header, bodies


def description(entity, a):
    """The initialiser of one AttributeType."""
    this, n = entity.full, a.name
    const, mutable, own = f"static_cast<{this} const&>(e)", f"static_cast<{this}*>(e)", f"static_cast<{this}&>(own)"
    get = keys = child = set_ = create = delete = "nullptr"
    sets = "[]([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k"
    with_key = f"{sets}) {{ return Kel::withKey<{a.key}>(e, k, [](Kel::Entity& own, {a.key} const& key)"
    if a.form == "type":
        get = f"[](Kel::Entity const& e, std::string_view) {{ return Kel::Codec<{a.cpp}>::toValue({const}.{n}()); }}"
        if not a.constructor:
            check = f", []({a.cpp} const& x) {{ {limits(a)}return std::string(); }}" if limits(a) else ""
            set_ = (f"{sets}, Kel::Value const& v) {{ return Kel::withValue<{a.cpp}>(e, v, [](Kel::Entity& own, {a.cpp} const& x) "
                    f"{{ {own}.{n}Is(x); }}{check}); }}")
    if a.form == "reference" and a.target.key_name:
        get = (f"[](Kel::Entity const& e, std::string_view) {{ auto const& held = {const}.{n}(); "
               f"return held ? Kel::Codec<{a.target.key_type}>::toValue(held->{a.target.key_name}()) : Kel::Value(); }}")
    if a.form in ("values", "keys", "entities", "references"):
        keys = f"[](Kel::Entity const& e) {{ return Kel::keyTexts({const}.{n}()); }}"
        if a.form != "references":
            delete = f"{with_key} {{ {own}.{n}Del(key); }}); }}"
    if a.form == "values":
        get = (f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryValue({const}.{n}(), k); }}")
        set_ = (f"{sets}, Kel::Value const& v) {{ return Kel::withKeyAndValue<{a.key}, {a.cpp}>(e, k, v, "
                f"[](Kel::Entity& own, {a.key} const& key, {a.cpp} const& x) {{ {own}.{n}Is(key, x); }}); }}")
    if a.form in ("keys", "references"):
        get = f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryPresent({const}.{n}(), k); }}"
    if a.form == "keys":
        create = f"{with_key} {{ {own}.{n}Is(key); }}); }}"
    if a.form == "entities":
        child = f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryChild({const}.{n}(), k); }}"
        if not a.target.arguments:
            create = f"{with_key} {{ {own}.{n}Is(key); }}); }}"
    if a.form == "entity":
        child = f"[](Kel::Entity const& e, std::string_view) -> Kel::Entity* {{ return {const}.{n}().get(); }}"
        if not a.target.parameters:
            create = f"{sets}) -> std::string {{ if (e != nullptr) {mutable}->{n}Is(); return {{}}; }}"
        if not a.entry.get("always"):
            delete = f"{sets}) -> std::string {{ if (e != nullptr) {mutable}->{n}Del(); return {{}}; }}"
    kind = f"Kel::AttributeKind::{KINDS[a.form]}"
    child_type = f"&{a.declared}::type" if a.holds_entity else "nullptr"
    return (f"    {{{quoted(n)}, {kind}, {quoted(a.key_declared)}, {quoted(a.declared)}, {quoted(a.unit)}, {quoted(a.doc)}, {child_type},\n"
            f"     {get},\n     {keys},\n     {child},\n     {set_},\n     {create},\n     {delete}}},\n")


def write_cpp(model, output):
    for schema in model.schemas:
        types = codecs = bodies = ""
        for parts in [enum_code(enum) for enum in schema.enums] + [struct_code(struct) for struct in schema.structs]:
            types, codecs, bodies = types + parts[0], codecs + parts[1], bodies + parts[2]
        classes = ""
        for entity in schema.entities:
            header, definitions = entity_code(entity)
            classes += header
            bodies += f"namespace {schema.namespace} {{\n{definitions}}}\n\n"
            table = ""
            if entity.attributes:
                table = f"static Kel::AttributeType const attributesOf{entity.name}[] = {{\n"
                table += "".join(description(entity, a) for a in entity.attributes) + "};\n"
            base = f"&{entity.base.full}::type" if entity.base else "nullptr"
            own = f"attributesOf{entity.name}" if entity.attributes else "{}"
            bodies += (f"{table}constinit Kel::EntityType const {entity.full}::type = {{{quoted(entity.full)}, {quoted(entity.doc)}, "
                       f"{base}, {own}}};\n\n")
        notice = f"// Generated from {schema.path.name}; do not edit.\n"
        includes = "".join(f'#include "{header}"\n' for header in
                           ["platform/kel/EntityType.h"] + model.includes(schema))
        header = f"{notice}#pragma once\n\n{includes}\n"
        if types:
            header += f"namespace {schema.namespace} {{\n\n{types}}}\n\nnamespace Kel {{\n{codecs}}}\n\n"
        if classes:
            header += f"namespace {schema.namespace} {{\n\n{classes}}}\n"
        files = {f"{schema.name}.h": header, f"{schema.name}.cc": f'{notice}#include "platform/model/{schema.name}.h"\n\n{bodies}'}
        if schema.handles:
            files["handles.h"] = notice + handles_code(schema)
        for path, text in ((output / name, text) for name, text in files.items()):
            if not path.exists() or path.read_text() != text:
                path.write_text(text)


def write_markdown(model, output):
    text = "# The state model\n\nEvery entity type, generated from `platform/model/schema`.\n"
    for schema in model.schemas:
        text += f"\n## {schema.namespace} (`{schema.name}.toml`)\n\n{schema.data.get('doc', '')}\n"
        if schema.handles:
            text += ("\nThe handles that the platform gives to the agent, in their order:\n\n"
                     "| Handle | Type | Access | Mounted at |\n|---|---|---|---|\n")
            for h in schema.handles:
                text += f"| `{h.name}` | {h.type} | {'read' if h.attribute.get('const') else 'write'} | `{h.mount}` |\n"
        for enum in schema.enums:
            values = ", ".join(f"`{value}` {number}" for value, number in enum.values.items())
            text += f"\n**{enum.name}**: {enum.doc} Values: {values}.\n"
        for struct in schema.structs:
            fields = ", ".join(f"`{field}` ({declared})" for field, _, _, _, declared in struct.fields)
            text += f"\n**{struct.name}**: {struct.doc} Fields: {fields}.\n"
        for entity in schema.entities:
            extends = f", extends `{entity.base.full}`" if entity.base else ""
            text += f"\n### {entity.full}{extends}\n\n{entity.doc}\n"
            if entity.attributes:
                text += "\n| Attribute | Type | Unit | Meaning |\n|---|---|---|---|\n"
            for a in entity.attributes:
                shape = a.declared if a.form == "type" else f"{a.form} {a.declared}" + (f" by {a.key_declared}" if a.form == "values" else "")
                text += f"| `{a.name}` | {shape} | {a.unit} | {a.doc} |\n"
            for operation, options in entity.operations.items():
                text += f"\nOperation `{operation}()`, which returns {options['returns']}: {options['doc']}\n"
    output.write_text(text)


def main(arguments):
    if len(arguments) < 3 or arguments[0] not in ("cpp", "markdown"):
        sys.exit(__doc__)
    try:
        model = Model(arguments[2:])
        (write_cpp if arguments[0] == "cpp" else write_markdown)(model, pathlib.Path(arguments[1]))
    except SchemaError as error:
        sys.exit(str(error))


if __name__ == "__main__":
    main(sys.argv[1:])
