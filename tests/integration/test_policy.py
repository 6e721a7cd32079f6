"""What platform.toml may ask for beyond the usual behaviour of downloads, in whole runs of the switch in the lab."""
import pytest

from conftest import ended_well
from lab.bad_server import BODY
from lab.polling import wait_for
from lab.runs import BAD

GOOD = BODY.decode()
CONFIG = "hostname provisioned\n"
RESUME = "resume = true"
FTP = "ftp://{server}:2121/broken"
MOVED = "https://{server}/moved"


@pytest.fixture
def lab(switch_lab):
    yield from ended_well(switch_lab)
    switch_lab.host.config.write_text(switch_lab.host.config_text)


def begin(lab, keys, boot_file):
    lab.host.config.write_text(lab.host.config_text + "[download]\n" + keys)
    # Whatever ends a download, it is not its timer.
    lab.begin("dhcpv4", boot_file, CONFIGFETCHRETRY=0.5)


@pytest.mark.parametrize("keys, boot_file, failures, installed", [
    (RESUME, BAD + "broken/same", ["Transferred a partial file"], GOOD),
    (RESUME, BAD + "broken/ignored", ["Transferred a partial file"], GOOD),
    (RESUME, BAD + "broken/changed", ["Transferred a partial file"], GOOD.replace("bad", "new")),
    (RESUME, BAD + "broken/weak", ["Transferred a partial file"], GOOD),
    (RESUME, BAD + "broken/grown",
     ["Transferred a partial file", "the server does not go on where the download broke off"], GOOD),
    (RESUME, FTP, ["Transferred a partial file"], GOOD),
    ('redirects = "follow"', BAD + "redirect", [], CONFIG),
    ('redirects = "follow"', BAD + "loop", ["Number of redirects hit maximum amount"], None),
    ('redirects = "follow"', MOVED, ["Unsupported protocol"], None),
    ('redirects = "keep"', BAD + "redirect", [], GOOD),
    ('redirects = "refuse"', BAD + "turns/redirect/unsized",
     ["the server redirects to http://10.0.1.1/config, and redirects are refused"], GOOD),
    ("require_length = true", BAD + "turns/unsized/redirect",
     ["the server has said neither how long the file is nor where it ends"], GOOD),
    ("stall_limit = 0.5", BAD + "turns/silent/redirect", ["nothing has moved for 0.5 seconds"], GOOD),
])
def test_downloads_end_as_platform_toml_says(lab, keys, boot_file, failures, installed):
    begin(lab, keys, boot_file)
    said = wait_for(lambda: lab.messages("ZTP_CONFIG_DOWNLOAD_FAIL")[:len(failures)], "a failure") if failures else []
    assert [text.partition(". Error: ")[2] for text in said] == failures
    if installed:
        lab.wait_reload()
        assert lab.flash()["startup-config"] == installed


def test_a_busy_server_is_left_alone_for_as_long_as_it_asks(lab):
    begin(lab, "[pacing]\nretry_after = true", BAD + "turns/busy/redirect")
    lab.host.wait_state("stateRetryFetchConfig")
    assert "3 s before the next download: the server has asked for a pause of 3 s" in lab.host.cli("status")
    lab.wait_reload()
