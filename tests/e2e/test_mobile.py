# SPDX-License-Identifier: Apache-2.0
"""Location and mobile AP at the prompt: metrics 44 to 53 by option 7 and option 8, controls 1 and 2, good and bad.

A transcript shows step by step the lines typed, what was printed for them and by the callback, what crossed the boundary
to the location library and the mobile AP, and what the module logged of it. Callbacks come later than a prompt needs to
come back, so that each has its place.
"""
import json
import os
import re
import time

import pytest

from lyn import AUTO_DONE, PROMPT, SCALE, Session, read_text
from test_main_loop import MENU

LATER = 80 * SCALE  # ms: well behind the prompt, well before anybody gets impatient
EVENT_LINE = r"(?:Modem Throughput Configuration successfull)?LYN DEMO APP CALLBACK - .*\n"
LIBRARIES = ("location", "oxmap")
LOGS = ("lyn_gps.cpp", "lyn_oxmap_interface.cpp", "lyn_interface_get.cpp", "lyn_interface_set.cpp",
        "lyn_interface_event.cpp", "lyn_interface_mtpe.cpp")


class Steps:
    """A session that is typed at step by step; `text` is its transcript."""

    def __init__(self, session):
        self.session = session
        self.text = ""
        self.printed = 0
        self.read = {}
        self._wait(PROMPT, 0)

    def _wait(self, text, start):
        """Wait until the program has printed a text behind an offset; what is printed counts as seen up to its end."""
        end = self.session.output.find(text.encode(), start, self.session.timeout)
        assert end is not None, f"{text!r} was not printed behind {self.session.console[start:]}"
        self.printed = max(self.printed, end)
        return end

    def _wait_logged(self, text, start):
        deadline = time.monotonic() + self.session.timeout
        while text not in read_text(self.session.launch.diag_path)[start:]:
            assert time.monotonic() < deadline, f"{text!r} was not logged"
            time.sleep(0.01)

    def _new(self, path):
        """The complete lines of a file since the last call."""
        text = read_text(path)[self.read.get(path, 0):]
        text = text[:text.rfind("\n") + 1]
        self.read[path] = self.read.get(path, 0) + len(text)
        return text.splitlines()

    def register(self, logged):
        """Bring the module up; what the board's threads tell it meanwhile has no order, and no place in the text."""
        self.type("1")
        for text in ("Mobile AP Connected...", *logged):
            self._wait_logged(text, 0)
        self._new(self.session.launch.journal_path)
        self._new(self.session.launch.diag_path)
        self.text = ""

    def type(self, *lines, until=(), logged=""):
        """Type an option line and its answers, and wait until its last event has printed texts or logged one."""
        start, seen = self.printed, len(read_text(self.session.launch.diag_path))
        for line in lines:
            self.session.send(line)
        self._wait(PROMPT, start)
        end = start
        for text in (until,) if isinstance(until, str) else until:
            end = self._wait(text, end)
        if logged:
            self._wait_logged(logged, seen)
        self.text += f"> {' | '.join(lines)}\n{self._console(start)}"
        for line in self._new(self.session.launch.journal_path):
            row = json.loads(line)
            if row["lib"] in LIBRARIES and row["name"] != "toString":
                self.text += f"  {row['dir']:10} {row['name']} {json.dumps(row['fields'])}\n"
        for line in self._new(self.session.launch.diag_path):
            level, place, text = line.split(" ", 2)
            if place.split(":")[0] in LOGS:
                self.text += f"  {level:10} {text}\n"

    def _console(self, start):
        """What was printed from an offset on, without the menu. The callback's lines come last: an event of a request
        that fails at once may overtake the request's own lines."""
        text = self.session.console[start:self.printed]
        events = "".join(re.findall(EVENT_LINE, text))
        text = re.sub(EVENT_LINE, "", text)
        assert text.count(MENU) == 1, text
        text = text.replace(MENU, "") + events
        return text if text.endswith("\n") else text + "\n"


@pytest.fixture
def transcript(demo, goldens):
    """A transcript of one or more registered sessions, each on its own board, to be compared at the end."""
    parts = []

    def session(scenario, steps, logged=()):
        with demo.session(scenario, limit=32 << 20) as running:
            at = Steps(running)
            at.register(logged)
            steps(at.type)
            at.type("2")
            assert running.terminate() == 0
            assert running.errors.text() == ""
        parts.append(at.text)

    def compare(name):
        goldens.check(name, console="\n".join(parts))

    session.compare = compare
    return session


def fault(call, skip=0, **values):
    return (f'[[fault]]\non = "{call}"\nskip = {skip}\n'
            + "".join(f"{name} = {value}\n" for name, value in values.items()))


# Location -----------------------------------------------------------------------------------------------------------

CAPABLE = ("onCapabilitiesCb",)
LAST_TIME = " Timestamp is 22 \n"
LAST_OF_BATCH = ("Batching location entry 1 : \n", LAST_TIME)
RECEIVER = f"""board.noise_db = 0
[location]
capabilities_ms = 0
late_ms = {LATER}
fix_ms = 1
batch = 2
latitude = 51.897463
longitude = -8.480187
altitude = 36.5
speed = 1.25
bearing = 271.5
horizontal_accuracy = 5
vertical_accuracy = 8
speed_accuracy = 0.5
bearing_accuracy = 10
timestamp = 1767225600000
flags = 0x7FF
tech_mask = 3
extra_time = [11, 22]
"""


def locate(type_):
    type_("7 50", "60000", "25.5", until=LAST_TIME)
    type_("8 50", "30000", "abc", until=LAST_TIME)
    type_("9 1")  # the fix has come
    type_("7 50", "60000", "1", logged="single_shot_response is 0")  # no fix from here on
    type_("7 50", "60000", "1")
    type_("8 50", "60000", "1")
    type_("9 1", until="single shot location stop successful is 0 \n")
    type_("9 1")
    type_("7 51", "80", until=LAST_OF_BATCH)
    type_("7 51", "1")
    type_("8 51", "1")
    type_("9 2")
    type_("9 2")


def locate_without_capabilities(type_):
    for line in ("7 50", "8 50"):
        type_(line, "1000", "1")
    for line in ("7 51", "8 51"):
        type_(line, "1000")
    type_("9 1")
    type_("9 2")


def locate_refused(type_):
    type_("7 50", "60000", "1", until="single shot location response is 3 \n")
    type_("8 50", "60000", "1", until="single shot location response is 5 \n")
    type_("7 51", "1000")
    type_("7 51", "1000", until="pos cnt 0 \n")
    type_("9 2")
    type_("8 51", "400", until="batching status: 2, pos cnt 0 \n")


def test_location_session(transcript):
    quiet = (f'[[at]]\nafter = "location.getSinglePosition"\nskip = 1\nms = {LATER // 2}\nlocation.fix_ms = -1\n'
             '[[at]]\nafter = "location.toString"\nskip = 2\nlocation.batch = 300\n')
    refusals = (fault("location.getSinglePosition", result=1, error=3)
                + fault("location.getSinglePosition", 1, result=1, error=5)
                + fault("location.startRoutineBatchingSession")
                + fault("location.startRoutineBatchingSession", 1, result=1, error=7))
    transcript(RECEIVER + quiet, locate, logged=CAPABLE)
    transcript(RECEIVER.replace("capabilities_ms = 0", "capabilities_ms = -1"), locate_without_capabilities)
    transcript(RECEIVER.replace("batch = 2", "batch = 1\nbatch_status = 2") + refusals, locate_refused, logged=CAPABLE)
    transcript.compare("location")


# Profiles, statistics, test information, QoS flows ------------------------------------------------------------------

MANAGER = f"""board.noise_db = 0
location.capabilities_ms = -1
[wwan.qos]
bearer = 250
tx_5qi = 7
rx_5qi = 9
answer_ms = {LATER}
[[wwan.profile]]
index = 1
apn = "internet"
[[wwan.profile]]
index = 2147483647
subscription = 1
technology = 0
ip_family = 6
id_3gpp = 255
id_3gpp2 = 254
apn = ""
[[wwan.profile]]
index = 3
subscription = 2
technology = 2
ip_family = 10
id_3gpp = 3
id_3gpp2 = 4
apn = "a.name.longer.than.its.column.example.net"
[[wwan.profile]]
index = 4
subscription = 3
[[wwan.stats]]
handle = 1
ip_family = 4
bytes_rx = 4294967297
bytes_tx = 8589934594
pkts_rx = 30
pkts_tx = 40
dropped_rx = 50
dropped_tx = 60
rx_rate = 0
tx_rate = 0
[[wwan.stats]]
handle = 3
ip_family = 6
bytes_rx = 1
bytes_tx = 2
pkts_rx = 3
pkts_tx = 4
dropped_rx = 5
dropped_tx = 6
rx_rate = 0
tx_rate = 0
"""
MANAGER_FAULTS = (fault("oxmap.GetWWANPolicyListEx", 2, times=2, error=33)
                  + fault("oxmap.GetWWANStatistics", 4, times=2, error=33)
                  + fault("oxmap.GetMTPETestInfo", 3, times=2, error=33)
                  + fault("oxmap.GetGlobalQoSFlowInfo", 2, error=118)
                  + fault("oxmap.GetGlobalQoSFlowInfo", 3, error=33))


def manage(type_):
    for _ in range(2):  # the second round fails
        type_("7 44")
        type_("8 44")
    for line, handle in (("7 45", "1"), ("8 45", "1"), ("7 46", "3"), ("8 46", "3"), ("7 45", "1"), ("8 46", "3"),
                         ("7 46", "99"), ("8 45", "none")):
        type_(line, handle)
    type_("7 47", "4", "192.0.2.1")
    type_("8 47", "6", "2001:db8::1")
    type_("7 47", "5", "6", "192.0.2.1", "2001:db8::1")
    type_("7 47", "4", "192.0.2.1")
    type_("8 47", "4", "192.0.2.1")
    type_("7 52", until="QOS Rx_5g_qci value 0\n")
    type_("7 53", until="QOS Rx_5g_qci value 0\n")
    type_("7 52")
    type_("7 53")
    type_("8 52")
    type_("8 53 1")


def test_mobile_ap_session(transcript):
    transcript(MANAGER + MANAGER_FAULTS, manage)
    transcript.compare("mobile_ap")


@pytest.mark.parametrize("count, table", [(0, False), (1, False), (3, True), (50, True), (60, True)])
def test_profiles_are_listed_up_to_fifty_and_a_lone_one_has_no_table(demo, count, table):
    profiles = "".join(f'[[wwan.profile]]\nindex = {100 + i}\napn = "apn{i}"\n' for i in range(count))
    result = demo.auto(["1", "7 44", "8 44", "2"], scenario=profiles or "wwan.profile = []\n")
    lines = result.console.splitlines()
    rows = [f"   |{100 + i:9}|{'Default':>10}|{'3gpp':>6}|{'V4':>6}|{1:12}|{0:12}|{f'apn{i}':>20}|"
            for i in range(min(count, 50))]
    assert [line for line in lines if line.startswith("   |") and "|" in line and line[4:13].strip().isdigit()] == (
        rows * 2 if table else [])
    # Without a newline, so that the next line runs on behind it.
    alone = [line for line in lines if line.startswith("Only Profile-1 is available ")]
    assert [line.split("LYN")[0] for line in alone] == (
        [] if table else [f"Only Profile-1 is available {100 if count else 0}"] * 2)


def test_a_text_without_its_newline_is_out_before_the_next_line_is_there(demo):
    launch = demo.launch(scenario="[[wwan.profile]]\nindex = 100\n")
    os.mkfifo(launch.auto_file)
    lines = os.open(launch.auto_file, os.O_RDWR)
    with Session(launch, 1 << 20, 20) as session:
        os.write(lines, b"1\n7 44\n")
        session.wait_for("Only Profile-1 is available 100")
        os.write(lines, b"2\n")
        os.close(lines)
        assert session.finish().console.endswith(AUTO_DONE)


# Throughput tests ---------------------------------------------------------------------------------------------------

V4 = ("192.0.2.1", "198.51.100.2")
V6 = ("2001:db8::1", "2001:db8:ffff::2")


def answers(test_type, family, external=0, limits=()):
    """Answers to the questions of a throughput test."""
    client, server = V4 if family == 4 else V6
    return [str(test_type), "7", "1", str(family), client, "0", server, str(external), "5001", "6001",
            *map(str, limits)]


def completed(test_type):
    return f"MTPE Test type {test_type}\nLYN DEMO APP CALLBACK - MTPE Test status 2\n" \
           "LYN DEMO APP CALLBACK - MTPE Test peak rate caluculated 93000\n"


def measure(type_):
    type_("7 48", *answers(1, 4, external=1), until=completed(1))
    type_("7 49", *answers(2, 4, limits=(5000, 1400)), until=completed(2))
    type_("8 48", *answers(3, 6, limits=(5000, 1400)), until=completed(2))
    type_("8 49", *answers(3, 4, external=1), until=completed(2))
    # What is asked again: the type without "3:both", protocol, family, address and ports.
    type_("7 48", "4", "0", "1", "7", "2", "1", "5", "4", "2001:db8::1", "192.0.2.1", "1", "speed.example.net", "0",
          "65536", "5001", "0", "6001", until=completed(1))


def measure_badly(type_):
    status = "LYN DEMO APP CALLBACK - MTPE Test status "
    reason = "LYN DEMO APP CALLBACK - MTPE failure reason 3\n"
    type_("7 48", *answers(1, 4), until=status + "0\n")  # refused configuration
    type_("7 48", *answers(1, 4), until=reason)  # failed start
    type_("8 49", *answers(3, 4, limits=(0, 0)), until=reason)  # failed teardown: no second direction
    type_("8 48", *answers(3, 6, limits=(0, 0)), until=status + "0\n")  # refused second configuration
    type_("7 49", *answers(2, 4, limits=(0, 0)), until=completed(2))


def measure_for_ever(type_):
    type_("7 48", *answers(1, 4), until="MTPE Test status 1\n")
    type_("7 49", *answers(1, 4))
    type_("8 48", *answers(1, 4))


def test_throughput_session(transcript):
    manager = f"board.noise_db = 0\nlocation.capabilities_ms = -1\n[mtpe]\nconfigured_ms = {LATER}\nduration_ms = {LATER}\n"
    faults = (fault("oxmap.ConfigureMTPE", error=33) + fault("oxmap.ConfigureMTPE", 4, error=33)
              + fault("oxmap.StartMTPE", error=33) + fault("oxmap.TeardownMTPE", 3, error=33))
    transcript(manager, measure)
    transcript(manager + faults, measure_badly)
    transcript(manager.replace(f"duration_ms = {LATER}", "duration_ms = -1"), measure_for_ever)
    transcript.compare("throughput")


@pytest.mark.parametrize("result, status", [("failed", 3), ("aborted", 0)])
def test_failed_or_aborted_throughput_test_ends_and_the_next_one_starts(demo, result, status):
    scenario = f'[mtpe]\nconfigured_ms = 1\nduration_ms = 1\nresult = "{result}"\n'
    with demo.session(scenario) as session:
        session.send("1")
        for line in ("7 48", "8 49"):
            for answer in (line, *answers(3, 4, limits=(1, 1))):
                session.send(answer)
            session.wait_for("LYN DEMO APP CALLBACK - MTPE Test status 1\n")
            session.wait_for(f"LYN DEMO APP CALLBACK - MTPE Test status {status}\n")
        assert "failed with status" not in session.console
        assert session.terminate() == 0
