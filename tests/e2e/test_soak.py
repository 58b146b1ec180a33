# SPDX-License-Identifier: Apache-2.0
"""The live picture on a long drive, while ten clients come and go.

All drives in a loop, five hundred rows a second, a modem that restarts every hour of them. Every event of the board, by its
journal, reaches a client that stays, in its order; memory, threads and descriptors stay what they are. Two seconds; half
a minute with LYN_LONG; with LYN_SOAK=N so many rows, at most a day of them. `tools/soak` runs it.
"""
import contextlib
import csv
import json
import os
import pathlib
import random
import re
import socket
import threading
import time

import pytest

import lyn

SPEED = 500  # rows a second
DAY = 86400
HOUR_MS = 3600 * 1000 / SPEED
KEPT = 16384  # events that the server keeps for who is late
CROWD = 10
CONNECTIONS = 64  # at most
SLACK_KIB = 1024  # what the allocator holds back of what is freed

IN_SERVICE = 2
SIGNALS = {"lte_rsrp": ("lte_sig_info", "rsrp"), "lte_rsrq": ("lte_sig_info", "rsrq"), "lte_sinr": ("lte_sig_info", "snr"),
           "nr5g_rsrp": ("nr5g_sig_info", "rsrp"), "nr5g_rsrq": ("nr5g_rsrq", None), "nr5g_sinr": ("nr5g_sig_info", "snr")}
SUBSCRIPTIONS = 8


def wanted_rows():
    if os.environ.get("LYN_SOAK"):
        return min(int(os.environ["LYN_SOAK"]), DAY)
    return 30 * SPEED if os.environ.get("LYN_LONG") else 2 * SPEED


def write_drive(path, count):
    """One drive of so many rows that has all of them, again and again."""
    folder = os.environ.get("LYN_DRIVES")
    rows = []
    for drive in sorted(pathlib.Path(folder).glob("*.csv")) if folder else lyn.DRIVES:
        with open(drive, encoding="utf-8", newline="") as file:
            rows += csv.DictReader(file, restval="")
    names = sorted({name for row in rows for name in row if name})
    with open(path, "w", encoding="utf-8", newline="") as file:
        writer = csv.DictWriter(file, names, restval="", extrasaction="ignore", lineterminator="\n")
        writer.writeheader()
        writer.writerows(rows[number % len(rows)] for number in range(count))


def scenario(drive):
    """The drive waits for the last subscription."""
    restart = f"every_ms = {HOUR_MS}\nrepeat = 24\n"
    return (f'[trace]\nfile = "{drive}"\nspeed = {SPEED}\nafter = "nas.108"\nskip = {SUBSCRIPTIONS - 1}\n'
            f'[[at]]\nms = {HOUR_MS / 6}\nmodem = "down"\n{restart}'
            f'[[at]]\nms = {HOUR_MS / 6 + 150}\nmodem = "up"\n{restart}')


# What has to come


class Owed:
    """One event that the module owes by the journal; `may` be missing where the module may know already."""

    def __init__(self, event, may=False):
        self.event = event
        self.may = may


def registration(fields):
    if fields.get("lte_srv_status_info", {}).get("srv_status") != IN_SERVICE:
        return "no_service"
    return "lte_nr5g" if "nr5g_pci" in fields else "lte"


class Query:
    """One for the registration status, from its request on. What it sees the module knows only when its thread gets to
    it, which may be behind later indications: each that it meets on its way may find its status known."""

    def __init__(self, met):
        self.met = met
        self.status = None

    def meets(self, owed):
        self.met.append(owed)
        owed.may |= owed.event[1] == self.status

    def answered(self, status):
        self.status = status
        for owed in self.met:
            owed.may |= owed.event[1] == status


class Contract:
    """What the module owes its user, line by line of the journal. A query that sees a new registration status first
    takes its event away; a subscription forgets what was delivered last, so that a value may come again behind it."""

    def __init__(self):
        self.owed = []
        self.fixes = []
        self.own = []  # the event of the last indication
        self.seen = set()  # the statuses of it and of the queries since
        self.query = Query([])  # the latest: one thread makes them, and is behind each when it makes the next
        self.last = dict.fromkeys(SIGNALS, 0)
        self.subscribing = dict.fromkeys(SIGNALS, True)
        self.subscribed = 0
        self.over = False

    def add(self, event, may=False):
        self.owed.append(Owed(event, may or self.over))

    def line(self, row):
        name, fields = row["name"], row["fields"]
        if name == "trace_end":
            self.over = True
        elif name == "service_event":
            self.modem(fields["event"] == 0)
        elif name == "config_sig_info" and row["dir"] == "request":
            self.subscribed += 1
        elif name == "get_sys_info" and row["dir"] == "request":
            self.query = Query(self.own.copy())
        elif name == "get_sys_info" and fields["transport"] == 0:
            self.query.answered(registration(fields))
            self.seen.add(registration(fields))
        elif name == "sys_info_ind":
            self.system_information(registration(fields))
        elif name == "sig_info_ind":
            self.signal(fields)
        elif name == "incremental_network_scan_ind":
            self.add(("neighbours",))
        elif name == "location" and row["dir"] == "event":
            self.fixes.append((fields["latitude"], fields["longitude"]))

    def modem(self, up):
        self.add(("modem_status", "up" if up else "down"))
        self.subscribing = dict.fromkeys(SIGNALS, True)
        self.subscribed = 0

    def system_information(self, status):
        self.add(("reg_status", status), status in self.seen)
        self.own, self.seen = self.owed[-1:], {status}
        self.query.meets(self.owed[-1])

    def signal(self, fields):
        for event, (part, member) in SIGNALS.items():
            if part not in fields:
                continue
            value = fields[part][member] if member else fields[part]
            again = value in (self.last[event], 0)
            first = not self.last[event]
            if value != self.last[event] or self.subscribing[event]:
                self.add((event, value), self.subscribing[event] and (again or first))
            self.last[event] = value
            self.subscribing[event] = self.subscribing[event] and self.subscribed < SUBSCRIPTIONS


def first_disagreement(owed, came):
    """Where the events that came are not those that are owed; empty: nowhere. Of those that may be missing all ways are
    followed at once: `places` is how much of `came` may have been met."""
    places = {0}
    for number, one in enumerate(owed):
        after = {place + 1 for place in places if place < len(came) and came[place] == one.event}
        after |= places if one.may else set()
        if not after:
            at = max(places)
            before, behind = [each.event for each in owed[max(0, number - 5) : number]], came[max(0, at - 5) : at + 5]
            return f"event {at + 1}: {one.event} is owed behind {before}; what came about there: {behind}"
        places = after
    return "" if len(came) in places else f"more came than is owed: {came[max(places):][:5]}"


def contract_of(path):
    contract = Contract()
    with open(path, encoding="utf-8") as journal:
        for line in journal:
            if '"message_decode"' not in line and '"trace_row"' not in line:
                contract.line(json.loads(line))
    return contract


# Clients


class Stayer(threading.Thread):
    """A client that follows the events from the first one on; of each it keeps what the contract speaks of."""

    def __init__(self, session):
        super().__init__(daemon=True)
        self.socket = socket.create_connection(session.address, timeout=session.timeout)
        self.socket.sendall(b"GET /api/events HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 0\r\n\r\n")
        self.events, self.fixes, self.other = [], [], []
        self.ids = 0
        self.first = threading.Event()

    def wait(self):
        """Until the first event has come: everything is up by then."""
        assert self.first.wait(self.socket.gettimeout())

    def run(self):
        with self.socket, self.socket.makefile("rb") as stream:
            for line in stream:
                if line.startswith(b"data: "):
                    self.take(json.loads(line[6:]))

    def take(self, record):
        if record["type"] != "event" or record["id"] != self.ids + 1:
            self.other.append(record)
            return
        self.ids += 1
        self.first.set()
        if record["event"] == "loc_single_shot":
            self.fixes.append((record.get("latitude"), record.get("longitude")))
        elif record["event"].endswith("nbr_info"):
            self.events.append(("neighbours",))
        else:
            self.events.append((record["event"], record["value"]))


class Guest(threading.Thread):
    """A client that comes, asks for something, whole or in part, reads it to its end or not, and goes."""

    ASKED = ("/", "/metrics", "/api/snapshot", "/api/history", "/api/events?snapshots", "/api/events", "/nothing")

    def __init__(self, session, seed, ending):
        super().__init__(daemon=True)
        self.session = session
        self.random, self.ending = random.Random(seed), ending
        self.visits = self.refused = 0
        self.wrong = []

    def run(self):
        while not self.ending.wait(self.random.random() * 0.05):
            try:
                self.visit()
            except OSError as error:
                self.wrong.append(error)
            self.visits += 1

    def visit(self):
        path = self.random.choice(self.ASKED)
        request = f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode()
        with socket.create_connection(self.session.address, timeout=self.session.timeout) as connection:
            if self.random.random() < 0.1:
                connection.sendall(request[: self.random.randrange(len(request))])
                return
            connection.sendall(request)
            status = connection.recv(1 << 16)[:12]
            if status == b"HTTP/1.1 503":  # a busy machine still holds those who have gone
                self.refused += 1
            elif status != (b"HTTP/1.1 404" if path == "/nothing" else b"HTTP/1.1 200"):
                self.wrong.append((path, status))
            for _ in range(self.random.randrange(4)):
                connection.recv(1 << 16)


@contextlib.contextmanager
def crowd(session, seed):
    ending = threading.Event()
    guests = [Guest(session, f"{seed} {number}", ending) for number in range(CROWD)]
    for guest in guests:
        guest.start()
    try:
        yield guests
    finally:
        ending.set()
        for guest in guests:
            guest.join()


# What it takes


class Usage:
    def __init__(self, session):
        process = pathlib.Path(f"/proc/{session.launch.pid()}")
        status = (process / "status").read_text(encoding="ascii")
        self.resident_kib = int(re.search(r"VmRSS:\s+(\d+)", status)[1])
        self.threads = int(re.search(r"Threads:\s+(\d+)", status)[1])
        self.descriptors = len(list((process / "fd").iterdir()))

    def __str__(self):
        return f"{self.resident_kib} KiB resident, {self.threads} threads, {self.descriptors} descriptors"


def alone(session, as_before):
    """What the process takes once the others' connections have ended."""
    deadline = time.monotonic() + session.timeout
    while True:
        now = Usage(session)
        if (now.threads, now.descriptors) == (as_before.threads, as_before.descriptors):
            return now
        assert time.monotonic() < deadline, f"{now}; before anybody came: {as_before}"
        time.sleep(0.1)


class Ride:
    """The drive as it goes on: which row is in force, and what the process took on the way, once the server keeps as many
    events as it ever will."""

    def __init__(self, session, stayer):
        self.session, self.stayer = session, stayer
        self.read = self.row = 0
        self.looks = []

    def go_on(self):
        with open(self.session.launch.journal_path, "rb") as journal:
            journal.seek(self.read)
            for line in journal:
                self.read += len(line)
                found = re.search(rb'"rows?": (\d+)\}\}\n', line)  # the end of the drive counts them
                self.row = int(found[1]) if found else self.row

    def until(self, row):
        while self.row < row:
            assert not self.stayer.other and self.stayer.is_alive(), self.stayer.other[:3]
            now = Usage(self.session)
            assert max(now.threads, now.descriptors) <= CONNECTIONS + 32, now
            if self.stayer.ids > KEPT:
                self.looks.append(now)
            time.sleep(0.25)
            self.go_on()


@pytest.mark.release_only
def test_every_event_reaches_a_client_that_stays_while_others_come_and_go(watch, tmp_path):
    rows, seed = wanted_rows(), os.environ.get("LYN_SEED") or str(random.randrange(1 << 32))
    print(f"LYN_SEED={seed}")
    write_drive(tmp_path / "drive.csv", rows)
    options = ("--serve", "0", "--every", "500ms", "--scan", "500ms", "--locate", "500ms")
    with watch.session(*options, scenario=scenario(tmp_path / "drive.csv")) as session:
        stayer = Stayer(session)
        stayer.start()
        stayer.wait()
        before = Usage(session)
        ride = Ride(session, stayer)
        with crowd(session, seed) as guests:
            ride.until(rows * 3 // 4)
        after = alone(session, before)  # streams to those who have gone end with the next event
        ride.until(rows)
        assert session.terminate() == 0
        stayer.join()
        contract = contract_of(session.launch.journal_path)
    assert not stayer.other, stayer.other[:3]
    assert not [wrong for guest in guests for wrong in guest.wrong]
    visits, refused = (sum(getattr(guest, what) for guest in guests) for what in ("visits", "refused"))
    print(f"{rows} rows, {stayer.ids} events, {len(stayer.fixes)} fixes, {visits} visits, {refused} too many")
    assert refused < visits
    print(f"before: {before}\nafter: {after}")
    assert first_disagreement(contract.owed, stayer.events) == ""
    assert stayer.fixes == contract.fixes[: len(stayer.fixes)] and len(contract.fixes) - len(stayer.fixes) <= 1
    if ride.looks and lyn.BUILD.name == "release":  # sanitizers hold back what is freed
        warm, most = ride.looks[len(ride.looks) // 4], max(look.resident_kib for look in ride.looks)
        print(f"warm: {warm}, at most {most} KiB")
        assert most <= warm.resident_kib + SLACK_KIB
