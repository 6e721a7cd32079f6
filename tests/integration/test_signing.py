"""Signed boot files, and HTTPS servers that are verified, with real servers; and docs/signing.md as it stands there."""
import json
import os
import re
import subprocess
import textwrap

import pytest

from conftest import ended_well
from lab.host import BUILD, ROOT
from lab.polling import wait_for

DOCUMENT = (ROOT / "docs/signing.md").read_text()
BLOCKS = [textwrap.dedent(block).strip() for block in re.findall(r"(?:^    .*\n)+", DOCUMENT, re.M)]
COMMANDS = "\n".join(block for block in BLOCKS if block.startswith("# on your machine"))
SECTION = next(block for block in BLOCKS if block.startswith("# on the switch"))
DOWNLOADS = "ZTP_CONFIG_DOWNLOAD_FAIL", "BOOT_FILE_NOT_URL"
YEAR = 365 * 86_400


def run(folder, commands):
    environment = os.environ | {"PATH": f"{BUILD}/bin:{os.environ['PATH']}"}
    done = subprocess.run(["bash", "-ec", commands], cwd=folder, env=environment, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def signing_lab(switch_lab):
    run(switch_lab.www, COMMANDS + "\nsed s/leaf-1/leaf-2/ boot.sh.cms >altered; echo hostname x >unsigned\n"
        "zerotouch sign --certificate signer.pem --key signer.key --serial SN9 boot.sh -o other\n"
        "printf 'hostname signed\\n' >plain; zerotouch sign --certificate signer.pem --key signer.key plain -o config.cms")
    (switch_lab.host.folder / "etc" / "zerotouch").mkdir(parents=True, exist_ok=True)
    yield switch_lab


@pytest.fixture
def lab(signing_lab):
    yield from ended_well(signing_lab)


def trust(lab, text):
    """Puts a section into platform.toml, in place of the one that was put there last."""
    for path, real in (("/etc/zerotouch/signers.pem", lab.www / "authority.pem"), ("{lab}", lab.folder)):
        text = text.replace(path, str(real))
    lab.host.config.write_text(lab.host.config_text + text + "\n")


def failures(lab, boot_file, *names):
    """What is said of the first attempt with a boot file that fails."""
    before = len(lab.messages(*names))
    lab.serve("dhcpv4", boot_file)
    url = boot_file.replace("{server}", "10.0.1.1")
    said = wait_for(lambda: [text for text in lab.messages(*names)[before:] if url in text], boot_file)
    return said[0].partition(url)[2]


def test_only_what_is_signed_for_this_switch_is_run(lab):
    trust(lab, SECTION)
    said = run(lab.www, f"{BUILD}/bin/zerotouchd --check --config {lab.host.config}")
    assert f"{lab.www}/authority.pem:1: CN=Boot file authority, expires " in said
    lab.begin("dhcpv4", "http://{server}/unsigned")
    for boot_file, why in {"http://{server}/unsigned": "the file is not signed",
                           "tftp://{server}/altered": "the file was altered after it was signed",
                           "ftp://{server}/other": "the file is for other switches: SN9",
                           "http://{server}/config.cms": "the file does not say for which switches it is"}.items():
        assert failures(lab, boot_file, *DOWNLOADS) == ". Error: " + why
    assert f"{why}, http://10.0.1.1/config.cms\n" in lab.host.cli("status")
    assert lab.flash() == {}
    lab.serve("dhcpv4", "http://{server}/boot.sh.cms")
    lab.wait_reload()
    assert lab.flash()["startup-config"] == "hostname leaf-1\n"
    assert "Signed by:       CN=Boot file signer, SHA-256 " in lab.host.cli("status")
    wait_for(lambda: json.loads(lab.host.cli("history", "--json"))[-1].get("signer") == "CN=Boot file signer", "the history")
    assert lab.messages("BOOT_FILE_SIGNED")[0].startswith(
        "The boot file from http://10.0.1.1/boot.sh.cms is signed by CN=Boot file signer (SHA-256 ")
    assert lab.switch.run("sh", "-c", "ls /tmp/zt-verified 2>&1 || true").startswith("ls: cannot access")


def test_older_files_than_the_newest_are_refused(lab):
    trust(lab, '[authenticity]\nsigners = "/etc/zerotouch/signers.pem"\nnewest = true')
    lab.begin("dhcpv4", "http://{server}/config.cms")
    lab.wait_reload()
    date = lab.flash()["zerotouch-config"]
    assert re.fullmatch(r"DISABLE=NextReload\nNEWEST_BOOT_FILE=20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ\n", date)
    assert lab.flash()["startup-config"] == "hostname signed\n"
    kept = {"zerotouch-config": "NEWEST_BOOT_FILE=2090-01-01T00:00:00Z\n"}
    lab.begin("dhcpv4", "http://{server}/config.cms", flash=kept)
    said = wait_for(lambda: lab.messages("ZTP_CONFIG_DOWNLOAD_FAIL"), "the refusal")[0]
    assert said.endswith("Z, before the newest that was taken, of 2090-01-01T00:00:00Z")
    assert lab.flash()["zerotouch-config"] == kept["zerotouch-config"] and "startup-config" not in lab.flash()


@pytest.mark.parametrize("year, wrong", [(1970, None), (2100, "the certificate of its signer's authority")])
def test_dates_count_once_the_clock_can_be_right(lab, year, wrong):
    trust(lab, '[authenticity]\nsigners = "/etc/zerotouch/signers.pem"\nhttps_ca = "{lab}/expired.crt"')
    before = lab.host.environment
    lab.host.environment = before | lab.clock_environment()
    lab.shift_clock((year - 2026) * YEAR)
    try:
        lab.begin("dhcpv4", "https://boot.example:8443/config.cms" if wrong is None else "http://{server}/config.cms")
        if wrong is None:
            lab.wait_reload()
            assert len(lab.messages("DATES_NOT_CHECKED")) == 2 and len(lab.messages("HTTPS_SERVER_VERIFIED")) == 1
        else:
            said = wait_for(lambda: lab.messages("ZTP_CONFIG_DOWNLOAD_FAIL"), "the refusal")[0]
            assert wrong in said and "has expired" in said and not lab.messages("DATES_NOT_CHECKED")
    finally:
        lab.host.stop()
        lab.host.environment = before


def test_servers_are_verified_and_schemes_refused(lab):
    https = '[authenticity]\nschemes = ["https"]\nhttps_ca = "{lab}/valid.crt"\n'
    trust(lab, https)
    lab.begin("dhcpv4", "http://{server}/config")
    for boot_file, why in {
        "http://{server}/config": " cannot be downloaded: platform.toml allows no scheme but https",
        "https://boot.example:8443/config": ". Error: SSL certificate problem: ",
        "https://{server}/config": ". Error: SSL: certificate subject name 'boot.example' does not match target host name",
        "https://boot.example:9443/config": ". Error: The requested URL returned error: 400",
    }.items():
        assert failures(lab, boot_file, *DOWNLOADS).startswith(why)
    assert "startup-config" not in lab.flash()
    lab.serve("dhcpv4", "https://boot.example/config")
    lab.wait_reload()
    assert f"Server:          verified against {lab.folder}/valid.crt\n" in lab.host.cli("status")
    trust(lab, https + 'https_certificate = "{lab}/valid.crt"\nhttps_key = "{lab}/server.key"')
    lab.begin("dhcpv4", "https://boot.example:9443/config")
    lab.wait_reload()
    assert lab.flash()["startup-config"] == "hostname provisioned\n"
