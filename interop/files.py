"""The servers for files. They run on the second machine; dnsmasq tells the switch of them."""
import subprocess

from interop.case import Case
from interop.dhcp4 import Dnsmasq
from interop.server import UNPACKED, Server
from interop.site import CONFIG

ADDRESS = "10.0.1.2"
SENDER = "#!/bin/sh\necho 'Content-Type: application/octet-stream'\necho\nexec cat {files}/config\n"


class FileServer(Server):
    def __init__(self, *parts, **options):
        super().__init__(*parts, **{"place": "second"} | options)

    def prepare(self):
        """Makes the folder `cgi-bin` next to the configuration, whose only script sends the file without its length."""
        script = self.folder / "cgi-bin" / "config"
        script.parent.mkdir()
        script.write_text(SENDER.format(files=self.places["{files}"]))
        script.chmod(0o755)


class Nginx(FileServer):
    name, package, template, port = "nginx", "nginx-light", "nginx.conf", "tcp 80"

    def command(self, config):
        return ["nginx", "-e", "stderr", "-c", config]


class Apache(FileServer):
    name, package, template, port = "apache2", "apache2", "apache2.conf", "tcp 80"

    def command(self, config):
        return ["apache2", "-X", "-f", config]


class Lighttpd(FileServer):
    name, package, template, port = "lighttpd", "lighttpd", "lighttpd.conf", "tcp 80"

    def command(self, config):
        return ["lighttpd", "-D", "-f", config]


class Caddy(FileServer):
    name, package, template, port = "caddy", "caddy", "Caddyfile", "tcp 80"

    def command(self, config):
        return ["caddy", "run", "--adapter", "caddyfile", "--config", config]

    def environment(self):
        return {"HOME": str(self.folder), "XDG_DATA_HOME": str(self.folder), "XDG_CONFIG_HOME": str(self.folder)}


class Busybox(FileServer):
    name, package, template, port = "busybox httpd", "busybox", "busybox-httpd.command", "tcp 80"

    def prepare(self):
        super().prepare()
        (self.folder / "config").symlink_to(self.places["{files}"] / "config")


class Vsftpd(FileServer):
    name, package, template, port = "vsftpd", "vsftpd", "vsftpd.conf", "tcp 21"

    def prepare(self):
        (self.folder / "empty").mkdir()

    def command(self, config):
        return ["vsftpd", config]


class Proftpd(FileServer):
    name, package, template, port = "proftpd", "proftpd-core", "proftpd.conf", "tcp 21"

    def command(self, config):
        return [UNPACKED / self.package / "usr/sbin/proftpd", "-n", "-q", "-c", config]


class PureFtpd(FileServer):
    name, package, template, port = "pure-ftpd", "pure-ftpd", "pure-ftpd.command", "tcp 21"
    private = ("/srv/ftp",)

    def prepare(self):
        (self.folder / "srv").mkdir()
        (self.folder / "srv/ftp").symlink_to(self.places["{files}"])

    def environment(self):
        return {"PATH": f"{UNPACKED}/pure-ftpd/usr/sbin:/usr/bin:/usr/sbin:/bin"}


class TftpdHpa(FileServer):
    name, package, template, port = "tftpd-hpa", "tftpd-hpa", "tftpd-hpa.command", "udp 69"


class Atftpd(FileServer):
    name, package, template, port = "atftpd", "atftpd", "atftpd.command", "udp 69"

    def environment(self):
        return {"PATH": f"{UNPACKED}/atftpd/usr/sbin:/usr/bin:/usr/sbin:/bin"}


class DnsmasqTftp(FileServer):
    name, package, template, port = "dnsmasq", "dnsmasq-base", "dnsmasq-tftp.conf", "udp 69"

    def command(self, config):
        return ["dnsmasq", f"--conf-file={config}", "--keep-in-foreground", "--log-facility=-", "--pid-file=", "--port=0",
                "--user=root", "--bind-dynamic"]


TLS = ["TLS 1.2", "TLS 1.3", "asks for a certificate"]


def cases():
    for kind in (Nginx, Apache, Lighttpd, Caddy, Busybox):
        yield download(kind(), "HTTP", "http")
    for kind, name in ((Busybox, "HTTP/1.0 without a length"), (Apache, "chunks"), (Lighttpd, "chunks")):
        yield download(kind(), name, "http", "cgi-bin/config")
    yield download(Nginx("chunks"), "chunks", "http")
    for kind in (Nginx, Apache, Lighttpd, Caddy):
        for tls in TLS:
            yield download(kind("HTTPS", tls), f"HTTPS, {tls}" + (" only" if "TLS" in tls else ""), "https")
    for kind in (Vsftpd, Proftpd, PureFtpd):
        yield download(kind(), "FTP, anonymous", "ftp")
    for kind in (TftpdHpa, Atftpd, DnsmasqTftp):
        yield download(kind(), "TFTP", "tftp")
        server = kind()
        yield Case("Files", "TFTP by option 66", [Dnsmasq("option 66", place="first", boot_file="config", server=ADDRESS),
                                                  server], subject=server)
    for kind in (Nginx, Apache):
        yield download(kind("redirect"), "a redirect", "http", "moved", installed=page_at("moved"),
                       remark="by default, the page of the redirect is the download")


def download(server, name, scheme, path="config", **case):
    dhcp = Dnsmasq("option 67", boot_file=f"{scheme}://{ADDRESS}/{path}")
    return Case("Files", name, [dhcp, server], subject=server, **case)


def page_at(path):
    """A function of the site: what the server sends there itself, to a client that follows no redirect."""
    def page(site):
        argv = [*site.server.enter(), "curl", "-s", f"http://{ADDRESS}/{path}"]
        text = subprocess.run(argv, capture_output=True, check=True).stdout
        assert text and text != CONFIG, "the server sends no page of its own"
        return text
    return page
