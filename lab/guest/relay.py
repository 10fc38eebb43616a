#!/usr/bin/env python3
"""A bad wire of the lab: carries frames between two interfaces, and loses or delays them on the way.

    relay.py HOST-SIDE BRIDGE-SIDE LOSS DELAY JITTER SEED [PEER]

LOSS is in percent; DELAY and JITTER, which is drawn evenly, are in milliseconds. Both ways are bad,
or with PEER, a hardware address, only what comes from there. It says "ready" once it carries frames.
"""
import collections
import contextlib
import os
import pathlib
import random
import select
import socket
import sys
import time

SOL_PACKET, PACKET_VNET_HDR, PACKET_IGNORE_OUTGOING, SO_RCVBUFFORCE, ETH_P_ALL = 263, 15, 23, 33, 3
# The kernel's offload data before each frame: with it large segments pass whole, and checksums that
# no interface has filled in yet.
VNET_HEADER = 10
LONGEST = VNET_HEADER + 65536 + 64
MOST_WAITING = 4096


class Line:
    """One direction. The n-th frame meets the same fate whenever the seed is the same, and frames
    keep their order: one that has drawn a short delay waits for the one before it."""

    def __init__(self, loss, delay, jitter, seed, peer=b""):
        self.loss, self.delay, self.jitter, self.peer = loss / 100, delay / 1000, jitter / 1000, peer
        self.dice = random.Random(seed)
        self.last = 0.0
        self.waiting = collections.deque()

    def due(self, source, now):
        """When a frame from that hardware address is to leave; None: it is lost."""
        if self.peer and source != self.peer:
            return now
        fate, place = self.dice.random(), self.dice.random()
        if fate < self.loss:
            return None
        self.last = max(self.last, now + self.delay + self.jitter * (2 * place - 1))
        return self.last

    def accept(self, data, now):
        due = self.due(data[VNET_HEADER + 6:VNET_HEADER + 12], now)
        if due is not None and len(self.waiting) < MOST_WAITING:
            self.waiting.append((max(due, self.last), data))

    def send(self, to, now):
        """@return when it has to be called again; infinite: not before another frame"""
        while self.waiting and self.waiting[0][0] <= now:
            with contextlib.suppress(OSError):  # the interface is down, or its queue is full
                to.send(self.waiting.popleft()[1])
        return self.waiting[0][0] if self.waiting else float("inf")


def opened(interface):
    """Bound last, so that nothing is received before the options hold."""
    made = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
    made.setblocking(False)
    made.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 1)
    made.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
    made.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 4 << 20)
    made.bind((interface, ETH_P_ALL))
    return made


def main(host_side, bridge_side, loss, delay, jitter, seed, peer=""):
    bad = float(loss), float(delay), float(jitter)
    to_host = Line(*bad, f"{seed} to", bytes.fromhex(peer.replace(":", "")))
    from_host = Line(*((0, 0, 0) if peer else bad), f"{seed} from")
    host, bridge = opened(host_side), opened(bridge_side)
    with contextlib.suppress(OSError):  # a wire does not wait for programs that want to work
        os.setpriority(os.PRIO_PROCESS, 0, -15)
        # Where the kernel groups the processes by their sessions, a priority holds inside the group only.
        pathlib.Path("/proc/self/autogroup").write_text("-15")
    print("ready", flush=True)
    ways = (host, bridge, from_host), (bridge, host, to_host)
    due = float("inf")
    while True:
        pause = None if due == float("inf") else max(0, due - time.monotonic())
        select.select((host, bridge), (), (), pause)
        for source, _, line in ways:
            with contextlib.suppress(OSError):  # none is left, or the interface is down
                for _ in range(64):
                    line.accept(source.recv(LONGEST), time.monotonic())
        due = min(line.send(to, time.monotonic()) for _, to, line in ways)


if __name__ == "__main__":
    main(*sys.argv[1:])
