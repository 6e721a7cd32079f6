#!/usr/bin/env python3
"""Takes batches of CloudEvents over HTTP, and can fail in every way that the reporter has to bear.

As a program: collector.py ADDRESS PORT FILE appends each event to FILE, on a line of its own. POST /answer/503 makes it
answer so from then on (any status, or hang or slow), POST /answer/200 as it should."""
import json
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

BATCH = "application/cloudevents-batch+json"
RETRY_AFTER = 2  # seconds, of 503
SLOW = 3  # seconds


class Collector(ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, address=("127.0.0.1", 0), take=None):
        super().__init__(address, Handler)
        self.answer = "200"
        self.attempts = []  # what each request was answered with
        self.events = []
        self.take = take or self.events.append
        self.released = threading.Event()  # lets requests go that hang
        self.url = f"http://{address[0]}:{self.server_port}/events"


class Handler(BaseHTTPRequestHandler):
    def do_POST(self):
        collector = self.server
        body = self.rfile.read(int(self.headers["Content-Length"]))
        if self.path.startswith("/answer/"):
            collector.answer = self.path.removeprefix("/answer/")
            return self.reply(200)
        answer = collector.answer
        if self.headers["Content-Type"] != BATCH:
            answer = "415"
        collector.attempts.append(answer)
        if answer in ("hang", "slow") and collector.released.wait(SLOW if answer == "slow" else None):
            return None
        if answer in ("200", "slow"):
            for event in json.loads(body):
                collector.take(event)
            answer = "200"
        return self.reply(int(answer))

    def reply(self, status):
        self.send_response(status)
        if status == 503:
            self.send_header("Retry-After", str(RETRY_AFTER))
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *arguments):
        pass


def main():
    address, port, path = sys.argv[1:]
    with open(path, "a", encoding="utf-8", buffering=1) as file:
        collector = Collector((address, int(port)), take=lambda event: file.write(json.dumps(event) + "\n"))
        print("ready", flush=True)
        collector.serve_forever()


if __name__ == "__main__":
    main()
