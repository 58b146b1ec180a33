# SPDX-License-Identifier: Apache-2.0
"""tools/fleet: what Prometheus stores of twenty boards is what these boards did, by their journals."""
import bisect
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time
import urllib.parse
import urllib.request

import pytest

from lyn import BUILD, ROOT, parse_journal

pytestmark = [pytest.mark.release_only, pytest.mark.xdist_group("fleet")]

BOARDS = 20
FOLDER = ROOT / "build/fleet"
PATIENCE = 120  # s, for what takes a few where nobody else works
SAMPLES = 8  # of each board, at least
# What a board does within this time of a scrape may be in it or not: the machine is busy.
SLACK = 1.5  # s
RESTARTS = '[board]\nnoise_db = 0\n[[at]]\nms = 20000\nmodem = "down"\n[[at]]\nms = 32000\nmodem = "up"\n'


@pytest.fixture
def installed():
    """A test fetches no packages."""
    if not (BUILD / "lyn_watch").exists():
        pytest.skip("lyn_watch is not built: its libraries are not installed")
    if not (shutil.which("prometheus") or (ROOT / "build/prometheus/usr/bin/prometheus").exists()):
        pytest.skip("no prometheus, installed or unpacked in build/prometheus")


def free_ports(count):
    """The first of so many that nobody has."""
    for first in range(21000 + os.getpid() % 100 * 100, 60000, count):
        sockets = [socket.socket() for _ in range(count)]
        try:
            for number, one in enumerate(sockets):
                one.bind(("127.0.0.1", first + number))
            return first
        except OSError:
            continue
        finally:
            for one in sockets:
                one.close()
    raise AssertionError("no free ports")


def processes():
    """Those that have to do with the folder: boards by their journal, Prometheus by its configuration."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            told = (process / "cmdline").read_bytes() + (process / "environ").read_bytes()
        except OSError:
            continue
        if str(FOLDER).encode() in told and process.name != str(os.getpid()):
            found.append(process.name)
    return found


class Fleet:
    def __init__(self, *options, count=BOARDS):
        self.port = free_ports(count + 1)
        self.process = subprocess.Popen([ROOT / "tools/fleet", "--port", str(self.port), *options, str(count)],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.said = ""
        while "Prometheus on" not in self.said:
            line = self.process.stdout.readline()
            self.said += line
            assert line, self.said

    def ask(self, path, **query):
        address = f"http://127.0.0.1:{self.port}/api/v1/{path}?{urllib.parse.urlencode(query)}"
        with urllib.request.urlopen(address, timeout=PATIENCE) as answer:
            return json.load(answer)["data"]

    def stored(self, expression):
        """All samples of the last minutes, by the port of the board, as they were stored: time and value."""
        result = self.ask("query", query=f"{expression}[10m]")["result"]
        return {(int(series["metric"]["instance"].split(":")[1]) - self.port, labels(series)): series["values"]
                for series in result}

    def wait(self, matches):
        deadline = time.monotonic() + PATIENCE
        while not (found := matches()):
            assert time.monotonic() < deadline, (FOLDER / "prometheus.log").read_text(encoding="utf-8")[-2000:]
            time.sleep(0.5)
        return found

    def end(self, number):
        self.process.send_signal(number)
        self.process.stdout.close()
        return self.process.wait(PATIENCE)


def labels(series):
    return frozenset((name, value) for name, value in series["metric"].items() if name not in ("instance", "job"))


def journal(number):
    """Rows of a board that has ended, with the time of day of each: the last one was written when the file was."""
    path = FOLDER / f"board-{number}.journal"
    rows = parse_journal(path.read_text(encoding="utf-8"))
    begin = path.stat().st_mtime - rows[-1]["t"]
    return [(begin + row["t"], row) for row in rows]


def rsrp_in(row):
    """What a row tells of LTE's RSRP, which is also that there is none; None: nothing."""
    if row.get("id") not in (79, 81) or row["dir"] == "request":
        return None
    return row["fields"].get("lte_sig_info", {}).get("rsrp", "absent")


def received_in(row):
    if row["name"] != "GetWWANStatistics" or row["dir"] != "return":
        return None
    return row["fields"].get("bytes_rx")


def assert_stored_is_told(samples, told):
    """Each sample is what was told last before it, give or take what may have been under way."""
    times = [at for at, _ in told]
    for at, value in samples:
        begin = max(bisect.bisect_right(times, float(at) - SLACK) - 1, 0)
        end = bisect.bisect_right(times, float(at) + SLACK)
        assert float(value) in {number for _, number in told[begin:end]}, (at, value, told[begin:end])


def of_board(stored, number):
    """The samples of the one series that a board has of these, or none."""
    [samples] = [values for (board, _), values in stored.items() if board == number] or [[]]
    return samples


def rows_of(rows, take):
    return [(at, value) for at, row in rows for value in [take(row)] if value is not None]


def alert_states(fleet, board):
    """How LynModemGone went: states in their order, and whether it is over."""
    instance = f"127.0.0.1:{fleet.port + board}"
    found = fleet.stored(f'ALERTS{{alertname="LynModemGone",instance="{instance}"}}')
    begins = {dict(names)["alertstate"]: float(values[0][0]) for (_, names), values in found.items()}
    active = [alert for alert in fleet.ask("alerts")["alerts"] if alert["labels"].get("instance") == instance
              and alert["labels"]["alertname"] == "LynModemGone"]
    return sorted(begins, key=begins.get), not active


@pytest.mark.usefixtures("installed")
def test_what_is_stored_of_twenty_boards_is_what_they_did(tmp_path):
    scenario = tmp_path / "restarts.toml"
    scenario.write_text(RESTARTS, encoding="utf-8")
    fleet = Fleet("--scrape", "1s", "--alerts-after", "2s", "--board", f"{BOARDS}={scenario}")
    try:
        fleet.wait(lambda: alert_states(fleet, BOARDS) == (["pending", "firing"], True))
        fleet.wait(lambda: min(map(len, fleet.stored("lyn_up").values())) > SAMPLES)
        rsrp = fleet.stored('lyn_rsrp_dbm{radio="lte"}')
        received = fleet.stored("lyn_receive_bytes_total")
        cells = fleet.stored('lyn_serving_cell_info{radio="lte"}')
        reached = [value == "1" for values in fleet.stored("up").values() for _, value in values]
    finally:
        fleet.end(signal.SIGTERM)
    assert not processes()
    # A scrape that takes longer than a second, because the machine is busy, counts as none.
    assert sum(reached) > 0.8 * len(reached) > BOARDS * SAMPLES

    levels = octets = 0
    for number in range(1, BOARDS + 1):
        rows = journal(number)
        samples = of_board(rsrp, number)
        assert_stored_is_told(samples, rows_of(rows, rsrp_in))
        levels += len({value for _, value in samples})
        samples = of_board(received, number)
        assert_stored_is_told(samples, rows_of(rows, received_in))
        octets += len({value for _, value in samples})
        pcis = {dict(names)["pci"] for board, names in cells if board == number}
        assert pcis <= {"214" if number == BOARDS else str(number)} and (pcis or not of_board(rsrp, number))
    # Some are in a tunnel for a while, where nothing is measured, but not all of them.
    assert levels > 2 * BOARDS and octets > SAMPLES * BOARDS / 2


@pytest.mark.usefixtures("installed")
def test_alerts_wait_as_the_rules_say_unless_told_otherwise():
    fleet = Fleet("--scrape", "2s", count=1)
    try:
        groups = fleet.ask("rules")["groups"]
        targets = fleet.wait(lambda: fleet.ask("targets")["activeTargets"])
        assert processes()
    finally:
        fleet.end(signal.SIGINT)
    assert not processes()
    waits = {rule["name"]: rule["duration"] for group in groups for rule in group["rules"] if rule["type"] == "alerting"}
    assert waits["LynModemGone"] == 60 and waits["LynRsrpBelowLastWeek"] == 900
    assert [target["labels"]["instance"] for target in targets] == [f"127.0.0.1:{fleet.port + 1}"]


@pytest.mark.usefixtures("installed")
@pytest.mark.parametrize("taken", ["Prometheus", "board 2"])
def test_port_in_use_is_said_and_nothing_stays(taken):
    first = free_ports(3)
    with socket.create_server(("127.0.0.1", first + (2 if taken == "board 2" else 0))):
        done = subprocess.run([ROOT / "tools/fleet", "--port", str(first), "2"], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=PATIENCE, check=False)
    assert done.returncode == 1
    assert f"{taken} did not start" in done.stdout and "address already in use" in done.stdout.lower(), done.stdout
    assert not processes()


@pytest.mark.parametrize("words, said", [
    (["--help"], "usage: tools/fleet"), ([], "how many boards?"), (["0"], "how many boards?"), (["2", "3"], "one number"),
    (["--port", "x", "2"], "--port takes"), (["--port", "65530", "20"], "--port takes"), (["--scrape", "5", "2"], "--scrape"),
    (["--alerts-after", "soon", "2"], "--alerts-after"), (["--board", "3=/dev/null", "2"], "--board takes"),
    (["--board", "2=/nowhere", "2"], "no such file: /nowhere"), (["--fast", "2"], "unknown option --fast"),
    *((["2", option], f"{option} takes a value") for option in ("--port", "--scrape", "--alerts-after", "--board"))])
def test_words_that_are_no_use_are_named(words, said):
    done = subprocess.run([ROOT / "tools/fleet", *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=PATIENCE, check=False)
    assert said in done.stdout and done.returncode == (0 if words == ["--help"] else 1), done.stdout
