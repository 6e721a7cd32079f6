"""The verification of a large signed boot file, against that of openssl."""
import contextlib
import os
import pathlib
import re
import statistics
import subprocess
import tempfile
import time

from lab.host import BUILD, ROOT
from lab.namespace import run
from measuring import record

SIZE = 100_000_000


def seconds(*argv):
    start = time.monotonic()
    run(*argv)
    return time.monotonic() - start


def peak_kib(*arguments):
    """As long as the program runs: what is told of it afterwards would count the memory of this one too."""
    process = subprocess.Popen([BUILD / "bin" / "zerotouch", *arguments], stdout=subprocess.DEVNULL)
    peak = 0
    while process.poll() is None:
        found = re.search(r"VmHWM:\s+(\d+)", pathlib.Path(f"/proc/{process.pid}/status").read_text())
        peak = int(found[1]) if found else peak
    assert process.returncode == 0 and peak > 0
    return peak


def measure(rounds=9):
    """Both in turns, on the same file, so that other load on the machine meets both alike."""
    with tempfile.TemporaryDirectory(prefix="ztbench-") as name, contextlib.chdir(name):
        for arguments in (["ca", "ca"], ["signer", "signer", "ca"]):
            run(ROOT / "lab" / "authority", ".", *arguments)
        pathlib.Path("large").write_bytes(os.urandom(SIZE))
        run("openssl", "cms", "-sign", "-binary", "-nodetach", "-outform", "DER", "-signer", "signer.pem", "-inkey",
            "signer.key", "-in", "large", "-out", "signed")
        theirs, ours = [], []
        for _ in range(rounds):
            theirs.append(seconds("openssl", "cms", "-verify", "-binary", "-purpose", "any", "-inform", "DER", "-in", "signed",
                                  "-CAfile", "ca.pem", "-out", "/dev/null"))
            ours.append(seconds(BUILD / "bin" / "zerotouch", "verify", "signed", "--signers", "ca.pem"))
        record("verifying 100 MB: speed against openssl cms -verify", "x",
               [statistics.median(theirs) / statistics.median(ours)], "at least 0.8")
        record("verifying 100 MB: peak resident memory", "KiB", [peak_kib("verify", "signed", "--signers", "ca.pem")],
               "at most 20480")
