"""What passed the port, as tshark decodes it."""
import signal
import struct
import subprocess

from interop.site import SWITCH_MAC

PORTS_OF_SWITCH = SWITCH_MAC[:-1]  # the addresses of all of them begin so
FIELDS = """frame.number frame.protocols eth.src icmpv6.type _ws.malformed _ws.expert.severity _ws.expert.message
  dhcp.option.dhcp dhcp.ip.your dhcp.file dhcp.option.bootfile_name dhcp.option.tftp_server_name dhcp.option.subnet_mask
  dhcp.option.router dhcp.option.domain_name_server dhcp.option.domain_name dhcp.option.hostname dhcp.option.log_server
  dhcp.option.interface_mtu dhcp.option.classless_static_route dhcp.option.type dhcp.option.requested_ip_address
  dhcpv6.msgtype dhcpv6.duid.bytes dhcpv6.duid.type dhcpv6.iaaddr.ip dhcpv6.dns_server dhcpv6.option.type
  dhcpv6.search_list_entry
  dhcpv6.requested_option_code http.user_agent""".split()
OURS = "dhcp || dhcpv6 || icmpv6.type == 133 || lldp || http.request || _ws.malformed"
ERROR = str(0x00800000)  # the severity of what tshark calls an error
SEPARATOR = "\x1f"


class Capture:
    """Of the ports of a site, from start() to packets()."""

    def __init__(self, site):
        self.site = site
        self.file = site.folder / "case" / "packets.pcapng"

    def start(self):
        devices = [word for device in self.site.far_ends() for word in ("-i", device)]
        self.site.processes.start("capture", [*self.site.server.enter(), "dumpcap", "-q", *devices, "-w", self.file],
                                  ready="File:")

    def packets(self):
        self.site.processes.stop("capture", signal.SIGINT)
        return decode(self.file)


def decode(file):
    """A dictionary for each packet that matters; its values are lists."""
    argv = ["tshark", "-n", "-r", str(file), "-Y", OURS, "-T", "fields", "-E", "occurrence=a",
            "-E", f"aggregator={SEPARATOR}"]
    for field in FIELDS:
        argv += ["-e", field]
    result = subprocess.run(argv, capture_output=True, text=True, check=True)
    return [{name: value.split(SEPARATOR) if value else [] for name, value in zip(FIELDS, line.split("\t"))}
            for line in result.stdout.splitlines()]


def of_switch(packets):
    return [packet for packet in packets if packet["eth.src"][0].startswith(PORTS_OF_SWITCH)]


def malformed(packets):
    """A text for each of these packets in which tshark finds a fault."""
    return [f"packet {packet['frame.number'][0]} ({packet['frame.protocols'][0]}): "
            + ("; ".join(packet["_ws.malformed"][:1] + packet["_ws.expert.message"]))
            for packet in packets if packet["_ws.malformed"] or ERROR in packet["_ws.expert.severity"]]


def answer4(packets, address):
    """What the last acknowledgement of that address says, in the words of outcome.taken()."""
    found = [packet for packet in packets if packet["dhcp.option.dhcp"] == ["5"] and packet["dhcp.ip.your"] == [address]]
    assert found, f"tshark shows no acknowledgement of {address}"
    packet = found[-1]
    length = sum(bin(int(byte)).count("1") for byte in packet["dhcp.option.subnet_mask"][0].split("."))
    classless = [route for text in packet["dhcp.option.classless_static_route"] for route in classless_routes(text)]
    # With option 121, a client does not look at option 3 (RFC 3442).
    gateways = [hop for target, hop in classless if target == "0.0.0.0/0"] or packet["dhcp.option.router"]
    boot_file = packet["dhcp.option.bootfile_name"] or packet["dhcp.file"]
    return present({
        "address": [f"{address}/{length}"], "mtu": packet["dhcp.option.interface_mtu"],
        # With option 66, the name is that of a file over TFTP, whatever it looks like.
        "boot file": [f"tftp://{server}/{name}" for server in packet["dhcp.option.tftp_server_name"]
                      for name in boot_file] or boot_file,
        "host name": packet["dhcp.option.hostname"],
        "domain": packet["dhcp.option.domain_name"], "name servers": packet["dhcp.option.domain_name_server"],
        "log hosts": packet["dhcp.option.log_server"], "gateways": gateways,
        "routes": [f"{target} via {hop}" for target, hop in classless if target != "0.0.0.0/0"]})


def classless_routes(text):
    """The routes of option 121 (RFC 3442), which tshark gives as hexadecimal digits."""
    data = bytes.fromhex(text.replace(":", ""))
    while data:
        length, count = data[0], (data[0] + 7) // 8
        target = ".".join(map(str, data[1:1 + count].ljust(4, b"\0")))
        yield f"{target}/{length}", ".".join(map(str, data[1 + count:5 + count]))
        data = data[5 + count:]


def answer6(packets):
    """What the last reply of DHCPv6 with a boot file says, without its URL: tshark 4.0 shows only that there is one."""
    found = [packet for packet in packets if packet["dhcpv6.msgtype"] == ["7"] and "59" in packet["dhcpv6.option.type"]]
    assert found, "tshark shows no reply with a boot file"
    return present({"address": found[-1]["dhcpv6.iaaddr.ip"],
                    "name servers": found[-1]["dhcpv6.dns_server"],
                    "domain": [name.rstrip(".") for name in found[-1]["dhcpv6.search_list_entry"]]})


def present(answer):
    return {name: sorted(values) for name, values in answer.items() if values}


def assert_that_faults_are_seen(folder):
    """Fails unless the decoder finds the fault in a message of DHCP whose last option is cut off."""
    message = b"\1\1\6\0" + bytes(232) + b"\x63\x82\x53\x63" + b"\x35\1\1" + b"\x3d\x20\1"
    udp = struct.pack("!4H", 68, 67, 8 + len(message), 0) + message
    ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, bytes(4), b"\xff" * 4) + udp
    frame = b"\xff" * 6 + bytes.fromhex(SWITCH_MAC.replace(":", "")) + b"\x08\0" + ip
    file = folder / "broken.pcap"
    file.write_bytes(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1)
                     + struct.pack("<IIII", 0, 0, len(frame), len(frame)) + frame)
    assert malformed(of_switch(decode(file))), "tshark calls a broken message good"
