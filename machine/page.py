"""The last result of each scene, as a table in docs/machine.md."""
import re
import time

from lab.host import ROOT

PAGE = ROOT / "docs" / "machine.md"
HEAD = "| Scene | What happens | Result | Seconds | Date | Version |\n|---|---|---|---|---|---|\n"


def row(scene, result="not run", seconds="", date="", version=""):
    return f"| `{scene.name}` | {scene.what} | {result} | {seconds} | {date} | {version} |\n"


def table(text):
    """The page in three parts: what stands before the rows, the rows by the names of their scenes, and what follows."""
    start = text.index(HEAD) + len(HEAD)
    rows = re.match(r"(?:\|.*\n)*", text[start:])[0]
    return text[:start], {line.split("`")[1]: line for line in rows.splitlines(True)}, text[start + len(rows):]


def write(outcome, scenes, version):
    """Puts a result in place of the one that the page has. `scenes`, by their names, are all that there are."""
    before, rows, after = table(PAGE.read_text())
    result = "**failed**" if outcome.failure else "passed"
    rows[outcome.name] = row(scenes[outcome.name], result, f"{outcome.seconds:.0f}", time.strftime("%F"), version)
    PAGE.write_text(before + "".join(rows.get(scene.name, row(scene)) for scene in scenes.values()) + after)
