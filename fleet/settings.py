"""What platform.toml says on the switches of a fleet."""
import pathlib
import re

from lab.host import ROOT

PACKAGED = ROOT / "share" / "platform.toml.in"


def recommended(only=""):
    """The keys that the packaged platform.toml recommends where many switches start together, of one section or of all."""
    result, section, wanted = [], "", False
    for line in PACKAGED.read_text().splitlines():
        if found := re.fullmatch(r"\[(\w+)\]", line):
            section = found[1]
        elif re.fullmatch(r"#\w+ = .*", line):
            if wanted and only in ("", section):
                result += [f"[{section}]"] * (f"[{section}]" not in result) + [line.removeprefix("#")]
            wanted = False
        else:
            wanted = line.endswith("Recommended:")
    return "\n".join(result) + "\n"


def chosen(path=None, pacing=False, everything=False):
    """The lines of a file, if one is named, and what is recommended, if that is wanted: for the pauses only, or everything."""
    text = pathlib.Path(path).read_text() if path else ""
    return text + (recommended() if everything else recommended("pacing") if pacing else "")
