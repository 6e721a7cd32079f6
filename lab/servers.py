"""What the configuration files of the servers are made from: the files of scenarios/ and templates/."""
import json
import pathlib

from lab.namespace import run

HERE = pathlib.Path(__file__).resolve().parent
SCENARIOS = HERE / "scenarios"
TEMPLATES = HERE / "templates"


def net4(number):
    """The /24 behind a port, without its last byte."""
    return f"10.{number >> 8}.{number & 0xff}"


def net6(number):
    """The /64 behind a port, without what follows its first colon."""
    return f"2001:db8:{number:x}:"


def of_port(number, boot_file):
    """The values of the placeholders for a port; "{server}" in the name of a boot file is the server's address there."""
    boot_file = boot_file.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
    return {"{device}": f"p{number}", "{net4}": net4(number), "{net6}": net6(number),
            "{boot_file4}": boot_file.replace("{server}", f"{net4(number)}.1"),
            "{boot_file6}": boot_file.replace("{server}", f"[{net6(number)}:1]")}


def fill_in(text, values):
    for place, value in values.items():
        text = text.replace(place, str(value))
    return text


def expand(text, ports, boot_file=""):
    """Fills in the placeholders. A line with a placeholder of a port is repeated for each port."""
    result = []
    for line in text.splitlines():
        for_each = dict.fromkeys(fill_in(line, of_port(number, boot_file)) for number in ports)
        result += for_each if any(place in line for place in of_port(0, "")) else [line]
    return "\n".join(result) + "\n"


def make_certificates(folder):
    """Makes server.key, and the certificates valid.crt and expired.crt for it."""
    key, request = folder / "server.key", folder / "server.csr"
    run("openssl", "req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
        "-subj", "/CN=boot.example", "-keyout", key, "-out", request)
    for name, days in (("valid", 30), ("expired", -1)):
        run("openssl", "x509", "-req", "-in", request, "-signkey", key, "-days", days, "-out", folder / f"{name}.crt")


def requests(log):
    """The requests that nginx has answered and logged."""
    return [json.loads(line) for line in log.read_text().splitlines()] if log.exists() else []
