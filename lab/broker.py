"""A collector that is not ours: mosquitto, a broker for MQTT, and its own subscriber, which writes down what comes.

A reporter posts to it with url = "mqtt://ADDRESS/zerotouch"."""
import json

CONFIG = """listener 1883 {address}
allow_anonymous true
persistence false
log_dest stderr
log_type error
log_type warning
log_type information
log_type subscribe
"""
TOPIC = "zerotouch"
SUBSCRIBER = "arrived"  # its log has each message on a line


def start(processes, enter, address):
    """Starts both; `enter` are the words before a command that is to run where `address` is. What arrives is in the file that
    this returns."""
    config = processes.folder / "mosquitto.conf"
    config.write_text(CONFIG.format(address=address))
    processes.start("mosquitto", [*enter, "mosquitto", "-c", config], ready="running")
    command = [*enter, "mosquitto_sub", "-h", address, "-t", TOPIC, "-F", "%p"]
    processes.start(SUBSCRIBER, command, ready=lambda: f" {TOPIC}\n" in processes.log("mosquitto").read_text())
    return processes.log(SUBSCRIBER)


def stop(processes):
    for name in (SUBSCRIBER, "mosquitto"):
        processes.stop(name)


def events(file):
    """The events in that file, by source, each once and in their order. The end of the last line may still be on its way."""
    arrived = {}
    for line in file.read_text().splitlines(keepends=True):
        if line.endswith("\n"):
            event = json.loads(line)
            arrived.setdefault(event["source"], {})[event["id"]] = event
    return {source: sorted(one.values(), key=lambda event: (event["time"], event["sequence"])) for source, one in arrived.items()}
