"""The attacks of attacker.py that connect to the heartbeat port."""
import collections
import concurrent.futures
import contextlib
import errno
import json
import random
import re
import select
import socket
import struct
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


class Client:
    """One of a pool."""
    connection = None
    open = False  # the handshake is done
    next = 0.0


class Connections:
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
        def look(port):
            connection = None if self.stopped else self.connect(BRIEF, port=port)
            if connection:
                connection.close()

        # Where a rule drops the packets each port is waited for: many at once.
        with concurrent.futures.ThreadPoolExecutor(200) as pool:
            collections.deque(pool.map(look, range(1, HIGHEST_PORT + 1)), maxlen=0)
        # The receiver closes its port between two heartbeats: a scanner looks again.
        for _ in range(100):
            if self.stopped or self.tally["connections"]:
                break
            self.connect(BRIEF)
            time.sleep(0.02)

    def forge_lines(self):
        """A line feed, and what the log would show of a service address that is silent: a head with
        this moment and a process that no agent is."""
        now = time.strftime("%Y-%m-%d %H:%M:%S")
        self.payload = f"\n{now}.0 [1:3][CHeartReciver:516] <D> my service IP is not OK (2)".encode()
        self.send_once()
