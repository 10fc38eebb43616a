#!/usr/bin/env python3
"""The third host of "velarix-lab hostile": carries one attack out in the network it is started in.

The orders are JSON on standard input (Attacker.cpp writes them). What it has done so far goes to
standard output, a line of JSON whenever that has changed; with "problem" in it the attack failed.
It goes on until the attack is over or SIGTERM comes.
"""
import json
import os
import signal
import sys
import threading

from attacker_frames import Attacker

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
    "arp-announcements": lambda attacker: attacker.send_arp(attacker.orders["virtual"], at_once=1),
    "arp-claims": lambda attacker: attacker.spoof("service", "targetService", "virtual"),
    "arp-requests": lambda attacker: attacker.send_arp(attacker.orders["ownService"]),
    "arp-probes": lambda attacker: attacker.send_arp("0.0.0.0"),
    "arp-malformed": Attacker.send_malformed,
    "arp-answers": Attacker.answer_probes,
    "address-removals": Attacker.remove_address,
}


def print_changes(attacker, ended):
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
    printer = threading.Thread(target=print_changes, args=(attacker, ended))
    printer.start()
    problem = {}
    try:
        ATTACKS[attacker.orders["attack"]](attacker)
    except Exception as error:  # whatever it is, the lab has to hear of it
        problem = {"problem": repr(error)}
    ended.set()
    printer.join()
    print(attacker.report(**problem), flush=True)
    # A connection attempt under way waits for nobody.
    os._exit(1 if problem else 0)


if __name__ == "__main__":
    main()
