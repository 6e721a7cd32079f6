"""A host that only stands by, for the figures."""
import os
import pathlib
import sys


def disabled_host(build, folder):
    """Started, of that build, with its files in the folder."""
    os.environ["ZEROTOUCH_BUILD"] = str(build)
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))
    from lab.host import Host

    host = Host(pathlib.Path(folder)).prepare()
    (host.flash / "startup-config").write_text("")
    return host.start()
