"""The verification of a large signed boot file, against that of openssl."""
import contextlib
import os
import pathlib
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
        peak = subprocess.Popen([str(BUILD / "bin" / "zerotouch"), "verify", "signed", "--signers", "ca.pem"],
                                stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(peak.pid, 0)
        peak.returncode = os.waitstatus_to_exitcode(status)
        assert peak.returncode == 0
        record("verifying 100 MB: peak resident memory", "KiB", [usage.ru_maxrss])
