"""The reporter between a host and collectors that fail in every way."""
import datetime
import json
import random
import re
import signal
import threading

import pytest

from lab import broker
from lab.collector import RETRY_AFTER, Collector
from lab.polling import wait_for

READY = {"/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01",
                               "root": {"initStatus": "initialized", "serialNum": "SN 1"}}}


@pytest.fixture
def collector():
    collector = Collector()
    threading.Thread(target=collector.serve_forever, daemon=True).start()
    yield collector
    collector.released.set()
    collector.shutdown()
    collector.server_close()


@pytest.fixture
def reported(host, collector):
    """A host, not started yet, whose reporter has a collector."""
    report_to(host, collector.url)
    yield host
    host.stop_reporter()


def report_to(host, url):
    host.config.write_text(f'{host.config_text}[reporter]\nurl = "{url}"\nspool = "{host.folder}/spool"\n')


def status(host):
    return json.loads((host.reporter_directory / "status.json").read_text())


def run_out_of_time(host):
    """A whole run, to its end."""
    host.start(initial_values=READY)
    host.cli("set", "/zerotouch/config/maxRunTime", "0")
    host.wait_state("stateShutdown")


def check_whole(host, events):
    """Nothing is missing: the sequence has no gap, repeats are equal, and the events are those of the host."""
    unique = {event["id"]: event for event in events}
    assert all(event == unique[event["id"]] for event in events), "a repeat is the same event"
    told = sorted(unique.values(), key=lambda event: event["sequence"])
    assert [int(event["sequence"]) for event in told] == list(range(1, len(told) + 1))
    known = host.events()
    assert [event["type"] for event in told] == [f"zerotouch.{name}" for name in known][:len(told)]
    return len(told) == len(known)


def test_what_arrives(reported, collector):
    reported.start_reporter()
    run_out_of_time(reported)
    wait_for(lambda: check_whole(reported, collector.events), "all events")
    event = collector.events[-1]
    assert (event["specversion"], event["source"], event["type"]) == ("1.0", "SN%201", "zerotouch.ZTP_RELOAD")
    last = json.loads(reported.cli("events", "--json"))[-1]
    assert event["data"] | {"message": last["message"], "name": "ZTP_RELOAD", "state": "stateShutdown"} == event["data"]
    assert set(event["data"]) == {"name", "severity", "message", "state", "cause", "port", "attempt"}
    wait_for(lambda: f"{len(collector.events)} events delivered, 0 waiting, 0 dropped\n" in reported.cli("status"), "the status")


@pytest.mark.parametrize("answer", ["hang", "slow", "500", "503", "absent"])
def test_a_run_is_not_held_up_and_nothing_is_lost(reported, collector, answer):
    collector.answer = answer
    if answer == "absent":
        report_to(reported, "http://127.0.0.1:9/events")
    reported.start_reporter()
    run_out_of_time(reported)
    failures = {"500": "status 500", "503": "status 503", "absent": "connect"}
    if answer in failures:
        wait_for(lambda: failures[answer] in status(reported)["failure"], "the failure")
        assert failures[answer] in reported.cli("status")
        assert status(reported)["waiting"] > 0
    if answer == "503":
        wait_for(lambda: "nextTry" in status(reported), "the pause")
        time = json.loads(reported.cli("status", "--json"))["time"]
        assert status(reported)["nextTry"] - time > RETRY_AFTER / 2 - 1
    if answer == "hang":
        wait_for(lambda: collector.attempts and status(reported)["waiting"] > 0, "a request that hangs")
    # The reporter ends in time, whatever the collector does; what it has spooled is sent by the next one.
    assert reported.stop_reporter() == 0
    collector.answer = "200"
    report_to(reported, collector.url)
    reported.start_reporter()
    wait_for(lambda: check_whole(reported, collector.events), "all events")


def test_a_killed_reporter_loses_nothing(reported, collector):
    draw = random.Random(1)
    reported.start_reporter()
    reported.start(initial_values=READY)
    for _ in range(20):
        seen = len(collector.events) + draw.randrange(4)
        collector.answer = draw.choice(["200", "200", "500"])
        wait_for(lambda: len(collector.events) >= seen or collector.answer == "500", "events")
        reported.stop_reporter(signal.SIGKILL)
        collector.answer = "200"
        reported.start_reporter()
    reported.cli("set", "/zerotouch/config/maxRunTime", "0")
    reported.wait_state("stateShutdown")
    wait_for(lambda: check_whole(reported, collector.events), "all events")


def test_the_outcome_comes_after_the_reboot(switch_lab, collector):
    """Once, by the first reporter that reaches the collector, in whichever boot."""
    lab, host = switch_lab, switch_lab.host
    report_to(host, collector.url)
    try:
        lab.begin()
        lab.wait_reload()
        collector.answer = "500"
        host.boot_again()
        host.start_reporter()
        wait_for(lambda: "500" in status(host)["failure"], "a failure")
        assert host.stop_reporter() == 0
        host.boot_again()
        collector.answer = "200"
        for _ in range(2):
            host.start_reporter()
            wait_for(lambda: status(host)["hostIsRunning"] and status(host)["waiting"] == 0, "the events")
            assert host.stop_reporter() == 0
            host.boot_again()
        outcomes = {event["id"]: event for event in collector.events if event["type"].islower()}
        assert len(outcomes) == 1
        outcome = outcomes.popitem()[1]
        assert (outcome["type"], outcome["source"]) == ("zerotouch.provisioned", "LAB0001")
        assert outcome["data"]["port"] == "Ethernet1" and outcome["data"]["url"].endswith("/config")
    finally:
        host.stop_reporter()
        host.config.write_text(host.config_text)


def check_cloud_event(event):
    """What CloudEvents 1.0 asks of an event in JSON."""
    assert all(re.fullmatch("[a-z0-9]+", name) for name in event)
    assert all(isinstance(event[name], str) and event[name] for name in event.keys() - {"data"})
    assert event.keys() >= {"specversion", "id", "source", "type"} and event["specversion"] == "1.0"
    assert re.fullmatch(r"([A-Za-z0-9._~-]|%[0-9A-F]{2})+", event["source"]), "a reference to a URI"
    assert datetime.datetime.fromisoformat(event["time"]).utcoffset() == datetime.timedelta(0)
    assert event["datacontenttype"] == "application/json" and isinstance(event["data"], dict)


def test_a_broker_of_debian_hears_a_whole_run_over_the_port_that_is_provisioned(switch_lab):
    lab, host = switch_lab, switch_lab.host
    report_to(host, f"mqtt://10.0.1.1/{broker.TOPIC}")
    file = lab.collect_from_broker()

    def heard():
        return [event["type"].removeprefix("zerotouch.") for event in broker.events(file).get("LAB0001", [])]
    try:
        lab.begin(INETRFACESSETUP=2)
        host.start_reporter(lab.switch.enter)
        wait_for(host.reload_requested, "the reload")
        host.wait_state("stateShutdown")
        assert host.stop_reporter() == 0
        known = host.events()
        host.boot_again()
        lab.switch.ip("address", "add", "10.0.1.99/24", "dev", "et1")  # as a startup configuration does it
        lab.switch.ip("link", "set", "et1", "up")
        host.start_reporter(lab.switch.enter)
        wait_for(lambda: "provisioned" in heard() and len(heard()) > len(known), "the outcome")
        assert [name for name in heard() if name != "provisioned"][:len(known)] == known
        assert host.stop() == 0
        wait_for(lambda: json.loads(host.cli("status", "--json", code=3, output="stdout"))["reporter"]["waiting"] == 0, "the status")
        for event in broker.events(file)["LAB0001"]:
            check_cloud_event(event)
    finally:
        host.stop_reporter()
        lab.stop_collecting()
        host.config.write_text(host.config_text)
