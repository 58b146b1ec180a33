# SPDX-License-Identifier: Apache-2.0
"""The live picture over HTTP: what it tells, and what no client can do to it."""
import contextlib
import itertools
import json
import os
import pathlib
import random
import re
import shutil
import socket
import subprocess
import threading
import time

import pytest

import lyn
import watching

QUIET = "[board]\nnoise_db = 0\n"
LTE_ONLY = QUIET + "[sys_info]\nnr5g_pci = -1\n[lte]\ncqi = []\n"
NO_CELL = QUIET + "[sys_info]\nnr5g_pci = -1\n[lte]\ntac = \"absent\"\n"  # then its part of the answer is not valid
CELL = 'lyn_serving_cell_info{radio="lte",plmn="272-01",pci="214",cgi="10607298",tac="6699",channel="1300"}'
BUSY = "[board]\ntick_ms = 1\nnoise_db = 100\n"
KEPT = 16384
CLIENTS = 64


def up(metrics):
    return metrics["lyn_up"] == "1"


def events_in(metrics):
    return sum(int(value) for name, value in metrics.items() if name.startswith("lyn_events_total"))


@contextlib.contextmanager
def serving(watch, *options, scenario=QUIET, **named):
    """A run that serves on a free port, and has read everything once."""
    with watch.session("--serve", "0", *options, scenario=scenario, **named) as session:
        session.wait_metrics(lambda found: up(found) and any(name.startswith("lyn_tx_power") for name in found))
        yield session


class Client:
    """A connection to write to and read from, octet by octet."""

    def __init__(self, session):
        self.socket = socket.create_connection(session.address, timeout=session.timeout)
        self.data = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)
        return self

    def read(self):
        """What comes next; empty at the end, also at one with a reset."""
        try:
            chunk = self.socket.recv(1 << 16)
        except ConnectionResetError:
            return b""
        self.data += chunk
        return chunk

    def read_until(self, wanted):
        while wanted not in self.data:
            assert self.read(), self.data[-2000:]
        return self.data

    def read_to_end(self):
        while self.read():
            pass
        return self.data

    def status(self):
        """Of the answer that comes next; None: the connection ends."""
        while b"\r\n" not in self.data and self.read():
            pass
        return int(self.data.split()[1]) if self.data else None


def get(path, fields=""):
    return f"GET {path} HTTP/1.1\r\nHost: localhost\r\n{fields}\r\n".encode()


def events_of(data):
    """The records of a stream of events."""
    return [json.loads(line[6:]) for line in data.split(b"\n") if line.startswith(b"data: ")]


# What it tells


def test_metrics_are_what_the_board_measures(watch):
    with serving(watch, "--scan", "1s", "--name", "bench") as session:
        found = session.wait_metrics(lambda found: 'lyn_neighbours{radio="nr5g"}' in found)
        expected = {
            'lyn_board_info{board="bench"}': "1",
            'lyn_registration{state="lte_nr5g"}': "1",
            'lyn_registration{state="lte"}': "0",
            'lyn_rsrp_dbm{radio="lte"}': "-95",
            'lyn_rsrq_db{radio="lte"}': "-11",
            'lyn_sinr_db{radio="lte"}': "13",
            'lyn_sinr_db{radio="nr5g"}': "15",
            'lyn_tx_power_dbm{radio="nr5g"}': "15",
            'lyn_cqi{radio="lte",carrier="0",codeword="1"}': "11",
            CELL: "1",
            'lyn_neighbours{radio="lte"}': "1",
            'lyn_neighbour_rsrp_dbm{radio="lte",channel="1300",pci="301"}': "-101",
            'lyn_neighbour_rsrq_db{radio="lte",channel="1300",pci="301"}': "-14",
            'lyn_events_total{indication="loc_batch"}': "0",
            'lyn_receive_dropped_packets_total{profile="1",family="ipv4"}': "0",
        }
        assert {name: found.get(name) for name in expected} == expected
        assert float(found['lyn_receive_bytes_total{profile="1",family="ipv4"}']) > 0
        assert float(found['lyn_requests_total{metric="registration",status="success"}']) >= 1


def test_a_location_is_told_once_it_is_known(watch):
    scenario = QUIET + "[location]\ncapabilities_ms = 0\nlatitude = 51.5\nlongitude = -8.5\nspeed = 2.5\nfix_ms = 10\n"
    with serving(watch, "--locate", "500ms", scenario=scenario) as session:
        found = session.wait_metrics(lambda found: "lyn_location_latitude_degrees" in found)
        assert found["lyn_location_latitude_degrees"] == "51.5"
        assert found["lyn_location_longitude_degrees"] == "-8.5"
        assert found["lyn_location_speed_meters_per_second"] == "2.5"


def test_what_is_not_measured_has_no_series(watch):
    with serving(watch, scenario=LTE_ONLY) as session:
        found = session.metrics()
        assert 'lyn_rsrp_dbm{radio="lte"}' in found
        assert CELL in found
        assert [name for name in found if 'radio="nr5g"' in name] == ['lyn_cell_changes_total{radio="nr5g"}']
        assert not [name for name in found if name.startswith(("lyn_cqi", "lyn_neighbour", "lyn_location"))]
    with serving(watch, scenario=NO_CELL) as session:
        assert not [name for name in session.metrics() if name.startswith("lyn_serving_cell_info")]


def test_a_modem_that_is_gone_leaves_nothing_that_was_measured_and_comes_back(watch):
    scenario = QUIET + '[[at]]\nms = 1500\nmodem = "down"\n[[at]]\nms = 4000\nmodem = "up"\n'
    with serving(watch, "--every", "100ms", scenario=scenario) as session:
        found = session.wait_metrics(lambda found: not up(found))
        assert {re.match(r"\w+", name)[0] for name in found} == {
            "lyn_up", "lyn_build_info", "lyn_board_info", "lyn_reading_age_seconds", "lyn_cell_changes_total",
            "lyn_events_total", "lyn_requests_total", "lyn_request_duration_seconds_bucket", "lyn_request_duration_seconds_sum",
            "lyn_request_duration_seconds_count"}
        health = session.get("/health")
        assert health.status == 503 and json.loads(health.body)["state"] == "down"
        assert json.loads(session.get("/api/snapshot").body)["up"] is False
        found = session.wait_metrics(up)
        assert session.get("/health").status == 200
        session.wait_metrics(lambda found: found.get('lyn_rsrp_dbm{radio="lte"}') == "-95")


def test_a_modem_that_was_never_there_is_told_to_be_absent(watch):
    with watch.session("--serve", "0", scenario="[nas]\navailable = false\n") as session:
        found = session.metrics()
        assert found["lyn_up"] == "0" and "lyn_reading_age_seconds" not in found
        health = json.loads(session.get("/health").body)
        assert health["up"] is False and "age_seconds" not in health
        assert session.terminate() == 0


def test_a_scrape_asks_the_modem_nothing(watch):
    with serving(watch, "--json", "--every", "1h") as session:
        session.wait_record(lambda record: record["type"] == "snapshot")  # behind the one reading
        before = lyn.read_text(session.launch.journal_path)
        for path in ("/metrics", "/api/snapshot", "/api/history", "/health", "/", "/metrics"):
            assert session.get(path).status == 200
        requests = [row for row in lyn.parse_journal(lyn.read_text(session.launch.journal_path)[len(before):])
                    if row["dir"] == "request"]
        assert not requests


@pytest.mark.parametrize("scenario", ["motorway_drive", "neighbours", "traffic", "no_service", None])
def test_promtool_is_content(watch, scenario):
    unpacked = lyn.ROOT / "build/prometheus/usr/bin/promtool"
    promtool = shutil.which("promtool") or (unpacked.exists() and str(unpacked))
    if not promtool:
        pytest.skip("promtool is not installed, and not in build/prometheus")
    env = {"LYN_SIM_SCENARIO": str(lyn.ROOT / f"scenarios/{scenario}.toml")} if scenario else None
    text = None if scenario else "[nas]\navailable = false\n"
    with watch.session("--serve", "0", "--scan", "1s", "--locate", "1s", scenario=text, env=env) as session:
        if scenario:
            session.wait_metrics(lambda found: up(found) and 'lyn_events_total{indication="lte_nbr_info"}' in found)
        body = session.get("/metrics").body
    check = subprocess.run([promtool, "check", "metrics"], input=body, capture_output=True, text=True, check=False)
    assert (check.returncode, check.stdout, check.stderr) == (0, "", "")


def test_a_snapshot_is_that_of_the_records(watch):
    with serving(watch, "--json", "--name", "bench") as session:
        answer = session.get("/api/snapshot")
        assert answer.headers["Content-Type"] == "application/json"
        record = json.loads(answer.body)
        line = session.wait_record(lambda record: record["type"] == "snapshot" and "lte" in record)
        assert {**record, "time": 0, "age": 0} == {**line, "time": 0, "age": 0}
        assert record["board"] == "bench" and record["lte"]["rsrp"] == -95
        assert session.terminate() == 0


def test_history_is_what_was_measured(watch):
    scenario = LTE_ONLY + "[[at]]\nms = 1500\nlte = { rsrp = -101 }\n"
    with serving(watch, "--every", "100ms", scenario=scenario) as session:
        session.wait_metrics(lambda found: found.get('lyn_rsrp_dbm{radio="lte"}') == "-101")
        answer = session.get("/api/history")
        assert answer.headers["Content-Type"] == "application/json"
        history = json.loads(answer.body)
        watching.HISTORY.validate(history)
        assert history["every"] == 0.1 and "nr5g" not in history
        assert set(history["lte"]) == {"rsrp", "rsrq", "sinr", "tx_power"}
        agos, values = zip(*history["lte"]["rsrp"])
        assert list(agos) == sorted(set(agos), reverse=True)
        assert set(values) == {-95, -101} and values[-1] == -101
    with watch.session("--serve", "0", scenario="[nas]\navailable = false\n") as session:
        history = json.loads(session.get("/api/history").body)
        watching.HISTORY.validate(history)
        assert set(history) == {"time", "every"}


def test_serving_alone_prints_nothing_on_standard_output(watch):
    with serving(watch) as session:
        assert session.get("/").status == 200
        assert session.terminate() == 0
        assert session.console == ""
        assert session.errors.text().count("lyn_watch:") == 1


# Events


def test_events_come_as_they_happen_and_again_behind_the_last_one_seen(watch):
    scenario = QUIET + "[[at]]\nms = 1500\nlte = { rsrp = -101 }\n[[at]]\nms = 2500\nlte = { rsrp = -107 }\n"
    with serving(watch, scenario=scenario) as session:
        with Client(session) as client:
            client.send(get("/api/events"))
            data = client.read_until(b'"value":-107}\n\n')
        assert b"\r\nContent-Type: text/event-stream\r\n" in data
        records = events_of(data)
        assert [record["id"] for record in records] == list(range(1, len(records) + 1))
        [seen] = [record for record in records if record["event"] == "lte_rsrp" and record["value"] == -101]
        assert f'\n\nid: {seen["id"]}\nevent: event\ndata: {{'.encode() in data
        with Client(session) as client:
            client.send(get("/api/events", f"Last-Event-ID: {seen['id']}\r\n"))
            assert events_of(client.read_until(b'"value":-107}\n\n'))[0]["id"] == seen["id"] + 1
        with Client(session) as client:  # of another run, as it seems
            client.send(get("/api/events", "Last-Event-ID: 1000000\r\n"))
            assert events_of(client.read_until(b'"value":-107}\n\n'))[0]["id"] == 1


def test_snapshots_come_among_the_events_if_asked_for(watch):
    scenario = QUIET + '[[at]]\nms = 2000\nmodem = "down"\n[[at]]\nms = 4000\nmodem = "up"\n'
    with serving(watch, "--every", "200ms", scenario=scenario) as session:
        with Client(session) as client:
            client.send(get("/api/events?snapshots"))
            client.read_until(b'"state":"down"')
            came = len(client.data)
            while b'"rsrp":-95' not in client.data[came:]:
                assert client.read()
        whole = client.data[: client.data.rindex(b"\n\n") + 2]
        assert b"event: snapshot\ndata: {" in whole and b"\nevent: snapshot\nid:" not in whole
        records = watching.parse("".join(json.dumps(record) + "\n" for record in events_of(whole)))
        assert records[0]["type"] == "snapshot"
        states = [record["state"] for record in records if record["type"] == "snapshot"]
        assert [state for state, _ in itertools.groupby(states)] == ["up", "down", "up"]
        ids = [record["id"] for record in records if record["type"] == "event"]
        assert ids == list(range(1, len(ids) + 1))
        with Client(session) as client:
            assert b"event: snapshot" not in client.send(get("/api/events?all")).read_until(b'"event":"modem_status"')


def test_events_that_are_not_kept_any_more_are_told_as_missed(watch):
    with serving(watch, "--every", "1h", scenario=BUSY, timeout=60) as session:
        session.wait_metrics(lambda found: events_in(found) > KEPT + 1000)
        with Client(session) as client:
            client.send(get("/api/events", "Last-Event-ID: 1\r\n"))
            data = client.read_until(b'"type":"event"')
        missed = events_of(data[: data.rindex(b"\nid: ")])[0]
        assert missed["type"] == "missed" and f"id: {1 + missed['count']}\nevent: missed\n".encode() in data


# Requests


def test_every_answer_forbids_what_a_page_could_do_with_it(watch):
    with serving(watch) as session:
        for path in ("/", "/page.js", "/chart.js", "/metrics", "/api/snapshot", "/api/history", "/health", "/nothing",
                     "/%", "/" + 2000 * "a"):
            answer = session.get(path)
            assert answer.headers["Content-Security-Policy"].startswith("default-src 'none'"), path
            assert answer.headers["X-Content-Type-Options"] == "nosniff"
            assert answer.headers["Referrer-Policy"] == "no-referrer"
            assert answer.headers["Cache-Control"] == "no-store"
            assert answer.headers["Cross-Origin-Resource-Policy"] == "same-origin"
            assert not [name for name in answer.headers if name.lower().startswith("access-control")]
        assert session.get("/metrics").headers["Content-Type"] == "text/plain; version=0.0.4; charset=utf-8"


def test_the_documented_routes_are_those_there_are(watch):
    table = lyn.read_text(lyn.ROOT / "docs/watch.md").partition("| route | what it answers |")[2].partition("\n\n")[0]
    paths = re.findall(r"`(/\S*)`", table)
    assert {"/", "/page.js", "/chart.js", "/metrics", "/api/history", "/api/events?snapshots", "/health"} <= set(paths)
    with serving(watch) as session:
        for path in paths:
            answer = session.get(path, method="HEAD")
            assert (answer.status, answer.body) == (200, ""), path
        page = session.get("/").body
        loaded = re.findall(r'(?:src|href)="([^"#:]+)"', page)
        assert {"page.css", "page.js", "chart.js"} <= set(loaded)
        assert {session.get("/" + path).status for path in loaded} == {200}


def test_only_reading_is_allowed(watch):
    with serving(watch) as session:
        for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE"):
            answer = session.get("/metrics", method=method)
            assert (answer.status, answer.headers["Allow"]) == (405, "GET, HEAD"), method
        assert session.get("/metrics/").status == 404


def test_one_connection_serves_many_requests(watch):
    with serving(watch) as session:
        connection = session.connection()
        for path, status in [("/health", 200), ("/nothing", 404), ("/metrics", 200)]:
            connection.request("GET", path)
            own = connection.sock.getsockname()
            answer = connection.getresponse()
            answer.read()
            assert answer.status == status and connection.sock.getsockname() == own
        connection.close()


def test_hosts_that_anybody_can_name_so_are_refused(watch):
    with serving(watch) as session:
        for host in ("localhost", f"localhost:{session.address[1]}", "127.0.0.1", "[::1]:80", socket.gethostname()):
            assert session.get("/metrics", Host=host).status == 200, host
        for host in ("evil.example", "evil.example:9750", "localhost.evil.example", ""):
            assert session.get("/metrics", Host=host).status == 421, host
        with Client(session) as client:
            assert client.send(b"GET / HTTP/1.1\r\n\r\n").status() == 400


@pytest.mark.parametrize("request_, status", [
    (get("/" + 2000 * "a"), 414),
    (b"GET /" + 20000 * b"a", 414),
    (get("/", f"X: {9000 * 'x'}\r\n"), 431),
    (get("/", 2000 * "X: y\r\n"), 431),
    (get("/", "Content-Length: 100000\r\n") + 100000 * b"x", 413),
    (get("/", "Transfer-Encoding: chunked\r\n") + b"5\r\nhello\r\n", 413),
    (get("/", "Expect: 100-continue\r\nContent-Length: 5\r\n"), 413),
    (b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\n\n", 400),
    (b"GET / HTTP/2.0\r\nHost: localhost\r\n\r\n", 400),
], ids=range(9))
def test_what_is_too_much_or_malformed_is_refused_and_ends_the_connection(watch, request_, status):
    with serving(watch) as session:
        with Client(session) as client:
            client.send(request_)
            answer = client.read_to_end()
            assert answer.startswith(f"HTTP/1.1 {status} ".encode())
            assert b"\r\nConnection: close\r\n" in answer
        assert session.get("/health").status == 200


def test_a_request_that_is_sent_bit_by_bit_is_cut_off(watch):
    with serving(watch) as session:
        with Client(session) as client:
            done = threading.Event()

            def dribble():
                with contextlib.suppress(OSError):
                    for octet in get("/", f"X: {1000 * 'x'}\r\n"):
                        client.send(bytes([octet]))
                        if done.wait(0.5):
                            break

            thread = threading.Thread(target=dribble)
            thread.start()
            assert client.status() in (408, None)
            done.set()
            thread.join()


def test_thousands_of_malformed_requests_harm_nobody(watch):
    seed = int(os.environ.get("LYN_SEED") or random.randrange(1 << 32))
    print(f"LYN_SEED={seed}")
    generator = random.Random(seed)
    seeds = [path.read_bytes()[1:] for path in sorted((lyn.ROOT / "tests/fuzz/corpus/watch_http").iterdir())]
    bits = [b"\r\n", b"\n", b" ", b":", b"\0", b"%", b"HTTP/1.1", b"Host: localhost\r\n", b"Range: bytes=-\r\n",
            b"Content-Length: 99999999999999999999\r\n", b"\xff\xfe", b"/../", b"?" * 50, b"Connection: close\r\n"]

    def mutated():
        data = bytearray(generator.choice(seeds))
        for _ in range(generator.randrange(1, 6)):
            at = generator.randrange(len(data) + 1)
            data[at: at + generator.choice([0, 0, 1, 5])] = generator.choice([*bits, generator.randbytes(3)])
        return bytes(data)

    with serving(watch) as session:
        for _ in range(3000 // lyn.SCALE):
            data = mutated()
            with Client(session) as client:
                with contextlib.suppress(ConnectionError):
                    client.send(data)
                    client.socket.shutdown(socket.SHUT_WR)
                answer = client.read_to_end()
                statuses = [int(status) for status in re.findall(rb"(?m)^HTTP/1.1 (\d+) ", answer)]
                assert statuses and all(status == 200 or 400 <= status < 500 for status in statuses), data
        assert session.get("/health").status == 200
        assert session.terminate() == 0


# Clients


@pytest.fixture(params=["idle", "events"])
def crowd(request, watch):
    """A run with as many clients as there may be; all of them say nothing, or follow events."""
    path = "/health" if request.param == "idle" else "/api/events"
    with serving(watch) as session, contextlib.ExitStack() as stack:
        clients = []
        while len(clients) < CLIENTS:
            client = stack.enter_context(Client(session)).send(get(path))
            if client.status() == 200:  # the place of a client that is just leaving is not free yet
                clients.append(client)
        yield session, clients


def test_one_client_too_many_is_told_so_and_finds_a_place_later(crowd):
    session, clients = crowd
    for _ in range(3 * CLIENTS):
        refused = session.get("/health")
        assert refused.status == 503 and refused.headers["Connection"] == "close"
        assert refused.headers["X-Content-Type-Options"] == "nosniff"
        assert int(refused.headers["Content-Length"]) == len(refused.body)
    clients[5].socket.close()
    deadline = time.monotonic() + session.timeout
    while session.get("/health").status == 503:
        assert time.monotonic() < deadline
        time.sleep(0.05)


def test_a_signal_ends_it_whoever_is_connected(crowd):
    session, clients = crowd
    assert session.terminate() == 0
    for client in clients:
        client.read_to_end()


@pytest.mark.release_only
def test_a_client_that_does_not_read_is_dropped(watch):
    def threads(session):
        """How many there are, but for those of connections that are just ending."""
        counts = []
        while len(counts) < 5 or len(set(counts[-5:])) > 1:
            counts.append(len(list(pathlib.Path(f"/proc/{session.launch.pid()}/task").iterdir())))
            time.sleep(0.05)
        return counts[-1]

    with serving(watch, "--every", "1h", scenario=BUSY, timeout=60) as session:
        session.wait_metrics(lambda found: events_in(found) > KEPT + 1000)
        before = threads(session)
        with Client(session) as client:
            client.send(get("/api/events"))
            assert client.status() == 200 and threads(session) > before
            deadline = time.monotonic() + session.timeout
            while threads(session) > before:
                assert time.monotonic() < deadline


# Where it listens


def test_the_address_is_said_and_serves(watch):
    for option, host in [("127.0.0.1:0", "127.0.0.1"), ("[::1]:0", "::1"), ("localhost:0", None),
                         ("0.0.0.0:0", "0.0.0.0")]:
        if host == "::1" and not pathlib.Path("/proc/net/if_inet6").exists():
            continue
        with watch.session("--serve", option, scenario=QUIET) as session:
            assert host in (None, session.address[0])
            assert session.get("/").status == 200
            assert session.terminate() == 0


@pytest.mark.parametrize("option", ["", "x", "65536", ":80", "::1:80", "[::1]", "localhost", "a b:x"])
def test_what_is_no_address_is_wrong_use(watch, option):
    result = watch.run("--serve", option, scenario=QUIET)
    assert result.status == 2 and result.console == ""
    assert "--serve" in result.stderr and "[ADDR:]PORT" in result.stderr


def test_an_address_that_cannot_be_had_is_one_line(watch):
    with serving(watch) as session:
        port = session.address[1]
        for option, host, reason in [(f"{port}", "127.0.0.1", "Address already in use"),
                                     (f"192.0.2.1:{port}", "192.0.2.1", "Cannot assign requested address"),
                                     (f"no.such.host.invalid:{port}", "no.such.host.invalid", "[^(]+")]:
            result = watch.run("--serve", option, scenario=QUIET)
            assert result.status == 1 and result.console == ""
            assert re.fullmatch(rf"lyn_watch: cannot serve on {re.escape(host)}, port {port}: {reason}\n", result.stderr)


# The service


def test_the_service_is_closed_off():
    analyze = shutil.which("systemd-analyze")
    if not analyze:
        pytest.skip("systemd-analyze is not installed")
    unit = lyn.ROOT / "contrib/systemd/lyn_watch.service"
    result = subprocess.run([analyze, "security", "--offline=true", "--no-pager", str(unit)], capture_output=True,
                            text=True, check=False)
    level = re.search(r"Overall exposure level for lyn_watch.service: ([\d.]+)", result.stdout)
    assert level, result.stderr
    assert float(level[1]) <= 2.0
