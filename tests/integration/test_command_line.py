"""The command line as a person and a program meet it, against a host whose run fails."""
import html.parser
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile

import pytest

from lab.host import BUILD, ROOT, Host, timers
from lab.polling import wait_for

PROGRAM = BUILD / "bin" / "zerotouch"
COMPLETION = ROOT / "share" / "completion" / "zerotouch"
HOSTILE = "<script>alert(1)</script>&\"'\u202e"
PORT = {"deviceName": "et1", "forwardingModel": "routed", "linkStatus": "up", "operStatus": "up"}


@pytest.fixture(scope="module")
def host():
    """One whose download cannot work: it fails, retries, and takes back what it applied."""
    folder = tempfile.mkdtemp(prefix="zerotouch-test.")
    os.chmod(folder, 0o755)  # others may look at the socket
    host = Host(type(ROOT)(folder)).prepare()
    client = host.folder / "client"
    client.write_text("#!/bin/sh\nexec sleep 1000\n")
    client.chmod(0o755)
    host.environment |= timers(0.2, DHCLIENTQUERY=600) | {"ZEROTOUCH_DHCLIENT": str(client)}
    host.start("--open-tree", initial_values={
        "/interface/status/ethPhy": {"intfStatus": {"Ethernet1": PORT}},
        "/ip6/status": {"intf": {"Ethernet1": {"addr": ["2001:db8::1/64"]}}},
        "/entityMib/status": {"root": {"initStatus": "initialized", "modelName": HOSTILE}}})
    host.wait_state("stateDhcpQuery")
    host.cli("set", "/zerotouch/dhcpStatus/intfDhcp6Status/et1", json.dumps(
        {"reason": "BOUND6", "domainName": HOSTILE, "bootFileName": "http://127.0.0.1:9/" + HOSTILE}))
    wait_for(lambda: any(change["undone"] for change in json.loads(host.cli("report", "--json"))["changes"]), "the undoing")
    host.wait_state("stateDhcpQuery")
    yield host
    assert host.stop() in (0, None), host.output()
    shutil.rmtree(folder)


def shell(host, command, **environment):
    """What bash makes of it."""
    environment |= {"PATH": f"{BUILD}/bin:{os.environ['PATH']}", "STATEBASESOCKNAME": str(host.socket), "TERM": "xterm"}
    return subprocess.run(["/bin/bash", "-o", "pipefail", "-c", command], capture_output=True, text=True, timeout=60,
                          env=environment)


def on_terminal(host, arguments, columns=80, **environment):
    """What it draws there, and its exit code."""
    drawn = shell(host, f"script -qec 'stty columns {columns}; exec zerotouch {arguments}' /dev/null", **environment)
    return drawn.stdout.replace("\r\n", "\n"), drawn.returncode


def keys(value, path=""):
    """The paths of all that is no object and no list."""
    if isinstance(value, dict):
        return {found for name, member in value.items() for found in keys(member, f"{path}.{name}" if path else name)}
    if isinstance(value, list):
        return {found for member in value for found in keys(member, path + "[]")}
    return {path}


def documented():
    """The keys that the tables of docs/json.md name, by verb."""
    sections = re.split(r"^## (\w+).*$", (ROOT / "docs" / "json.md").read_text(), flags=re.M)[1:]
    return {verb: {key for line in text.splitlines() if line.startswith("| `") for key in re.findall("`(.*?)`", line.split("|")[1])}
            for verb, text in zip(sections[::2], sections[1::2])}


def test_what_programs_get_is_what_is_documented(host):
    shapes = documented()
    for verb in ("status", "ports", "events", "explain", "attempts"):
        assert keys(json.loads(host.cli(verb, "--json"))) == shapes[verb], verb
    port = json.loads(host.cli("ports", "et1", "--json"))
    assert set(port) == {re.match(r"\w+", key.removeprefix("[]."))[0] for key in shapes["port"] | shapes["ports"]}
    assert keys(port["reports"]) == {key.removeprefix("ports") for key in shapes["report"] if key.startswith("ports[]")}
    lists = [json.loads(host.cli("list", path, "--json")) for path in ("/zerotouch/config", "/log/events")]
    assert keys(lists) == {f"[]{key}" for key in shapes["list"]}  # a directory has fewer of them, a collection one more
    report = json.loads(host.cli("report", "--json"))
    assert keys(report.pop("status")) == shapes["status"]
    assert keys(report.pop("events")) == shapes["events"]
    assert {f"attempts{key}" for key in keys(report.pop("attempts"))} == {
        key for key in shapes["attempts"] if key.startswith("attempts")}
    assert keys(report) | {"status", "events", "attempts"} == shapes["report"]
    assert keys(json.loads(host.cli("explain", "ztp_init", "--json"))) == {key.removeprefix("[].") for key in shapes["explain"]}
    first = shell(host, "zerotouch watch --until $(zerotouch get /zerotouch/sm/currentState) --json").stdout
    assert keys(json.loads(first)) == shapes["status"] and first.count("\n") == 1


class Page(html.parser.HTMLParser):
    """Whether each element is closed, which there are, and what is text."""
    def __init__(self, text):
        super().__init__()
        self.open, self.names, self.attributes, self.text = [], set(), [], ""
        self.feed(text)
        assert self.open == []

    def handle_starttag(self, name, attributes):
        self.handle_startendtag(name, attributes)
        if name != "meta":
            self.open.append(name)

    def handle_startendtag(self, name, attributes):
        self.names.add(name)
        self.attributes += attributes

    def handle_endtag(self, name):
        assert self.open.pop() == name

    def handle_data(self, data):
        self.text += data


def test_the_host_remembers_what_happened_and_why(host):
    report = json.loads(host.cli("report", "--json"))
    states = [(state["state"], state["reason"]) for state in report["states"]]
    assert states[:5] == [
        ("stateInit", "the host has started"), ("stateSetupInterfaces", "provisioning is enabled"),
        ("stateDhcpQuery", "the ports are set up"), ("stateSetupSystemIdentity", "DHCP has named a boot file on Ethernet1"),
        ("stateFetchConfig", "what DHCP brought is active")]
    assert ("stateRetryFetchConfig", "the download has failed: 127.0.0.1 refuses the connection") in states
    assert states[-2:] == [("stateRetry", "the download has failed too often: 127.0.0.1 refuses the connection"),
                           ("stateDhcpQuery", "the DHCP results of the attempt have not gone in time")]
    failure = json.loads(host.cli("status", "--json"))["lastFailure"]
    assert (failure["state"], failure["cause"], failure["port"], failure["url"]) == (
        "stateRetryFetchConfig", "the download has failed too often: 127.0.0.1 refuses the connection", "Ethernet1",
        "http://127.0.0.1:9/" + HOSTILE)
    ended = {timer["name"]: timer["ranOut"] for timer in report["timers"] if timer["ended"] >= timer["started"]}
    assert ended == {"InterfacesSetupTimer": True, "DhclientQueryTimer": False, "SystemIdentitySetupTimer": False,
                     "ConfigFetchTimer": False, "ConfigFetchRetryTimer": True, "RetryWaitTimer": True}
    assert [timer["name"] for timer in report["timers"] if timer["ended"] == 0] == ["DhclientQueryTimer"]
    assert [tuple(list(port.values())[1:]) for port in report["ports"]] == [
        ("Ethernet1", "link", "up", ""), ("Ethernet1", "DHCPv6", "BOUND6", "boot file http://127.0.0.1:9/" + HOSTILE)]
    assert [tuple(list(change.values())[1:]) for change in report["changes"]] == [
        ("provisioning enabled", "", "yes", False), ("domain", "", HOSTILE, False), ("domain", "", HOSTILE, True)]


def test_attempts_and_events_can_be_told_apart(host):
    attempts = json.loads(host.cli("attempts", "--json"))["attempts"]
    assert [(attempt["number"], attempt["port"], attempt["family"], attempt["url"], attempt["outcome"], attempt["success"])
            for attempt in attempts] == [
        (1, "Ethernet1", "DHCPv6 stateless", "http://127.0.0.1:9/" + HOSTILE,
         "the download has failed too often: 127.0.0.1 refuses the connection", False), (2, "", "", "", "", False)]
    assert attempts[0]["started"] < attempts[0]["ended"] <= attempts[1]["started"] and attempts[1]["ended"] == 0

    def names(*options):
        return [event["name"] for event in json.loads(host.cli("events", "--json", *options))]

    first, second = names("--attempt", "1"), names("--attempt", "2")
    assert first + second == names() and first[0] == "ZTP_INIT" and "ZTP_RETRY" in first
    assert names("-n", "2") == names()[-2:] and names("--since", "1h") == names() and names("--since", "0") == []
    assert set(names("--severity", "warning")) < set(names())
    for options, reason in ((("--attempt", "9"), "attempt 9 is not known"), (("--severity", "warn"), "did you mean warning"),
                            (("--since", "soon"), "'soon' is no time")):
        assert reason in host.cli("events", *options, code=2)
    said = host.cli("ports", "Ethernet1")
    assert "Takes part:    yes" in said and "BOUND6" in said and "nothing was heard" in said
    assert "there is no port 'et7' (did you mean et1?)" in host.cli("ports", "et7", code=1)


def test_a_report_tells_the_run_and_takes_hostile_values_as_text(host):
    file = host.folder / "run.html"
    assert host.cli("report", "--output", str(file)) == ""
    text = file.read_text()
    page = Page(text)
    assert not page.names & {"script", "img", "link", "iframe", "object"}
    assert not [name for name, value in page.attributes if name.startswith("on") or name == "src"]
    assert all(value.startswith("#") for name, value in page.attributes if name == "href")
    assert "default-src 'none'; style-src 'unsafe-inline'" in [value for name, value in page.attributes if name == "content"][0]
    assert "url(" not in text and "@import" not in text
    for said in (HOSTILE, "the download has failed too often", "have not gone in time", "Last failure", "ZTP_RETRY",
                 "RetryWaitTimer", "BOUND6", "undone", "Ethernet1"):
        assert said in page.text, said
    assert "web page" in on_terminal(host, "report")[0]
    for path, reason in (("/dev/full", "No space left on device"), ("/nowhere/x", "No such file or directory")):
        assert reason in host.cli("report", "--output", path, code=1)


def test_followed_events_come_as_they_happen_until_interrupted_or_the_host_goes(tmp_path):
    host = Host(tmp_path).prepare()
    host.start(initial_values={"/entityMib/status": {"root": {"initStatus": "initialized"}}})
    try:
        wait_for(host.events, "an event")
        # Whoever runs the tests in the background may have left interrupts ignored.
        command = ["env", "--default-signal=INT", PROGRAM, "--socket", host.socket, "events", "--follow"]
        interrupted, left = (subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) for _ in range(2))
        for process in (interrupted, left):
            assert "ZTP_INIT" in process.stdout.readline()
        host.cli("disable")
        for process in (interrupted, left):
            while "ZTP_CANCEL" not in process.stdout.readline():
                assert process.poll() is None
        interrupted.send_signal(signal.SIGINT)
        assert interrupted.wait(60) == -signal.SIGINT and interrupted.stderr.read() == ""
    finally:
        host.stop()
    assert left.wait(60) == 3
    assert left.stderr.read() == f"zerotouch: the host has gone away: {host.socket}\n"


def test_narrow_terminals_and_colours(host):
    def width(text):
        return max(map(len, re.sub("\x1b\\[[0-9]*m", "", text).splitlines()))

    for arguments in ("status", "ports", "events", "explain", "list /zerotouch/sm"):
        assert width(shell(host, f"zerotouch {arguments}").stdout) > 40
        assert width(shell(host, f"zerotouch {arguments}", COLUMNS="40").stdout) <= 40
        drawn, code = on_terminal(host, arguments, columns=40)
        assert width(drawn) <= 40 and code == 0
    assert width(shell(host, "zerotouch ports", COLUMNS="80").stdout) <= 80
    assert "\x1b[33mwarning" in on_terminal(host, "events")[0]
    assert "\x1b" not in on_terminal(host, "events", NO_COLOR="1")[0] + shell(host, "zerotouch events").stdout


def test_who_sits_at_a_terminal_is_asked_before_the_switch_reloads(host):
    drawn = shell(host, "echo n | script -qec 'exec zerotouch cancel' /dev/null")
    assert drawn.returncode == 1
    assert "Go on? [y/N] " in drawn.stdout and "zerotouch: nothing was changed" in drawn.stdout
    assert host.get("/zerotouch/config/cancelled") is False


def test_our_own_warnings_always_say_what_to_do():
    events = json.loads(subprocess.run([PROGRAM, "explain", "--json"], capture_output=True, text=True, check=True).stdout)
    own = [event for event in events if not event["name"].startswith("ZTP_") and event["severity"] <= 4]
    assert len(own) > 20
    assert [event["name"] for event in own if "no action" in event["action"].lower()] == []


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can be somebody else")
def test_who_may_not_use_the_socket_is_told(host):
    environment = {"STATEBASESOCKNAME": str(host.socket), "LD_LIBRARY_PATH": str(BUILD / "lib")}
    refused = subprocess.run([shutil.copy(PROGRAM, host.folder), "status"], capture_output=True, text=True, user=65534,
                             group=65534, extra_groups=[], timeout=60, env=environment)
    assert refused.returncode == 4
    assert refused.stderr == f"zerotouch: you may not open {host.socket}: that is for root and the group 'root'\n"


def completed(host, line):
    words = line.split(" ")
    script = (f"source {COMPLETION}; COMP_WORDS=({' '.join(word or repr('') for word in words)}); "
              f"COMP_CWORD={len(words) - 1}; _zerotouch; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
    return set(shell(host, script).stdout.split())


def test_the_help_the_completion_and_the_readme_name_the_same_verbs_and_options(host):
    general = shell(host, "zerotouch --help").stdout
    verbs = re.findall(r"^  (\w+) ", general.split("Verbs:")[1].split("\n\n")[0], flags=re.M)
    options = set(re.findall(r"--[\w-]+", general.split("Verbs:")[0]))
    table = (ROOT / "README.md").read_text().split("| Verb |")[1].split("\n\n")[0]
    assert set(re.findall(r"`([a-z]+)[` ]", table)) == set(verbs)
    assert completed(host, "zerotouch ") == set(verbs)
    assert completed(host, "zerotouch -") == options
    for verb in verbs:
        text = shell(host, f"zerotouch {verb} --help").stdout
        assert f"Examples:\n  zerotouch {verb}" in text
        assert max(map(len, text.splitlines())) <= 80
        own = set(re.findall(r"--[\w-]+", text.split("Options:")[1].split("Examples:")[0]))
        assert completed(host, f"zerotouch {verb} -") == own | {"--json", "--socket"}
    assert completed(host, "zerotouch --socket x explain ztp_ret") == {"ZTP_RETRY"}
    assert completed(host, "zerotouch get /zerotouch/config/en") == {"/zerotouch/config/enabled"}
    assert "/zerotouch/sm" in completed(host, "zerotouch list /zerotouch/")
    assert completed(host, "zerotouch watch --until stateShut") == {"stateShutdown"}
