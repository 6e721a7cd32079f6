"""Reads the schemas and checks them. Whatever is wrong is told as "FILE:LINE: reason", as a compiler does.

A schema declares one namespace: `enum.NAME` (doc, values, flags), `struct.NAME` (doc, fields) and `entity.NAME` (doc,
extends, key = "NAME: TYPE", attributes). An attribute is one line, an inline table with `doc` and one of
  type        a value                              default, unit, min, max, max_bytes, constructor
  values      a collection of values; `key` its key type
  keys        a set of keys
  entity      one entity, owned; `always`: there from construction, else absent until created
  entities    a collection of entities, owned; their schema's `key` is the key
  reference   a handle to an entity elsewhere      const, constructor
  references  a collection of such handles         const
Constructor attributes are given when the entity is created and never change.

One schema may list, as `handles`, the entities that the platform gives to the agent, in their order: a line each, with
  reference   the entity's type; `const`: the agent only reads it
  mount       its path in the state tree, and in `writers` who may write it there: root, or the group too
  passed      false for one that the agent's root keeps to itself
An entity with `handles = "all"` or "passed" begins with them, as constructor attributes.

An entity's operation (`entity.NAME.operations`) is one line too, with `doc` and `returns`: a virtual function without
arguments, whose work a class that derives from the entity's does; by default it returns nothing.
"""
import pathlib
import re
import tomllib

BITS = {"u8": 8, "u16": 16, "u32": 32, "u64": 64}
SCALARS = {"bool": "bool", "u8": "std::uint8_t", "u16": "std::uint16_t", "u32": "std::uint32_t",
           "u64": "std::uint64_t", "seconds": "Kel::Seconds", "string": "Kel::String", "name": "Kel::Name"}
VALUE_TYPES = {"Wire::IntfId": "Wire", "Wire::EthAddr": "Wire", "Wire::IpAddr": "Wire", "Wire::Ip6Addr": "Wire",
               "Wire::IpGenAddr": "Wire", "Wire::IpAddrWithMask": "Wire", "Wire::Ip6AddrWithMask": "Wire",
               "Wire::IpGenAddrWithMask": "Wire", "L3::VrfName": "Names", "Routing::Via": "Wire",
               "KernelNetInfo::NamespaceName": "Names", "System::NameServerId": "Names"}
RESULTS = SCALARS | {"bytes": "std::vector<std::uint8_t>"}

# The options of each form of attribute, and what each must be.
FORMS = {"type": ("default", "unit", "min", "max", "max_bytes", "constructor"), "values": ("key",), "keys": (),
         "entity": ("always",), "entities": (), "reference": ("const", "constructor"), "references": ("const",)}
NUMBER = (int, float)
KINDS = {"doc": str, "unit": str, "key": str, "extends": str, "type": str, "default": object, "min": NUMBER, "max": NUMBER,
         "max_bytes": int, "constructor": bool, "always": bool, "const": bool, "flags": bool, "values": dict,
         "fields": dict, "attributes": dict, "operations": dict, "returns": str, "passed": bool}
KIND_WORDS = {str: "a string", int: "a whole number", NUMBER: "a number", bool: "true or false", dict: "a table"}

# Members of every entity, and the words that C++ keeps for itself.
RESERVED = set("""type level entityType reference release references beingDestroyed observed notify watcher
    alignas alignof and asm auto bool break case catch char class compl concept const consteval constexpr constinit continue
    decltype default delete do double else enum explicit export extern false float for friend goto if inline int long
    mutable namespace new noexcept not nullptr operator or private protected public register requires return short signed
    sizeof static struct switch template this throw true try typedef typeid typename union unsigned using virtual void
    volatile while xor""".split())


class SchemaError(Exception):
    pass


def capital(name):
    return name[0].upper() + name[1:]


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


class Schema:
    """One file, with what is needed to say on which line something is wrong."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.name = self.path.stem
        self.text = self.path.read_text(encoding="utf-8")
        self.lines, table = {}, ""
        for number, text in enumerate(self.text.splitlines(), 1):
            if header := re.match(r"\s*\[([^\]]+)\]", text):
                table = header.group(1)
                self.lines.setdefault((table, ""), number)
            elif entry := re.match(r'\s*"?([^\s"=]+)"?\s*=', text):
                self.lines.setdefault((table, entry.group(1)), number)
        try:
            self.data = tomllib.loads(self.text)
        except tomllib.TOMLDecodeError as error:
            reason, place = re.fullmatch(r"(.*) \(at (.*)\)", str(error)).groups()
            line = re.match(r"line (\d+)", place)
            number = line.group(1) if line else len(self.text.splitlines())
            raise SchemaError(f"{self.path}:{number}: {reason}") from error
        for key, entry in self.data.items():
            if key not in ("namespace", "doc", "enum", "struct", "entity", "handles"):
                self.fail(f"unknown entry '{key}'", key)
            if key == "handles" and not isinstance(entry, dict):
                self.fail("expected a table", key)
            if key in ("enum", "struct", "entity"):
                for name, declaration in entry.items() if isinstance(entry, dict) else self.fail("expected a table", key):
                    self.check_name(f"{key} '{name}'", name, r"[A-Z]\w*", f"{key}.{name}")
                    if not isinstance(declaration, dict):
                        self.fail(f"{key} '{name}': expected a table", key, name)
        if not isinstance(self.data.get("namespace"), str):
            self.fail("'namespace' is missing")
        self.namespace = self.data["namespace"]

    def fail(self, reason, table="", key=""):
        """Names the line of `key` in `table`, or of the nearest that is written there."""
        while (table, key) not in self.lines and (table or key):
            if key and (table, "") in self.lines:
                break
            table, _, key = table.rpartition(".")
        line = self.lines.get((table, key)) or self.lines.get((table, ""), 1)
        raise SchemaError(f"{self.path}:{line}: {reason}")

    def check_name(self, what, name, pattern, table, key=""):
        if not re.fullmatch(pattern, name) or name in RESERVED:
            self.fail(f"{what}: not a usable name", table, key)

    def check_options(self, what, entry, required, optional, table, key=""):
        """`entry` is a table with all `required` options, maybe some `optional` ones, and nothing else."""
        if not isinstance(entry, dict):
            self.fail(f"{what}: expected a table", table, key)
        for option, value in entry.items():
            place = (table, key) if key else (table, option)
            if option not in required and option not in optional:
                self.fail(f"{what}: unknown option '{option}'", *place)
            kind = KINDS.get(option, str)
            if not isinstance(value, kind) or (kind in (int, NUMBER) and isinstance(value, bool)):
                self.fail(f"{what}: '{option}' is not {KIND_WORDS[kind]}", *place)
        for option in required:
            if option not in entry:
                self.fail(f"{what}: '{option}' is missing", table, key)
        if "\n" in entry["doc"]:
            self.fail(f"{what}: 'doc' is not one line", table, key or "doc")


class Enum:
    def __init__(self, schema, name, entry):
        table, what = f"enum.{name}", f"enum '{name}'"
        schema.check_options(what, entry, ("doc", "values"), ("flags",), table)
        self.name, self.full, self.schema = name, f"{schema.namespace}::{name}", schema
        self.doc, self.values, self.flags = entry["doc"], entry["values"], entry.get("flags", False)
        for value, number in self.values.items():
            schema.check_name(f"{what}: value '{value}'", value, r"[A-Za-z]\w*", table, "values")
            if type(number) is not int or not 0 <= number < 1 << 32:
                schema.fail(f"{what}: '{value}' is not a number of 32 bits", table, "values")
        if len(set(self.values.values())) != len(self.values):
            schema.fail(f"{what}: two values with one number", table, "values")


class Struct:
    def __init__(self, model, schema, name, entry):
        table, what = f"struct.{name}", f"struct '{name}'"
        schema.check_options(what, entry, ("doc", "fields"), (), table)
        self.name, self.full, self.schema, self.doc = name, f"{schema.namespace}::{name}", schema, entry["doc"]
        self.fields = []  # name, C++ type, initial value, documentation, type in the schema
        for field, options in entry["fields"].items():
            place = (f"{table}.fields", field)
            schema.check_name(f"{what}: field '{field}'", field, r"[a-z]\w*", *place)
            schema.check_options(f"{what}: field '{field}'", options, ("type", "doc"), ("default",), *place)
            cpp = model.cpp_type(options["type"])
            if not cpp or options["type"] == self.full:
                schema.fail(f"{what}: unknown type '{options['type']}'", *place)
            default = ""
            if "default" in options:
                default = model.literal(options["type"], options["default"]) or schema.fail(
                    f"{what}: field '{field}': 'default' is no {options['type']}", *place)
            self.fields.append((field, cpp, default, options["doc"], options["type"]))


class Handle:
    """One of the entities that the platform gives to the agent."""

    def __init__(self, schema, name, entry):
        self.name, self.place, what = name, ("handles", name), f"handle '{name}'"
        schema.check_options(what, entry, ("reference", "mount", "doc"), ("const", "writers", "passed"), *self.place)
        self.mount, self.writers, self.passed = entry["mount"], entry.get("writers", "platform"), entry.get("passed", True)
        if not re.fullmatch(r"(/\w+)+", self.mount):
            schema.fail(f"{what}: 'mount' is no path", *self.place)
        if self.writers not in ("platform", "root", "group"):
            schema.fail(f"{what}: 'writers' is to be root or group", *self.place)
        self.attribute = {option: entry[option] for option in ("reference", "const", "doc") if option in entry}
        self.attribute["constructor"] = True
        self.type = entry["reference"]
        self.parameter = f"Kel::Ptr<{self.type}{' const' if entry.get('const') else ''}> const& {name}"


class Attribute:
    def __init__(self, entity, name, entry, place=None):
        self.entity, self.name, self.entry, model = entity, name, entry, entity.model
        self.place = place or (f"entity.{entity.name}.attributes", name)
        entity.schema.check_name(f"attribute '{name}'", name, r"[a-z]\w*", *self.place)
        if name == entity.key_name or name in entity.inherited_names:
            self.fail("declared twice")
        forms = [form for form in FORMS if form in entry] if isinstance(entry, dict) else []
        if len(forms) != 1:
            self.fail(f"needs exactly one of {', '.join(FORMS)}")
        self.form = forms[0]
        if not isinstance(entry[self.form], str):
            self.fail(f"'{self.form}' is not a string")
        options = {option: value for option, value in entry.items() if option != self.form}
        entity.schema.check_options(f"attribute '{name}'", options, ("doc",), FORMS[self.form], *self.place)
        self.declared, self.doc, self.unit = entry[self.form], entry["doc"], entry.get("unit", "")
        self.constructor = entry.get("constructor", False)
        self.holds_entity = self.form in ("entity", "entities", "reference", "references")
        self.key = self.key_declared = ""  # of a collection: the C++ type, and as the schema has it
        if self.holds_entity:
            self.target = model.entities.get(self.declared) or self.fail(f"unknown entity '{self.declared}'")
            self.cpp = self.declared + (" const" if entry.get("const") else "")
            self.handle = f"Kel::Ptr<{self.cpp}>"
        else:
            self.cpp = model.cpp_type(self.declared) or self.fail(f"unknown type '{self.declared}'")
        if self.form in ("values", "keys"):
            self.key_declared = entry.get("key", "") if self.form == "values" else self.declared
            self.key = model.key_type(self.key_declared) or self.fail(f"'{self.key_declared}' is no key type")
        elif self.form in ("entities", "references"):
            self.key_declared = self.target.key_declared
            self.key = self.target.key_type or self.fail(f"'{self.declared}' declares no 'key'")
        self.hook = "on" + capital(name)
        self.check_values()

    def fail(self, reason):
        self.entity.schema.fail(f"attribute '{self.name}': {reason}", *self.place)

    def check_values(self):
        if "max_bytes" in self.entry and self.declared not in ("string", "name"):
            self.fail("'max_bytes' is for strings")
        for option in ("min", "max"):
            if option in self.entry and (self.declared not in [*BITS, "seconds"] or self.literal(option) == "Kel::never"):
                self.fail(f"'{option}' is for numbers")
        if self.constructor and "default" in self.entry:
            self.fail("a constructor attribute has no 'default'")
        self.initial = "{" + (self.literal("default") if "default" in self.entry else "") + "}"

    def check_always(self):
        if self.entry.get("always") and (self.target.parameters or self.target is self.entity):
            self.fail(f"a '{self.declared}' cannot be made without being told more")

    def literal(self, option):
        return self.entity.model.literal(self.declared, self.entry[option]) or \
            self.fail(f"'{option}' is no {self.declared}")


class Entity:
    def __init__(self, model, schema, name, entry):
        self.model, self.schema, self.name, self.base = model, schema, name, None
        self.full, self.table = f"{schema.namespace}::{name}", f"entity.{name}"
        schema.check_options(f"entity '{name}'", entry, ("doc",), ("extends", "key", "handles", "attributes", "operations"),
                             self.table)
        self.doc, self.entry, self.operations = entry["doc"], entry, entry.get("operations", {})
        self.check_operations()
        if entry.get("handles", "all") not in ("all", "passed") or ("handles" in entry and not schema.handles):
            self.fail("'handles' is to be all or passed, of the handles that its schema lists", "handles")
        self.handles = [h for h in schema.handles if h.passed or entry["handles"] == "all"] if "handles" in entry else []
        self.key_name, _, self.key_declared = entry.get("key", "").partition(": ")
        self.key_type = model.key_type(self.key_declared) or ""
        if "key" in entry and "extends" in entry:
            self.fail("has the 'key' of its base", "key")
        if "key" in entry and not self.key_type:
            self.fail(f"unknown key type '{self.key_declared}' (expected \"name: type\")", "key")
        if "key" in entry:
            schema.check_name(f"entity '{name}': key '{self.key_name}'", self.key_name, r"[a-z]\w*", self.table, "key")

    def check_operations(self):
        for name, entry in self.operations.items():
            what, table = f"operation '{name}'", f"{self.table}.operations"
            self.schema.check_options(what, entry, ("doc", "returns"), (), table, name)
            if entry["returns"] not in RESULTS:
                self.schema.fail(f"{what}: 'returns' is to be one of {', '.join(RESULTS)}", table, name)

    def fail(self, reason, key=""):
        self.schema.fail(f"entity '{self.name}': {reason}", self.table, key)

    def find_base(self):
        if "extends" in self.entry:
            self.base = self.model.entities.get(self.entry["extends"]) or \
                self.fail(f"unknown base '{self.entry['extends']}'", "extends")

    def inherit(self):
        """Takes over the key of the first base; every base is known by now."""
        chain = [self]
        while chain[-1].base:
            if chain[-1].base in chain:
                self.fail("extends itself", "extends")
            chain.append(chain[-1].base)
        self.level, root = len(chain), chain[-1]
        self.key_name, self.key_type, self.key_declared = root.key_name, root.key_type, root.key_declared

    def complete(self):
        """Reads the attributes; every entity is known by now."""
        if hasattr(self, "attributes"):
            return
        if self.base:
            self.base.complete()
        self.inherited_names = self.base.names if self.base else set()
        self.attributes = [Attribute(self, handle.name, handle.attribute, handle.place) for handle in self.handles]
        self.attributes += [Attribute(self, *item) for item in self.entry.get("attributes", {}).items()]
        self.names = self.inherited_names | {a.name for a in self.attributes}
        own = [(a.handle if a.holds_entity else a.cpp, a.name) for a in self.attributes if a.constructor]
        key = [(self.key_type, self.key_name)] if self.key_name and not self.base else []
        self.inherited = self.base.parameters if self.base else []
        self.parameters = key + self.inherited + own
        # What xIs(key, ...) of a collection takes besides the key.
        self.arguments = self.parameters[1:] if self.key_name else self.parameters

    def needs(self):
        """The entities of the same file whose classes must stand before this one's."""
        targets = [self.base] + [a.target for a in self.attributes if a.holds_entity]
        return [target for target in targets if target and target is not self and target.schema is self.schema]


def ordered(items, needs, cycle):
    """`items`, each behind what it needs; calls `cycle` for one that needs itself."""
    done, open_ = [], []

    def visit(item):
        if item in done:
            return
        if item in open_:
            cycle(item)
        open_.append(item)
        for other in needs(item):
            visit(other)
        open_.remove(item)
        done.append(item)

    for item in items:
        visit(item)
    return done


class Model:
    def __init__(self, paths):
        self.entities, self.types, self.schemas = {}, {}, [Schema(path) for path in paths]
        for schema in self.schemas:
            schema.enums = [Enum(schema, *item) for item in schema.data.get("enum", {}).items()]
            self.add(self.types, schema.enums, "enum")
        for schema in self.schemas:
            schema.structs = []
            for item in schema.data.get("struct", {}).items():
                schema.structs.append(Struct(self, schema, *item))
                self.add(self.types, schema.structs[-1:], "struct")
        for schema in self.schemas:
            schema.handles = [Handle(schema, *item) for item in schema.data.get("handles", {}).items()]
        for schema in self.schemas:
            schema.entities = [Entity(self, schema, *item) for item in schema.data.get("entity", {}).items()]
            self.add(self.entities, schema.entities, "entity")
        for step in (Entity.find_base, Entity.inherit, Entity.complete):
            for entity in self.entities.values():
                step(entity)
        for schema in self.schemas:
            for attribute in (a for entity in schema.entities for a in entity.attributes):
                attribute.check_always()
            schema.entities = ordered(schema.entities, Entity.needs, lambda entity: entity.fail("needs itself through others"))
        ordered(self.schemas, self.needs, lambda schema: schema.fail("needs itself through other schemas"))

    def add(self, where, declarations, kind):
        for declaration in declarations:
            if declaration.full in self.types or declaration.full in self.entities:
                declaration.schema.fail(f"{kind} '{declaration.name}': declared twice", f"{kind}.{declaration.name}")
            where[declaration.full] = declaration

    def cpp_type(self, name):
        if name in SCALARS:
            return SCALARS[name]
        return name if name in VALUE_TYPES or name in self.types else None

    def key_type(self, name):
        """Structures, truth values and times have no text by which an entry could be named."""
        usable = name not in ("bool", "seconds") and not isinstance(self.types.get(name), Struct)
        return self.cpp_type(name) if usable else None

    def literal(self, declared, value):
        """`value` in C++, as one of the type `declared`; None when it is none."""
        if declared == "bool":
            return str(value).lower() if isinstance(value, bool) else None
        if declared in BITS:
            return str(value) if type(value) is int and 0 <= value < 1 << BITS[declared] else None
        if declared == "seconds":
            fits = type(value) in NUMBER and value >= 0
            return ("Kel::never" if value == float("inf") else str(value)) if fits else None
        if declared in ("string", "name"):
            return quoted(value) if isinstance(value, str) else None
        enum = self.types.get(declared)
        return f"{declared}::{value}" if isinstance(enum, Enum) and value in enum.values else None

    def used(self, schema):
        return re.findall(r"[\w:]+::\w+", schema.text)

    def needs(self, schema):
        """The other schemas whose headers the one of `schema` includes."""
        known = self.types | self.entities
        others = (known[name].schema for name in self.used(schema) if name in known)
        return [other for other in dict.fromkeys(others) if other is not schema]

    def includes(self, schema):
        headers = {f"platform/model/values/{VALUE_TYPES[name]}.h" for name in self.used(schema) if name in VALUE_TYPES}
        return sorted(headers | {f"platform/model/{other.name}.h" for other in self.needs(schema)})
