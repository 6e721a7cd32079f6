"""A server of Debian that runs for a case, with its configuration from docs/server-side.

A file there is whole, except for its places in braces, such as {device}. What one case needs and another does not
stands in parts of it, between comments of these forms; a part without a wanted name is left out:

    # == option 67, relay
    # == end
"""
import functools
import pathlib
import re
import shlex
import subprocess

from lab.host import ROOT
from lab.polling import wait_for
from lab.servers import fill_in

TEMPLATES = ROOT / "docs" / "server-side"
UNPACKED = pathlib.Path("/var/cache/zerotouch-interop")  # packages that cannot be installed beside others
MARK = re.compile(r"\s*(?:#|//)\s*== (.+)")
# Gives a program its own folders in place of those of the system.
PRIVATE = 'folder=$1; shift; while [ "$1" != -- ]; do mkdir -p "$1" "$folder$1"; mount --bind "$folder$1" "$1"; ' \
          'shift; done; shift; exec "$@"'


def choose(text, parts):
    """The text without its marks, and without the parts that have none of the wanted names."""
    lines, keep = [], True
    for line in text.splitlines():
        mark = MARK.fullmatch(line)
        if mark:
            keep = mark[1] == "end" or not parts.isdisjoint(mark[1].split(", "))
        elif keep:
            lines.append(line)
    return "\n".join(lines) + "\n"


def parts_of(template):
    """All names of parts in a template."""
    marks = map(MARK.fullmatch, (TEMPLATES / template).read_text().splitlines()) if template else []
    return {name for mark in marks if mark for name in mark[1].split(", ")} - {"end"}


class Server:
    """One that runs. Each kind is a class, and says:"""
    name = ""       # what the table calls it
    package = ""    # the package that it is of
    template = ""   # its file in docs/server-side
    ready = None    # what its log says once it serves
    port = None     # or the port, such as "tcp 80", that it listens on once it does
    private = ()    # folders of the system that it gets of its own, and empty
    release = None  # a pattern, with {address}, of the line of its log that tells of a released lease
    told = {}       # what its template tells of an identity, as in outcome.NOTHING

    def __init__(self, *parts, place="first", told=None, **values):
        """`values` fill further places of the template; `told` is what this configuration tells besides, or instead."""
        self.parts, self.place, self.values = set(parts), place, values
        unknown = self.parts - parts_of(self.template)
        assert not unknown, f"{self.template} has no parts {unknown}"
        self.told = type(self).told | (told or {})

    def configuration(self):
        given = {f"{{{name}}}": value for name, value in self.values.items()}
        places = self.places | given | {"{folder}": self.folder}
        return fill_in(choose((TEMPLATES / self.template).read_text(), self.parts), places)

    def command(self, config):
        """The words of the command; here, those of a template that is a command and nothing else."""
        return shlex.split(config.read_text(), comments=True)

    def start(self, site, number=0):
        """`number` tells it from others of the case."""
        self.site, self.process = site, f"{number}-{re.sub('[^a-z0-9]+', '-', self.name)}"
        self.namespace, self.places = site.place(self.place)
        self.folder = site.folder / "case" / self.process
        self.folder.mkdir(parents=True)
        self.prepare()
        config = self.folder / (self.template or "none")
        if self.template:
            config.write_text(self.configuration())
        argv = [*self.namespace.enter(), "sh", "-ec", PRIVATE, "sh", self.folder, *self.private, "--",
                *self.command(config)]
        site.processes.start(self.process, argv, self.environment(), ready=self.is_ready)

    def prepare(self):
        """Makes what it needs in its folder."""

    def environment(self):
        return {}

    def is_ready(self):
        if self.port:
            protocol, number = self.port.split()
            return self.namespace.run("ss", "-Hln", f"--{protocol}", f"sport = :{number}") != ""
        return re.search(self.ready, self.log())

    def log(self):
        return self.site.processes.log(self.process).read_text(errors="replace")

    def stop(self):
        self.site.processes.stop(self.process)

    @classmethod
    @functools.cache
    def version(cls):
        if not cls.package:
            return "-"
        if (UNPACKED / cls.package).exists():
            policy = subprocess.run(["apt-cache", "policy", cls.package], capture_output=True, text=True).stdout
            return re.search(r"Candidate: (\S+)", policy)[1]
        return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", cls.package], capture_output=True,
                              text=True).stdout or "not installed"

    def released(self, address):
        """Whether its log says that the lease of that address was given back."""
        return re.search(self.release.format(address=re.escape(address)), self.log()) is not None

    def wait_released(self, address):
        wait_for(lambda: self.released(address), f"{self.name} to tell of the release of {address}", 20)
