"""The generator of the state model: its output to the letter, and what it says about schemas that are wrong.

After a wanted change of the output: test_generate.py --accept
"""
import pathlib
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
GENERATOR = HERE.parents[2] / "platform" / "model" / "generate.py"
SCHEMAS = sorted((HERE / "schema").glob("*.toml"))
EXPECTED = ["fruit.cc", "fruit.h"]


def generate(*arguments):
    return subprocess.run([sys.executable, GENERATOR, *arguments], capture_output=True, text=True, check=False)


def generate_all(folder):
    result = generate("cpp", folder, *SCHEMAS)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_output_is_as_expected(tmp_path):
    generate_all(tmp_path)
    assert sorted(path.name for path in tmp_path.iterdir()) == EXPECTED
    for name in EXPECTED:
        assert (tmp_path / name).read_text() == (HERE / "expected" / name).read_text(), name


def test_output_that_is_the_same_is_not_written_again(tmp_path):
    generate_all(tmp_path)
    before = {path: path.stat().st_mtime_ns for path in tmp_path.iterdir()}
    generate_all(tmp_path)
    assert {path: path.stat().st_mtime_ns for path in before} == before


HEAD = 'namespace = "N"\n'
ENTITY = HEAD + '[entity.E]\ndoc = "E."\n[entity.E.attributes]\nfine = { type = "u8", doc = "f" }\n'
ENUM = HEAD + '[enum.C]\ndoc = "C."\nvalues = { red = 1 }\n'
STRUCT = HEAD + '[struct.S]\ndoc = "S."\n[struct.S.fields]\n'

# A schema, the line that is named, the reason.
BAD = {
    "no TOML": (HEAD + "x = = 1\n", 2, "Invalid value"),
    "unknown entry": (HEAD + "color = 1\n", 2, "unknown entry 'color'"),
    "unknown base": (HEAD + '[entity.E]\ndoc = "E."\nextends = "N::F"\n', 4, "entity 'E': unknown base 'N::F'"),
    "base of its base": (ENTITY + '[entity.F]\ndoc = "F."\nextends = "N::G"\n[entity.G]\ndoc = "G."\nextends = "N::F"\n', 8,
                         "entity 'F': extends itself"),
    "no inline table": (ENTITY + 'a = "u8"\n', 6,
                        "attribute 'a': needs exactly one of type, values, keys, entity, entities, reference, references"),
    "unknown option": (ENTITY + 'a = { type = "u8", doc = "a", maximum = 3 }\n', 6,
                       "attribute 'a': unknown option 'maximum'"),
    "key of truth": (ENTITY + 'a = { keys = "bool", doc = "a" }\n', 6, "attribute 'a': 'bool' is no key type"),
    "held without a key": (ENTITY + 'a = { entities = "N::E", doc = "a" }\n', 6, "attribute 'a': 'N::E' declares no 'key'"),
    "reserved name": (ENTITY + 'class = { type = "u8", doc = "a" }\n', 6, "attribute 'class': not a usable name"),
    "default too large": (ENTITY + 'a = { type = "u8", default = 256, doc = "a" }\n', 6, "attribute 'a': 'default' is no u8"),
    "limit out of range": (ENTITY + 'a = { type = "u8", max = 300, doc = "a" }\n', 6, "attribute 'a': 'max' is no u8"),
    "attribute of the base": (ENTITY + '[entity.F]\ndoc = "F."\nextends = "N::E"\n[entity.F.attributes]\n'
                              'fine = { type = "u8", doc = "f" }\n', 10, "attribute 'fine': declared twice"),
    "handle that is mounted nowhere": (ENTITY + '[handles]\na = { reference = "N::E", mount = "here", doc = "a" }\n', 7,
                                       "handle 'a': 'mount' is no path"),
    "handles that nobody lists": (HEAD + '[entity.E]\ndoc = "E."\nhandles = "all"\n', 4,
                                  "entity 'E': 'handles' is to be all or passed, of the handles that its schema lists"),
    "unknown enumerator": (ENUM + '[entity.E]\ndoc = "E."\n[entity.E.attributes]\n'
                           'a = { type = "N::C", default = "blue", doc = "a" }\n', 8, "attribute 'a': 'default' is no N::C"),
    "declared twice": (ENUM + '[struct.C]\ndoc = "C."\n[struct.C.fields]\n', 5, "struct 'C': declared twice"),
    "entities in a circle": (ENTITY + 'a = { reference = "N::F", doc = "a" }\n[entity.F]\ndoc = "F."\n[entity.F.attributes]\n'
                             'b = { reference = "N::E", doc = "b" }\n', 2, "entity 'E': needs itself through others"),
}


@pytest.mark.parametrize("schema, line, reason", BAD.values(), ids=BAD)
def test_mistakes_are_told_with_file_and_line(tmp_path, schema, line, reason):
    path = tmp_path / "bad.toml"
    path.write_text(schema)
    result = generate("cpp", tmp_path, path)
    assert (result.returncode, result.stderr.strip()) == (1, f"{path}:{line}: {reason}")
    assert [p.name for p in tmp_path.iterdir()] == ["bad.toml"]  # nothing is written


def test_schemas_that_need_each_other_are_refused(tmp_path):
    for name, other in (("A", "B"), ("B", "A")):
        (tmp_path / f"{name}.toml").write_text(f'namespace = "{name}"\n[entity.X]\ndoc = "X."\n[entity.Y]\ndoc = "Y."\n'
                                               f'[entity.Y.attributes]\nx = {{ reference = "{other}::X", doc = "x" }}\n')
    result = generate("cpp", tmp_path, tmp_path / "A.toml", tmp_path / "B.toml")
    assert result.stderr.strip() == f"{tmp_path / 'A.toml'}:1: needs itself through other schemas"


if __name__ == "__main__" and sys.argv[1:] == ["--accept"]:
    generate_all(HERE / "expected")
