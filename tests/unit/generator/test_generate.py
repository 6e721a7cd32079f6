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


# What is said of a schema, behind the line that it is said of, and the schema.
MISTAKES = (HERE / "expected" / "mistakes.txt").read_text().split("$ ")[1:]


@pytest.mark.parametrize("said, schema", [case.split("\n", 1) for case in MISTAKES])
def test_mistakes_are_told_with_file_and_line(tmp_path, said, schema):
    path = tmp_path / "bad.toml"
    path.write_text(schema)
    result = generate("cpp", tmp_path, path)
    assert (result.returncode, result.stderr.strip()) == (1, f"{path}:{said}")
    assert [p.name for p in tmp_path.iterdir()] == ["bad.toml"]  # nothing is written


def test_schemas_that_need_each_other_are_refused(tmp_path):
    for name, other in (("A", "B"), ("B", "A")):
        (tmp_path / f"{name}.toml").write_text(f'namespace = "{name}"\n[entity.X]\ndoc = "X."\n[entity.Y]\ndoc = "Y."\n'
                                               f'[entity.Y.attributes]\nx = {{ reference = "{other}::X", doc = "x" }}\n')
    result = generate("cpp", tmp_path, tmp_path / "A.toml", tmp_path / "B.toml")
    assert result.stderr.strip() == f"{tmp_path / 'A.toml'}:1: needs itself through other schemas"


if __name__ == "__main__" and sys.argv[1:] == ["--accept"]:
    generate_all(HERE / "expected")
