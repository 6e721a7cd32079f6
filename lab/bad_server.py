#!/usr/bin/env python3
"""An HTTP server that misbehaves.

    bad_server.py PORT

The first word of the path selects how:

    /reset         the connection is reset as soon as the request is there
    /silent        no answer
    /half-header   the answer ends within its header
    /half          half of the body is sent, then the connection ends
    /wrong-length  all of the body but its last byte is sent, then the connection ends
    /slow          a byte of the body each second
    /endless       a body without an end
    /empty         a good answer without a body
    /redirect      to /config of the server on port 80
    /404, /500     that status; any three digits will do
    /turns/A/B/C   A for the first request, B for the second, C for the third and all that follow
"""
import collections
import http.server
import socket
import socketserver
import struct
import sys
import time

BODY = b"hostname bad\n! from the server that cannot behave\n"
requests = collections.Counter()  # by path


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.close_connection = True
        mode, *turns = self.path.split("/")[1:]
        if mode == "turns" and turns:
            mode = turns[min(requests[self.path], len(turns) - 1)]
            requests[self.path] += 1
        method = getattr(self, "send_" + mode.replace("-", "_"), None)
        if method:
            method()
        else:
            self.head(int(mode) if mode.isdecimal() and len(mode) == 3 else 404, len(BODY))
            self.wfile.write(BODY)

    def head(self, status, length=None, **fields):
        self.send_response(status)
        for name, value in fields.items():
            self.send_header(name, value)
        if length is not None:
            self.send_header("Content-Length", length)
        self.send_header("Connection", "close")
        self.end_headers()

    def send_reset(self):
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.connection.close()

    def send_silent(self):
        self.connection.recv(1)  # until the client gives up

    def send_half_header(self):
        self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Le")

    def send_half(self):
        self.head(200, len(BODY))
        self.wfile.write(BODY[:len(BODY) // 2])

    def send_wrong_length(self):
        self.head(200, len(BODY) + 1)
        self.wfile.write(BODY)

    def send_slow(self):
        self.head(200, len(BODY))
        for byte in BODY:
            self.wfile.write(bytes([byte]))
            time.sleep(1)

    def send_endless(self):
        self.head(200)
        while True:
            self.wfile.write(BODY * 1000)  # five megabytes a second
            time.sleep(0.01)

    def send_empty(self):
        self.head(200, 0)

    def send_redirect(self):
        host = self.headers["Host"].rpartition(":")[0]
        self.head(302, len(BODY), Location=f"http://{host}/config")
        self.wfile.write(BODY)

    def handle(self):
        try:
            super().handle()
        except OSError:  # the client has had enough
            pass


class Server(http.server.ThreadingHTTPServer):
    address_family = socket.AF_INET6  # and IPv4
    daemon_threads = True

    def server_bind(self):
        """As a plain server does it: an HTTP server asks a name server for its own name, which may not answer here."""
        socketserver.TCPServer.server_bind(self)


def main():
    try:
        server = Server(("::", int(sys.argv[1])), Handler)
    except (IndexError, ValueError):
        sys.exit(__doc__.strip())
    except OSError as error:
        sys.exit(f"port {sys.argv[1]}: {error.strerror}")
    print("ready", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
