#!/usr/bin/env python3
"""Compares the manual pages with the programs and the code: verbs and options, environment variables, the times of the
timers. Needs the built programs: manual.py BUILD_DIR"""
import pathlib
import re
import subprocess
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(sys.argv[1]).resolve() / "bin"
problems = []


def compare(what, documented, actual):
    for name in sorted(actual - documented):
        problems.append(f"{what} does not mention {name}")
    for name in sorted(documented - actual):
        problems.append(f"{what} mentions {name}, which does not exist")


def page(name):
    return (ROOT / "man" / name).read_text()


def help_of(*command):
    return subprocess.run([BIN / command[0], *command[1:], "--help"], capture_output=True, text=True, check=True).stdout


def options(text):
    return set(re.findall(r"(--[a-z][a-z-]*)", text))


def documented_options(text):
    return {f"--{name}" for name in re.findall(r"^\.It (?:Fl \w , )?Fl Fl ([a-z-]+)", text, re.M)}


def check_options():
    compare("zerotouchd(8)", documented_options(page("zerotouchd.8")), options(help_of("zerotouchd")))
    compare("zerotouch-reporter(8)", documented_options(page("zerotouch-reporter.8")), options(help_of("zerotouch-reporter")))
    text = page("zerotouch.1")
    overview = help_of("zerotouch")
    verbs = set(re.findall(r"^  ([a-z]+) ", overview.split("Verbs:")[1].split("\n\n")[0], re.M))
    compare("zerotouch(1)", set(re.findall(r"^\.It Cm (\w+)", text, re.M)), verbs)
    actual = options(overview).union(*(options(help_of("zerotouch", verb)) for verb in verbs))
    compare("zerotouch(1)", documented_options(text), actual)


def check_variables():
    text = page("zerotouch-environment.7")
    code = ""
    for folder in ("zerotouch", "programs/zerotouchd", "platform/linux", "platform/kel"):
        code += "".join(path.read_text() for path in sorted((ROOT / folder).rglob("*.[ch]*")))
    actual = set(re.findall(r'getenv\("([A-Z_0-9]+)"', code)) | set(re.findall(r'setenv\("([A-Z_0-9]+)"', code))
    actual |= set(re.findall(r'"([A-Z_]+)="', code)) | {"ZEROTOUCH_REAL_DHCLIENT"}
    timers = re.findall(r'settings\{\s*"\w+", ([\d.]+), ([\d.]+),\s*"(\w+)",\s*"(\w+)"\}', code)
    for interval, timeout, *variables in timers:
        actual |= set(variables)
        entry = re.search(rf"^\.It Ev {variables[0]} , Ev {variables[1]}\n(.*)", text, re.M)
        if float(timeout) and entry and not entry[1].endswith(f": {interval} / {timeout}."):
            problems.append(f"zerotouch-environment(7): {variables[0]} has the defaults {interval} / {timeout}")
    actual -= {"JOURNAL_STREAM"}  # systemd's, not ours
    compare("zerotouch-environment(7)", set(re.findall(r"\bEv ([A-Z_0-9]+)", text)), actual)
    if len(timers) != 10:
        problems.append(f"{len(timers)} timers found, not 10")


def check_handles():
    """The entities that a platform mounts, in their order."""
    handles = list(tomllib.loads((ROOT / "platform/model/schema/agent.toml").read_text())["handles"])
    if re.findall(r"^\| `(\w+)` \|", (ROOT / "docs/porting.md").read_text(), re.M) != handles:
        problems.append("docs/porting.md: the entities are not the handles of agent.toml, in their order")


def check_format():
    for path in sorted((ROOT / "man").glob("*.[1-8]")):
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", path], capture_output=True, text=True).stdout
        problems.extend(line.removeprefix("mandoc: ") for line in lint.splitlines())


check_options()
check_variables()
check_handles()
check_format()
for problem in problems:
    print(f"manual: {problem}")
if not problems:
    print("manual: ok")
sys.exit(1 if problems else 0)
