#!/usr/bin/env python3
"""Servers that misbehave: one for HTTP, and one for FTP on each of two ports, the given one and the next.

    bad_server.py HTTP_PORT FTP_PORT

The first word of an HTTP request's path selects how:

    /reset         the connection is reset as soon as the request is there
    /silent        no answer
    /half-header   the answer ends within its header
    /half          half of the body is sent, then the connection ends
    /wrong-length  all of the body but its last byte is sent, then the connection ends
    /slow          a byte of the body each second
    /endless       a body without an end
    /empty         a good answer without a body
    /redirect      to /config of the server on port 80
    /loop          to itself
    /unsized       all of the body, without its length
    /busy          503, with the wish to be left alone for 3 s
    /broken/HOW    half of the body, and then, when the rest is asked for, HOW decides: "same" sends it, "ignored" sends
                   everything, "changed" sends another file, "grown" the rest of a longer one; "weak" tells versions apart
                   by a weak tag only, and sends everything when no rest is asked for
    /404, /500     that status; any three digits will do
    /turns/A/B/C   A for the first request, B for the second, C for the third and all that follow

With FTP the name of the file does. On the second port the greeting takes 11 s.

    /broken        half of the file is sent, and then the rest, when it is asked for
    /silent-RETR   the file is not sent, nor is it refused
    /silent-END    the reply that follows the file stays away
    /silent-SIZED  the same, and the size of the file is not told
    /silent-QUIT   the farewell is not answered
"""
import collections
import http.server
import socket
import socketserver
import struct
import sys
import threading
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

    def send_loop(self):
        self.head(302, 0, Location=self.path)

    def send_unsized(self):
        self.head(200)
        self.wfile.write(BODY)

    def send_busy(self):
        self.head(503, 0, **{"Retry-After": "3"})

    def send_broken(self):
        how = self.path.rpartition("/")[2]
        asked, requests[self.path] = requests[self.path] > 0, requests[self.path] + 1
        first, _, rest = (self.headers["Range"] or "").removeprefix("bytes=").partition("-")
        tag = {"weak": 'W/"1"', "changed": f'"{1 + asked}"'}.get(how, '"1"')
        if how == "weak" and asked and not first or how in ("ignored", "changed") and asked:
            self.head(200, len(BODY), ETag=tag)
            self.wfile.write(BODY.replace(b"bad", b"new") if how == "changed" else BODY)
        elif how in ("same", "grown") and first and not rest and self.headers["If-Range"] == tag:
            whole = BODY + b"!" * (how == "grown")
            self.head(206, len(whole) - int(first), ETag=tag,
                      **{"Content-Range": f"bytes {first}-{len(whole) - 1}/{len(whole)}"})
            self.wfile.write(whole[int(first):])
        else:
            self.head(200, len(BODY), ETag=tag)
            self.wfile.write(BODY if how == "grown" and requests[self.path] > 2 else BODY[:len(BODY) // 2])

    def handle(self):
        try:
            super().handle()
        except OSError:  # the client has had enough
            pass


class FtpHandler(socketserver.StreamRequestHandler):
    greets_after = 0
    replies = {"USER": "331 password", "PASS": "230 welcome", "PWD": '257 "/"', "TYPE": "200 so be it", "QUIT": "221 bye"}
    silent = ""  # the mode of the file that was asked for last
    rest = 0  # where it is to begin

    def handle(self):
        try:
            time.sleep(self.greets_after)
            self.say("220 ready")
            for line in self.rfile:
                self.obey(*line.decode().strip().partition(" ")[::2])
        except OSError:  # the client has had enough
            pass

    def say(self, reply):
        self.wfile.write(reply.encode() + b"\r\n")

    def obey(self, word, name):
        if word in ("SIZE", "RETR"):
            self.silent = name.rpartition("silent-")[2]
        if word == "EPSV":
            address = self.connection.getsockname()[0], 0
            self.data = socket.create_server(address, family=socket.AF_INET6, dualstack_ipv6=True)
            self.say(f"229 (|||{self.data.getsockname()[1]}|)")
        elif word == "SIZE":
            self.say("500 unknown" if self.silent == "SIZED" else f"213 {len(BODY)}")
        elif word == "MDTM":
            self.say("213 20260101000000")
        elif word == "REST":
            self.rest = int(name)
            self.say("350 from there on")
        elif word == "RETR" and self.silent != "RETR":
            self.say("150 here it comes")
            breaks = name.endswith("broken") and not self.rest
            with self.data, self.data.accept()[0] as connection:
                connection.sendall(BODY[self.rest:len(BODY) // 2 if breaks else None])
            if self.silent not in ("END", "SIZED"):
                self.say("226 there it was")
        elif word in self.replies and self.silent != word:
            self.say(self.replies[word])


class LateFtpHandler(FtpHandler):
    greets_after = 11


class FtpServer(socketserver.ThreadingTCPServer):
    address_family = socket.AF_INET6
    allow_reuse_address = True
    daemon_threads = True


class Server(http.server.ThreadingHTTPServer):
    address_family = socket.AF_INET6  # and IPv4
    daemon_threads = True

    def server_bind(self):
        """As a plain server does it: an HTTP server asks a name server for its own name, which may not answer here."""
        socketserver.TCPServer.server_bind(self)


def main():
    try:
        http_port, ftp_port = map(int, sys.argv[1:])
        server = Server(("::", http_port), Handler)
        for number, handler in ((ftp_port, FtpHandler), (ftp_port + 1, LateFtpHandler)):
            threading.Thread(target=FtpServer(("::", number), handler).serve_forever, daemon=True).start()
    except ValueError:
        sys.exit(__doc__.strip())
    except OSError as error:
        sys.exit(f"ports {sys.argv[1]}, {sys.argv[2]}: {error.strerror}")
    print("ready", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
