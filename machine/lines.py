"""Lines of text over a Unix socket of the machine."""
import select
import socket
import time

from lab.polling import wait_for


class Closed(Exception):
    """The other end is gone."""


class Lines:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        wait_for(lambda: self._connects(path), f"{path} to answer")
        self.received = b""

    def _connects(self, path):
        try:
            self.socket.connect(str(path))
        except (FileNotFoundError, ConnectionRefusedError):
            return False
        return True

    def close(self):
        self.socket.close()

    def send(self, line):
        try:
            self.socket.sendall(line.encode() + b"\n")
        except OSError as error:
            raise Closed from error

    def receive(self, seconds):
        """The next line, or None when none comes in that time."""
        deadline = time.monotonic() + seconds
        while b"\n" not in self.received:
            if not select.select([self.socket], [], [], max(0, deadline - time.monotonic()))[0]:
                return None
            try:
                more = self.socket.recv(65536)
            except OSError as error:
                raise Closed from error
            if not more:
                raise Closed
            self.received += more
        line, _, self.received = self.received.partition(b"\n")
        return line.decode(errors="replace")
