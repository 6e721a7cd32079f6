#!/usr/bin/env python3
"""How long the agent takes for a large download from a server on the same machine, against the curl command.

    fetch_figures.py BUILD_DIR [ROUNDS]    prints a table, and writes BUILD_DIR/fetch_figures.json

The agent's time runs from the request for the download to the request for what follows; that of curl is the wall time of
the process. Rounds alternate, so that other load on the machine meets both alike. Overwrites /tmp/zt-download.
"""
import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile
import time

SIZE = 100_000_000
CONFIG = """
daemon off; worker_processes 1; pid {folder}/pid; error_log {folder}/error.log;
events {{}}
http {{
  access_log off; sendfile on;
  client_body_temp_path {folder}/1; proxy_temp_path {folder}/2; fastcgi_temp_path {folder}/3;
  uwsgi_temp_path {folder}/4; scgi_temp_path {folder}/5;
  server {{
    listen 127.0.0.1:{http}; listen 127.0.0.1:{https} ssl;
    ssl_certificate {folder}/cert.pem; ssl_certificate_key {folder}/key.pem;
    root {folder}/www;
  }}
}}
"""
DOWNLOAD = pathlib.Path("/tmp/zt-download")


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def curl_seconds(url, output):
    output.unlink(missing_ok=True)
    start = time.monotonic()
    subprocess.run(["curl", "--silent", "--insecure", "--fail", "--output", output, url], check=True)
    return time.monotonic() - start


def agent_seconds(driver, url, flash):
    DOWNLOAD.unlink(missing_ok=True)
    result = subprocess.run([driver, url], capture_output=True, text=True,
                            env={**os.environ, "FILESYSTEM_ROOT": flash, "ZEROTOUCH_IGNORE_DHCLIENTCLEANUP": "1"})
    seconds, size, *error = result.stdout.split(maxsplit=2)
    if int(size) != SIZE or result.returncode != 0:
        sys.exit(f"the agent got {size} bytes of {url}: {' '.join(error)}")
    return float(seconds)


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 15
    figures = {}
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        (folder / "www").mkdir()
        (folder / "www" / "file").write_bytes(os.urandom(SIZE))
        http, https = free_ports(2)
        (folder / "nginx.conf").write_text(CONFIG.format(folder=folder, http=http, https=https))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                        "-keyout", folder / "key.pem", "-out", folder / "cert.pem"], check=True, capture_output=True)
        server = subprocess.Popen(["/usr/sbin/nginx", "-c", folder / "nginx.conf"])
        try:
            while server.poll() is None and not (folder / "pid").exists():
                time.sleep(0.01)
            print(f"{'100 MB, median / best of ' + str(rounds):32} {'agent':>15} {'curl':>15}   Ratio of the medians")
            for url in (f"http://127.0.0.1:{http}/file", f"http://localhost:{http}/file",
                        f"https://127.0.0.1:{https}/file", f"https://localhost:{https}/file"):
                curl, agent = [], []
                for _ in range(rounds):
                    curl.append(curl_seconds(url, folder / "output"))
                    agent.append(agent_seconds(build / "bin" / "fetch_driver", url, name))
                ratio = statistics.median(agent) / statistics.median(curl)
                label = url.rsplit(":", 1)[0]
                print(f"{label:32} {statistics.median(agent):6.3f} /{min(agent):6.3f} s "
                      f"{statistics.median(curl):6.3f} /{min(curl):6.3f} s   {ratio:.2f}, at most 1.25")
                figures[label] = {"agent": agent, "curl": curl}
        finally:
            server.terminate()
            server.wait()
            DOWNLOAD.unlink(missing_ok=True)
    (build / "fetch_figures.json").write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()
