#!/usr/bin/env python3
"""Turns the schemas (schema/*.toml) into C++ entity classes with uniform accessors, and into docs/state-model.md.

    generate.py cpp OUTPUT_DIR SCHEMA...      one NAME.h and NAME.cc per schema
    generate.py markdown OUTPUT SCHEMA...     the description for people

The generated code holds no logic: it calls Kel::Attr, Kel::Collection and Kel::Codec, where the rules live.

A schema declares one namespace. An attribute is one line, an inline table with `doc` and one of
  type        a value                              default, unit, min, max, max_bytes, constructor
  values      a collection of values; `key` its key type
  keys        a set of keys
  entity      one entity, owned; `always`: there from construction, else absent until created
  entities    a collection of entities, owned; their schema's `key` is the key
  reference   a handle to an entity elsewhere      const, constructor
  references  a collection of such handles         const
Constructor attributes are given when the entity is created and never change.

An operation is one line too, with `doc` and `returns`: a virtual function without arguments, whose work a class that
derives from the entity's does; by default it returns nothing.
"""
import pathlib
import re
import sys
import tomllib

SCALARS = {"bool": "bool", "u8": "std::uint8_t", "u16": "std::uint16_t", "u32": "std::uint32_t",
           "u64": "std::uint64_t", "seconds": "Kel::Seconds", "string": "Kel::String", "name": "Kel::Name"}
VALUE_TYPES = {"Wire::IntfId": "Wire", "Wire::EthAddr": "Wire", "Wire::IpAddr": "Wire", "Wire::Ip6Addr": "Wire",
               "Wire::IpGenAddr": "Wire", "Wire::IpAddrWithMask": "Wire", "Wire::Ip6AddrWithMask": "Wire",
               "Wire::IpGenAddrWithMask": "Wire", "L3::VrfName": "VrfName", "Routing::Via": "Via",
               "KernelNetInfo::NamespaceName": "NamespaceName"}
RESULTS = SCALARS | {"bytes": "std::vector<std::uint8_t>"}
FORMS = ("type", "values", "keys", "entity", "entities", "reference", "references")
OPTIONS = {"type": {"default", "unit", "min", "max", "max_bytes", "constructor"}, "values": {"key"}, "keys": set(),
           "entity": {"always"}, "entities": set(), "reference": {"const", "constructor"}, "references": {"const"}}
KINDS = {"type": "value", "values": "values", "keys": "keys", "entity": "entity", "entities": "entities",
         "reference": "reference", "references": "keys"}


class SchemaError(Exception):
    pass


def capital(name):
    return name[0].upper() + name[1:]


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


class Schema:
    """One file, with what is needed to say on which line something is wrong."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.text = self.path.read_text()
        try:
            self.data = tomllib.loads(self.text)
        except tomllib.TOMLDecodeError as error:
            raise SchemaError(f"{path}: {error}") from error
        for key in self.data:
            if key not in ("namespace", "doc", "enum", "struct", "entity"):
                self.fail(f"unknown entry '{key}'", "", key)
        if not isinstance(self.data.get("namespace"), str):
            self.fail("'namespace' is missing")
        self.namespace = self.data["namespace"]
        self.name = self.path.stem

    def fail(self, reason, table="", key=""):
        current, line = "", 1
        for number, text in enumerate(self.text.splitlines(), 1):
            header = re.match(r"\s*\[([^\]]+)\]", text)
            current = header.group(1) if header else current
            if (header and current == table and not key) or \
                    (key and current == table and re.match(rf"\s*{re.escape(key)}\s*=", text)):
                line = number
                break
        raise SchemaError(f"{self.path}:{line}: {reason}")


class Attribute:
    def __init__(self, entity, name, entry):
        self.entity, self.name, self.entry = entity, name, entry
        if not isinstance(entry, dict):
            self.fail("expected an inline table with its form and 'doc'")
        forms = [form for form in FORMS if form in entry]
        if len(forms) != 1:
            self.fail(f"needs exactly one of {', '.join(FORMS)}")
        self.form = forms[0]
        for option in entry:
            if option not in OPTIONS[self.form] | {"doc", self.form}:
                self.fail(f"unknown option '{option}' for a '{self.form}'")
        if not isinstance(entry.get("doc"), str):
            self.fail("'doc' is missing")
        self.declared, self.doc, self.unit = entry[self.form], entry["doc"], entry.get("unit", "")
        self.constructor = entry.get("constructor", False)
        self.holds_entity = self.form in ("entity", "entities", "reference", "references")
        model = entity.model
        if self.holds_entity:
            self.target = model.entities.get(self.declared) or self.fail(f"unknown entity '{self.declared}'")
            self.cpp = self.declared + (" const" if entry.get("const") else "")
            self.handle = f"Kel::Ptr<{self.cpp}>"
        else:
            self.cpp = model.cpp_type(self.declared) or self.fail(f"unknown type '{self.declared}'")
        self.key = ""
        if self.form == "values":
            self.key = model.cpp_type(entry.get("key")) or self.fail(f"unknown key type '{entry.get('key')}'")
        elif self.form == "keys":
            self.key = self.cpp
        elif self.form in ("entities", "references"):
            self.key = self.target.key_type or self.fail(f"'{self.declared}' declares no 'key'")
        self.hook = "on" + capital(name)

    def fail(self, reason):
        self.entity.schema.fail(f"attribute '{self.name}': {reason}", f"entity.{self.entity.name}.attributes", self.name)

    def default(self):
        if "default" not in self.entry:
            return "{}"
        default = self.entry["default"]
        if isinstance(default, bool):
            return "{true}" if default else "{false}"
        if isinstance(default, (int, float)):
            return "{Kel::never}" if default == float("inf") else f"{{{default}}}"
        if self.cpp == "Kel::String":
            return f"{{{quoted(default)}}}"
        return f"{{{self.cpp}::{default}}}"

    def limits(self):
        checks = []
        for option, operator, words in (("min", "<", "at least"), ("max", ">", "at most")):
            if option in self.entry:
                bound = self.entry[option]
                checks.append(f'if (x {operator} {bound}) return std::string("expected {words} {bound}");')
        if "max_bytes" in self.entry:
            bound = self.entry["max_bytes"]
            checks.append(f'if (x.size() > {bound}) return std::string("longer than {bound} bytes");')
        return " ".join(checks)


class Entity:
    def __init__(self, model, schema, name, entry):
        self.model, self.schema, self.name = model, schema, name
        self.full = f"{schema.namespace}::{name}"
        table = f"entity.{name}"
        for option in entry:
            if option not in ("doc", "extends", "key", "attributes", "operations"):
                schema.fail(f"entity '{name}': unknown option '{option}'", table, option)
        if not isinstance(entry.get("doc"), str):
            schema.fail(f"entity '{name}': 'doc' is missing", table)
        self.doc, self.entry, self.base = entry["doc"], entry, None
        self.key_name, _, key_type = entry.get("key", "").partition(": ")
        self.key_type = model.cpp_type(key_type) if key_type else ""
        if "key" in entry and not self.key_type:
            schema.fail(f"entity '{name}': unknown key type '{key_type}' (expected \"name: type\")", table, "key")
        for operation, options in entry.get("operations", {}).items():
            if options.get("returns") not in RESULTS or not isinstance(options.get("doc"), str):
                schema.fail(f"operation '{operation}': needs 'doc' and 'returns', one of {', '.join(RESULTS)}",
                            f"{table}.operations", operation)
        self.operations = entry.get("operations", {})
        model.entities[self.full] = self

    def inherit(self):
        """Resolves the base; any order of declaration will do."""
        if "extends" in self.entry and self.base is None:
            self.base = self.model.entities.get(self.entry["extends"]) or self.schema.fail(
                f"entity '{self.name}': unknown base '{self.entry['extends']}'", f"entity.{self.name}", "extends")
            self.base.inherit()
            self.key_name, self.key_type = self.base.key_name, self.base.key_type
        self.level = self.base.level + 1 if self.base else 1

    def complete(self):
        """Reads the attributes; every entity is known by now."""
        if hasattr(self, "attributes"):
            return
        if self.base:
            self.base.complete()
        self.attributes = [Attribute(self, *item) for item in self.entry.get("attributes", {}).items()]
        own = [(a.handle if a.holds_entity else a.cpp, a.name) for a in self.attributes if a.constructor]
        key = [(self.key_type, self.key_name)] if self.key_name and not self.base else []
        self.inherited = self.base.parameters if self.base else []
        self.parameters = key + self.inherited + own
        # What xIs(key, ...) of a collection takes besides the key.
        self.arguments = self.parameters[1:] if self.key_name else self.parameters


class Model:
    def __init__(self, paths):
        self.entities, self.types, self.schemas = {}, {}, [Schema(path) for path in paths]
        for schema in self.schemas:
            for kind in ("enum", "struct"):
                for name, entry in schema.data.get(kind, {}).items():
                    if not isinstance(entry.get("doc"), str):
                        schema.fail(f"{kind} '{name}': 'doc' is missing", f"{kind}.{name}")
                    self.types[f"{schema.namespace}::{name}"] = schema
        for schema in self.schemas:
            schema.entities = [Entity(self, schema, *item) for item in schema.data.get("entity", {}).items()]
        for step in (Entity.inherit, Entity.complete):
            for entity in self.entities.values():
                step(entity)

    def cpp_type(self, name):
        if name in SCALARS:
            return SCALARS[name]
        return name if name in VALUE_TYPES or name in self.types else None

    def includes(self, schema):
        used = re.findall(r"[\w:]+::\w+", schema.text)
        headers = {f"platform/model/values/{VALUE_TYPES[name]}.h" for name in used if name in VALUE_TYPES}
        others = [self.types[n] for n in used if n in self.types]
        others += [self.entities[n].schema for n in used if n in self.entities]
        headers |= {f"platform/model/{other.name}.h" for other in others if other is not schema}
        return sorted(headers)


def enum_code(schema, name, entry):
    values = entry["values"]
    names = "\n".join(f"    case {name}::{value}: return {quoted(value)};" for value in values)
    cases = "\n".join(f"    if (*text == {quoted(v)}) {{ out = {name}::{v}; return {{}}; }}" for v in values)
    members = "".join(f"  {value} = {number},\n" for value, number in values.items())
    header = f"// {entry['doc']}\nenum class {name} : std::uint32_t {{\n{members}}};\nKel::String stringValue({name} value);\n"
    if entry.get("flags"):
        for operator in "|&":
            header += (f"constexpr {name} operator{operator}({name} a, {name} b) {{\n  return static_cast<{name}>("
                       f"static_cast<std::uint32_t>(a) {operator} static_cast<std::uint32_t>(b));\n}}\n")
    full = f"{schema.namespace}::{name}"
    codec = (f"template <>\nstruct Codec<{full}> {{\n  static Value toValue({full} value) {{ return stringValue(value); }}\n"
             f"  static std::string toText({full} value) {{ return stringValue(value); }}\n"
             f"  static std::string fromText(std::string_view text, {full}& out) {{ return fromValue(Value(text), out); }}\n"
             f"  static std::string fromValue(Value const& value, {full}& out);\n}};\n")
    body = (f"namespace {schema.namespace} {{\nKel::String stringValue({name} value) {{\n  switch (value) {{\n{names}\n  }}\n"
            f"  return std::to_string(static_cast<std::uint32_t>(value));\n}}\n}}\n\n"
            f"std::string Kel::Codec<{full}>::fromValue(Value const& value, {full}& out) {{\n  using {full};\n"
            f"  if (auto const* text = value.as<std::string>()) {{\n{cases}\n  }}\n"
            f"  return \"expected one of {', '.join(values)}\";\n}}\n\n")
    return header, codec, body


def struct_code(model, schema, name, entry):
    full, fields = f"{schema.namespace}::{name}", []
    for field, options in entry["fields"].items():
        cpp = model.cpp_type(options.get("type")) or \
            schema.fail(f"struct '{name}': unknown type '{options.get('type')}'", f"struct.{name}.fields", field)
        fields.append((field, cpp, options.get("default"), options["doc"]))
    header = f"// {entry['doc']}\nstruct {name} {{\n"
    for field, cpp, default, doc in fields:
        header += f"  {cpp} {field}{{{'' if default is None else str(default).lower()}}};  // {doc}\n"
    header += f"  auto operator<=>({name} const&) const = default;\n}};\n"
    codec = (f"template <>\nstruct Codec<{full}> {{\n  static Value toValue({full} const& value);\n"
             f"  static std::string fromValue(Value const& value, {full}& out);\n}};\n")
    to_value = ", ".join(f'{{"{f}", Codec<{c}>::toValue(value.{f})}}' for f, c, _, _ in fields)
    reads = "".join(f'    if (name == "{f}") {{\n      if (auto error = Codec<{c}>::fromValue(field, parsed.{f}); !error.empty()) '
                    f'return "{f}: " + error;\n      continue;\n    }}\n' for f, c, _, _ in fields)
    body = (f"Kel::Value Kel::Codec<{full}>::toValue({full} const& value) {{\n  return ValueMap{{{to_value}}};\n}}\n\n"
            f"std::string Kel::Codec<{full}>::fromValue(Value const& value, {full}& out) {{\n"
            f"  auto const* map = value.as<ValueMap>();\n  if (map == nullptr) return \"expected an object\";\n"
            f"  {full} parsed;\n  for (auto const& [name, field] : *map) {{\n{reads}"
            f"    return \"unknown field '\" + name + \"'\";\n  }}\n  out = parsed;\n  return {{}};\n}}\n\n")
    return header, codec, body


def accessors(a):
    """The public accessors and the private member of one attribute."""
    n, N, hook = a.name, capital(a.name), f"&NotifieeConst::{a.hook}"
    set_ = f'{n}_.set(*this, level, "{n}", '
    if a.form in ("type", "reference", "entity"):
        cpp = a.handle if a.holds_entity else a.cpp
        by_value = a.form == "type" and a.declared in SCALARS and a.declared not in ("string", "name")
        code = f"  {cpp if by_value else cpp + ' const&'} {n}() const {{ return {n}_.get(); }}\n"
        if a.constructor:
            return code, f"  Kel::Attr<{cpp}> {n}_;\n"
        code += f"  void {n}Is({cpp} value) {{ {set_}std::move(value), {hook}); }}\n"
        if a.form != "entity":
            return code, f"  Kel::Attr<{cpp}> {n}_{a.default()};\n"
        initial = f"{{Kel::makePtr<{a.cpp}>()}}" if a.entry.get("always") else ""
        if not a.target.parameters:
            code += (f"  {a.handle} {n}Is() {{\n    if (!{n}()) {n}Is(Kel::makePtr<{a.cpp}>());\n"
                     f"    return {n}();\n  }}\n")
        code += f"  void {n}Del() {{ {n}Is(nullptr); }}\n"
        return code, f"  Kel::Attr<{cpp}> {n}_{initial};\n"
    value = {"values": a.cpp, "keys": "bool"}.get(a.form) or a.handle
    collection = f"Kel::Collection<{a.key}, {value}>"
    code = f"  {collection} const& {n}() const {{ return {n}_; }}\n"
    code += f"  {value if a.form == 'keys' else value + ' const&'} {n}({a.key} const& key) const {{ return {n}_.get(key); }}\n"
    if a.form == "values":
        code += f"  void {n}Is({a.key} const& key, {a.cpp} value) {{ {set_}key, std::move(value), {hook}); }}\n"
    elif a.form == "keys":
        code += f"  void {n}Is({a.key} const& key) {{ {set_}key, true, {hook}); }}\n"
    else:
        key = a.target.key_name
        code += f"  void {n}Is({a.handle} const& entity) {{ {set_}entity->{key}(), entity, {hook}); }}\n"
    if a.form == "entities":
        parameters = "".join(f", {cpp} const& {name}" for cpp, name in a.target.arguments)
        arguments = "".join(f", {name}" for _, name in a.target.arguments)
        checks = "".join(f'      Kel::checkSame("{name}", {name}, found->{name}());\n' for _, name in a.target.arguments)
        code += (f"  {a.handle} {n}Is({a.key} const& key{parameters}) {{\n    if ({a.handle} const found = {n}(key)) {{\n"
                 f"{checks}      return found;\n    }}\n    auto const created = Kel::makePtr<{a.cpp}>(key{arguments});\n"
                 f"    {n}Is(created);\n    return created;\n  }}\n")
    code += (f'  void {n}Del({a.key} const& key) {{ {n}_.del(*this, level, "{n}", key, {hook}); }}\n'
             f'  void {n}DelAll() {{ {n}_.delAll(*this, level, "{n}", {hook}); }}\n'
             f'  void {n}Notify({a.key} const& key) {{ {n}_.announce(*this, level, "{n}", key, {hook}); }}\n')
    return code, f"  {collection} {n}_;\n"


def entity_code(entity):
    name, base = entity.name, entity.base.full if entity.base else "Kel::Entity"
    notifiee_base = f"{base}::NotifieeConst" if entity.base else "Kel::NotifieeBase"
    hooks = public = private = ""
    for a in entity.attributes:
        code, member = accessors(a)
        unit = f" ({a.unit})" if a.unit else ""
        public += f"\n  // {a.doc}{unit}\n{code}"
        private += member
        if not a.constructor:
            hooks += f"    virtual void {a.hook}({a.key + ' const&' if a.key else ''}) {{}}\n"
    if entity.key_name and not entity.base:
        public = f"\n  {entity.key_type} const& {entity.key_name}() const {{ return {entity.key_name}_; }}\n" + public
        private = f"  {entity.key_type} {entity.key_name}_;\n" + private
    for operation, options in entity.operations.items():
        public += f"\n  // {options['doc']}\n  virtual {RESULTS[options['returns']]} {operation}() {{ return {{}}; }}\n"
    construct = ""
    if entity.parameters:
        own = entity.parameters[len(entity.inherited):] if entity.base else entity.parameters
        initialisers = [f"{base}({', '.join(f'std::move({n})' for _, n in entity.inherited)})"] if entity.inherited else []
        initialisers += [f"{n}_(std::move({n}))" for _, n in own]
        construct = (f"  explicit {name}({', '.join(f'{cpp} {n}' for cpp, n in entity.parameters)})\n"
                     f"      : {', '.join(initialisers)} {{}}\n")
    return (f"// {entity.doc}\nclass {name} : public {base} {{\n public:\n  static constexpr unsigned level = {entity.level};\n"
            f"  static Kel::EntityType const type;\n\n  class NotifieeConst : public {notifiee_base} {{\n   public:\n"
            f"    explicit NotifieeConst(Kel::Ptr<{name} const> const& notifier, unsigned deepest = level)\n"
            f"        : {notifiee_base}(notifier, deepest) {{}}\n"
            f"    {name} const& notifier() const {{ return static_cast<{name} const&>(*notifierEntity()); }}\n{hooks}  }};\n\n"
            f"{construct}  Kel::EntityType const* entityType() const override {{ return &type; }}\n{public}"
            + (f"\n private:\n{private}" if private else "") + "};\n\n")


def description(entity, a):
    """The initialiser of one AttributeType."""
    this, n = entity.full, a.name
    const, mutable = f"static_cast<{this} const&>(e)", f"static_cast<{this}*>(e)"
    get = keys = child = set_ = create = delete = "nullptr"
    sets = "[]([[maybe_unused]] Kel::Entity* e, [[maybe_unused]] std::string_view k"
    with_key = f"Kel::withKey<{a.key}>(k, [&]({a.key} const& key)"
    if a.form == "type":
        get = f"[](Kel::Entity const& e, std::string_view) {{ return Kel::Codec<{a.cpp}>::toValue({const}.{n}()); }}"
        if not a.constructor:
            set_ = (f"{sets}, Kel::Value const& v) {{ return Kel::withValue<{a.cpp}>(v, [&]({a.cpp} const& x) -> std::string "
                    f"{{ {a.limits()} if (e != nullptr) {mutable}->{n}Is(x); return {{}}; }}); }}")
    if a.form in ("values", "keys", "entities", "references"):
        keys = f"[](Kel::Entity const& e) {{ return Kel::keyTexts({const}.{n}()); }}"
        if a.form != "references":
            delete = f"{sets}) {{ return {with_key} -> std::string {{ if (e != nullptr) {mutable}->{n}Del(key); return {{}}; }}); }}"
    if a.form == "values":
        get = (f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryValue({const}.{n}(), k); }}")
        set_ = (f"{sets}, Kel::Value const& v) {{ return {with_key} {{ return Kel::withValue<{a.cpp}>(v, [&]({a.cpp} const& x) -> "
                f"std::string {{ if (e != nullptr) {mutable}->{n}Is(key, x); return {{}}; }}); }}); }}")
    if a.form in ("keys", "references"):
        get = f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryPresent({const}.{n}(), k); }}"
    if a.form == "keys":
        create = f"{sets}) {{ return {with_key} -> std::string {{ if (e != nullptr) {mutable}->{n}Is(key); return {{}}; }}); }}"
    if a.form == "entities":
        child = f"[](Kel::Entity const& e, std::string_view k) {{ return Kel::entryChild({const}.{n}(), k); }}"
        if not a.target.arguments:
            create = f"{sets}) {{ return {with_key} -> std::string {{ if (e != nullptr) {mutable}->{n}Is(key); return {{}}; }}); }}"
    if a.form == "entity":
        child = f"[](Kel::Entity const& e, std::string_view) -> Kel::Entity* {{ return {const}.{n}().get(); }}"
        if not a.target.parameters:
            create = f"{sets}) -> std::string {{ if (e != nullptr) {mutable}->{n}Is(); return {{}}; }}"
        if not a.entry.get("always"):
            delete = f"{sets}) -> std::string {{ if (e != nullptr) {mutable}->{n}Del(); return {{}}; }}"
    kind = f"Kel::AttributeKind::{KINDS[a.form]}"
    child_type = f"&{a.declared}::type" if a.holds_entity else "nullptr"
    return (f"    {{{quoted(n)}, {kind}, {quoted(a.key)}, {quoted(a.declared)}, {quoted(a.unit)}, {quoted(a.doc)}, {child_type},\n"
            f"     {get},\n     {keys},\n     {child},\n     {set_},\n     {create},\n     {delete}}},\n")


def write_cpp(model, output):
    for schema in model.schemas:
        types = codecs = bodies = ""
        for name, entry in schema.data.get("enum", {}).items():
            parts = enum_code(schema, name, entry)
            types, codecs, bodies = types + parts[0] + "\n", codecs + parts[1], bodies + parts[2]
        for name, entry in schema.data.get("struct", {}).items():
            parts = struct_code(model, schema, name, entry)
            types, codecs, bodies = types + parts[0] + "\n", codecs + parts[1], bodies + parts[2]
        classes = ""
        for entity in schema.entities:
            classes += entity_code(entity)
            table = ""
            if entity.attributes:
                table = f"static Kel::AttributeType const attributesOf{entity.name}[] = {{\n"
                table += "".join(description(entity, a) for a in entity.attributes) + "};\n"
            base = f"&{entity.base.full}::type" if entity.base else "nullptr"
            own = f"attributesOf{entity.name}" if entity.attributes else "{}"
            bodies += (f"{table}Kel::EntityType const {entity.full}::type = {{{quoted(entity.full)}, {quoted(entity.doc)}, "
                       f"{base}, {own}}};\n\n")
        notice = f"// Generated from {schema.path.name}; do not edit.\n"
        includes = "".join(f'#include "{header}"\n' for header in
                           ["platform/kel/Attr.h", "platform/kel/Collection.h", "platform/kel/EntityType.h",
                            "platform/kel/Described.h"] + model.includes(schema))
        header = f"{notice}#pragma once\n\n{includes}\n"
        if types:
            header += f"namespace {schema.namespace} {{\n\n{types}}}\n\nnamespace Kel {{\n{codecs}}}\n\n"
        if classes:
            header += f"namespace {schema.namespace} {{\n\n{classes}}}\n"
        for path, text in ((output / f"{schema.name}.h", header),
                           (output / f"{schema.name}.cc", f'{notice}#include "platform/model/{schema.name}.h"\n\n{bodies}')):
            if not path.exists() or path.read_text() != text:
                path.write_text(text)


def write_markdown(model, output):
    text = "# The state model\n\nEvery entity type, generated from `platform/model/schema`.\n"
    for schema in model.schemas:
        text += f"\n## {schema.namespace} (`{schema.name}.toml`)\n\n{schema.data.get('doc', '')}\n"
        for name, entry in schema.data.get("enum", {}).items():
            values = ", ".join(f"`{value}` {number}" for value, number in entry["values"].items())
            text += f"\n**{name}**: {entry['doc']} Values: {values}.\n"
        for name, entry in schema.data.get("struct", {}).items():
            fields = ", ".join(f"`{field}` ({options['type']})" for field, options in entry["fields"].items())
            text += f"\n**{name}**: {entry['doc']} Fields: {fields}.\n"
        for entity in schema.entities:
            extends = f", extends `{entity.base.full}`" if entity.base else ""
            text += f"\n### {entity.full}{extends}\n\n{entity.doc}\n"
            if entity.attributes:
                text += "\n| Attribute | Type | Unit | Meaning |\n|---|---|---|---|\n"
            for a in entity.attributes:
                shape = a.declared if a.form == "type" else f"{a.form} {a.declared}" + (f" by {a.entry['key']}" if a.form == "values" else "")
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
