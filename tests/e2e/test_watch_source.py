# SPDX-License-Identifier: Apache-2.0
"""What the live picture's records say of boards of every kind: that of the scenario, and nothing that it does not measure.
"""
import csv
import datetime
import itertools
import tomllib

import pytest

import watching
from lyn import DATA, ROOT, SCALE
from test_drive import expected_status, measured, read_drive
from test_scenarios import fast_motion

QUIET = "[board]\nnoise_db = 0\n"
FAST = ("--json", "--every", "100ms")
HEAD = {"type", "time", "board", "up", "state", "age"}


def snapshot(session, matches=lambda record: True, timeout=None):
    return session.wait_record(lambda record: record["type"] == "snapshot" and matches(record), timeout)


def latest(session):
    """A snapshot whose reading began behind this call."""
    session.seen = len(session.records)
    snapshot(session)
    return snapshot(session)


def event(session, name, value=None):
    return session.wait_record(lambda record: record.get("event") == name and value in (None, record.get("value")))


def once(watch, *options, scenario=""):
    result = watch.run("--json", "--once", *options, scenario=QUIET + scenario)
    assert result.status == 0
    [record] = result.records
    return record


# Radios

def test_without_service_only_the_registration_is_known(watch):
    with watch.session(*FAST, "--locate", "100ms", scenario=fast_motion("no_service.toml", 10)) as session:
        for registration in ("no_service", "power_save", "no_service"):
            record = snapshot(session, lambda record: record.get("registration") == registration)
            assert set(record) == {*HEAD, "registration"} and record["up"]
        assert session.terminate() == 0


def test_standalone_nr5g_has_no_lte(watch):
    with watch.session(*FAST, scenario=fast_motion("standalone_nr5g.toml", 10)) as session:
        fast = snapshot(session, lambda record: record.get("nr5g", {}).get("pci") == 811)
        wide = snapshot(session, lambda record: record["nr5g"]["pci"] == 77 and record["nr5g"]["scs"] == 15)
        assert event(session, "nr5g_rsrp", -101)["radio"] == "nr5g"
        assert session.terminate() == 0
    assert fast["registration"] == wide["registration"] == "nr5g" and not {"lte"} & (set(fast) | set(wide))
    assert fast["nr5g"]["rf_bandwidth"] == [100] and fast["nr5g"]["bands"] == [77, 78] and fast["nr5g"]["tac"] == 12048
    assert wide["nr5g"]["rf_bandwidth"] == [20] and wide["nr5g"]["bands"] == [28]


def test_radio_that_goes_takes_its_values_along(watch):
    with watch.session(*FAST, scenario=fast_motion("lte_with_nr5g.toml", 20)) as session:
        assert snapshot(session, lambda record: "nr5g" in record)["registration"] == "lte_nr5g"
        # What is read while the board changes may still have both.
        record = snapshot(session, lambda record: record["registration"] == "lte" and "nr5g" not in record)
        assert record["lte"]["endc_available"] is True and record["lte"]["ca_bandwidth"] == 20
        assert snapshot(session, lambda record: "nr5g" in record)["nr5g"]["pci"] == 811
        assert session.terminate() == 0


EVERYTHING = """
[lte]
cqi = [[12, 11], [7]]
dl_mod = [0, 5]
cell_lock = [{ pci = 3, freq = 1300 }, { pci = 4, freq = 6300 }]
[nr5g]
dl_mod = [0, 9]
"""


def test_values_have_their_names_and_units(watch):
    record = once(watch, scenario=EVERYTHING)
    assert record["lte"] == {
        "plmn": "272-01", "cgi": 10607298, "tac": 6699, "pci": 214, "channel": 1300, "bands": [3], "rsrp": -95, "rsrq": -11,
        "sinr": 130, "tx_power": 120, "cqi": [[12, 11], [7]], "dl_modulation": ["BPSK", "1024QAM"],
        "ul_modulation": ["QPSK"], "rrc": "state_3", "cell_lock": ["1300/3", "6300/4"]}
    assert record["nr5g"] == {
        "plmn": "272-01", "cgi": 68719476736, "tac": 6699, "pci": 500, "channel": 636000, "bands": [77, 78], "rsrp": -98,
        "rsrq": -11, "sinr": 150, "tx_power": 150, "cqi": [[13, 12]], "dl_modulation": ["pi/2-BPSK", "other"],
        "ul_modulation": ["16QAM"], "rrc": "connected", "rf_bandwidth": [25], "scs": 30}


def test_every_item_is_measured_by_some_board(watch):
    """With the schema, which names no other, and its unit test, which holds it to the table of items."""
    schema = watching.SCHEMA["$defs"]
    lte = once(watch, scenario="[sys_info]\nnr5g_pci = -1\n" + EVERYTHING)["lte"]
    both = once(watch, scenario=EVERYTHING + 'cell_lock = { type = 1, pci = 7, arfcn = 636000 }\n')
    assert {*lte, *both["lte"]} == set(schema["lte"]["properties"])
    assert set(both["nr5g"]) == set(schema["nr5g"]["properties"])
    assert both["nr5g"]["cell_lock"] == ["636000/7"]


def test_what_a_modem_refuses_is_absent_and_the_rest_is_not(watch):
    scenario = (ROOT / "scenarios/refusing_modem.toml").read_text(encoding="utf-8")
    with watch.session(*FAST, "--scan", "200ms", "--locate", "200ms", scenario=scenario) as session:
        record = snapshot(session, lambda record: record["up"] and "sinr" in record["lte"])
        assert not {"pci", "cgi", "tac", "channel", "bands", "plmn"} & set(record["lte"])
        assert {"tx_power", "cqi", "rrc", "rf_bandwidth"} <= set(record["lte"])
        assert not {"neighbours", "location"} & set(snapshot(session))
        assert event(session, "loc_single_shot")["value"] == "failure"
        assert session.terminate() == 0


# A modem that goes and comes

RESTART = QUIET + """
[[at]]
ms = 600
modem = "down"
[[at]]
ms = 1400
lte = { rsrp = -80 }
[[at]]
ms = 1500
modem = "up"
[[at]]
after = "nas.108"
skip = 8
ms = 500
lte = { rsrp = -70 }
"""


def test_modem_that_goes_takes_all_values_along_and_brings_them_back(watch):
    """It is subscribed again: the last change comes behind the ninth of those requests, of which eight came before."""
    with watch.session(*FAST, scenario=RESTART) as session:
        assert snapshot(session, lambda record: "lte" in record)["lte"]["rsrp"] == -95
        event(session, "modem_status", "down")
        ages = []
        for _ in range(4):
            record = snapshot(session)
            assert set(record) == HEAD and record["state"] == "down" and record["up"] is False
            ages.append(record["age"])
        assert ages == sorted(ages) and ages[0] < ages[-1]
        event(session, "modem_status", "up")
        assert snapshot(session, lambda record: record["up"])["lte"]["rsrp"] == -80
        assert event(session, "lte_rsrp", -70)
        assert snapshot(session, lambda record: record["lte"]["rsrp"] == -70)["state"] == "up"
        assert session.terminate() == 0


def test_modem_that_is_gone_for_a_moment_is_subscribed_to_again(watch):
    """Down and up before anybody could ask it anything."""
    scenario = QUIET + '[[at]]\nms = 500\nmodem = "down"\n[[at]]\nms = 501\nmodem = "up"\n'
    with watch.session("--json", "--every", "1h", scenario=scenario) as session:
        event(session, "modem_status", "up")
        requests = itertools.count(1)
        session.wait_journal(lambda row: (row["name"], row["dir"]) == ("config_sig_info", "request") and next(requests) > 8)
        assert session.terminate() == 0


def test_scan_that_a_restart_has_swallowed_is_sent_again(watch):
    scenario = QUIET + '[scan]\nanswer_ms = 500\n[[at]]\nafter = "nas.133"\nms = 100\nmodem = "down"\n' \
        '[[at]]\nafter = "nas.133"\nms = 700\nmodem = "up"\n'
    with watch.session(*FAST, "--scan", "300ms", scenario=scenario) as session:
        event(session, "modem_status", "up")
        snapshot(session, lambda record: len(record.get("neighbours", {})) == 2)
        assert session.terminate() == 0


def test_modem_that_is_offered_late_is_waited_for(watch):
    with watch.session(*FAST, scenario=QUIET + "[nas]\navailable_after_ms = 1500\n") as session:
        assert snapshot(session, lambda record: record["state"] != "starting")["lte"]["rsrp"] == -95
        assert session.terminate() == 0
        waiting = [record for record in session.records if record.get("state") == "starting"]
    assert waiting and all(set(record) == HEAD - {"age"} for record in waiting)


def test_modem_that_refuses_at_first_is_asked_until_it_does_not(watch):
    fault = '[[fault]]\non = "nas.77"\ntimes = 3\nresult = 1\nerror = 3\n'
    with watch.session("--json", "--every", "1h", scenario=QUIET + fault) as session:
        assert event(session, "lte_rsrp", -95)
        assert session.terminate() == 0


def test_refused_subscription_is_tried_again_and_the_others_are_left_alone(watch):
    """The fault meets the registration for system information; what is told of the signal is not told anew each time."""
    fault = '[[fault]]\non = "nas.3"\nskip = 1\ntimes = 4\nresult = 1\nerror = 3\n'
    with watch.session(*FAST, scenario=QUIET + fault + '[[at]]\nms = 1550\nsys_info = { nr5g_pci = -1 }\n') as session:
        assert event(session, "reg_status", "lte")
        assert session.terminate() == 0
        told = [record["event"] for record in session.records if record["type"] == "event"]
    assert told.count("lte_rsrp") == 1


# Requests that hang

def test_snapshots_go_on_while_a_request_hangs(watch):
    """The third reading's question for the cell takes three seconds; six intervals of half a second pass meanwhile."""
    fault = '[[fault]]\non = "nas.67"\nskip = 20\ndelay_ms = 3000\n'
    with watch.session("--json", "--every", "500ms", scenario=QUIET + fault) as session:
        hanging = [snapshot(session, lambda record: "lte" in record.get("ages", {}))]
        while "lte" in (record := snapshot(session)).get("ages", {}):
            hanging.append(record)
        snapshot(session)
        assert session.terminate() == 0
        result = session.finish()
    for record in hanging:
        assert record["up"] and record["lte"]["rsrp"] == -95 and record["data"]
        assert record["ages"]["lte"]["rsrp"] > 1 and record["ages"]["data"] > 1
    assert hanging[-1]["ages"]["registration"] > 1
    ages = [record["age"] for record in hanging[:-1]]  # the last one may be from within the answered reading
    assert len(ages) >= 2 and ages == sorted(ages)
    assert_one_per_interval(result.snapshots, 0.5)


def seconds(record):
    return datetime.datetime.fromisoformat(record["time"].replace("Z", "+00:00")).timestamp()


def assert_one_per_interval(snapshots, every):
    """Counted over the whole run. A busy machine misses some; who waits for the modem misses most."""
    intervals = (seconds(snapshots[-1]) - seconds(snapshots[0])) / every
    assert intervals / 2 <= len(snapshots) - 1 <= intervals + 1, [record["time"] for record in snapshots]


def test_slow_modem_has_one_snapshot_an_interval(watch):
    scenario = (ROOT / "scenarios/slow_modem.toml").read_text(encoding="utf-8")
    with watch.session("--json", "--every", "200ms", scenario=scenario) as session:
        snapshot(session, lambda record: record["up"])
        for _ in range(20):
            snapshot(session)
        assert session.terminate() == 0
        result = session.finish()
    up = [record for record in result.snapshots if record["up"]]
    assert_one_per_interval(up, 0.2)


# Neighbours, location, data path

def neighbours_of(board):
    """What a scenario's radios have for neighbours, as records show them."""
    def plmns(cell):
        return [f"{plmn['mcc']:03}-{plmn['mnc']:02}" for plmn in cell["plmn"]]

    lte = [{"channel": cell["earfcn"], "pci": cell["pci"], "cgis": [cell["cgi"]], "plmns": plmns(cell)}
           for cell in board["lte"]["neighbour"]]
    if lte:
        lte[0].update(rsrp=board["lte"]["neighbour"][0]["rsrp"], rsrq=board["lte"]["neighbour"][0]["rsrq"])
    nr5g = [{"channel": cell["arfcn"], "pci": cell["pci"], "rsrp": cell["rsrp"], "cgis": cell["cgi"], "plmns": plmns(cell)}
            for cell in board["nr5g"]["neighbour"]]
    return {"lte": lte, "nr5g": nr5g}


def test_neighbours_are_those_of_the_board_scan_by_scan(watch):
    text = (ROOT / "scenarios/neighbours.toml").read_text(encoding="utf-8").replace("answer_ms = 3000", "answer_ms = 300")
    board = tomllib.loads(text)
    wanted = [neighbours_of(each) for each in (board, board["at"][0], board["at"][1])]
    with watch.session("--json", "--every", "50ms", "--scan", "1500ms", scenario=text) as session:
        for each in wanted:
            answered = event(session, "nr5g_nbr_info")
            assert answered["radio"] == "nr5g" and answered["cells"] == len(each["nr5g"])
            found = snapshot(session)["neighbours"]
            assert {radio: found[radio]["cells"] for radio in found} == each
        assert session.terminate() == 0


def test_scan_that_fails_leaves_no_neighbours(watch):
    record = once(watch, "--scan", "1s", scenario="[scan]\nstatus = 1\n")
    assert "neighbours" not in record


def test_neighbour_whose_network_has_no_number_has_none(watch):
    plmns = "plmn = [{ mcc = 1000 }, { mcc = 262, mnc = 2 }, { mnc = 65535 }]\n"
    record = once(watch, "--scan", "1s", scenario=f"[[lte.neighbour]]\n{plmns}[[nr5g.neighbour]]\nplmn = [{{ mcc = 1000 }}]\n")
    assert record["neighbours"]["lte"]["cells"][0]["plmns"] == ["262-02"]
    assert "plmns" not in record["neighbours"]["nr5g"]["cells"][0]


LOCATION = """
[location]
latitude = -33.5
longitude = 151.25
altitude = -4.75
speed = 13.89
bearing = 359.5
horizontal_accuracy = 3
vertical_accuracy = 4.5
speed_accuracy = 0.1
bearing_accuracy = 2.5
timestamp = 1767225600123
"""


def test_location_is_that_of_the_receiver(watch):
    location = once(watch, "--locate", "1s", scenario=LOCATION)["location"]
    assert location.pop("age") >= 0
    assert location == {"latitude": -33.5, "longitude": 151.25, "altitude": -4.75, "speed": 13.89, "bearing": 359.5,
                        "horizontal_accuracy": 3, "vertical_accuracy": 4.5, "speed_accuracy": 0.1, "bearing_accuracy": 2.5,
                        "time": "2026-01-01T00:00:00.123Z"}


@pytest.mark.parametrize("flags, members", [(0x001, set()), (0x003, {"altitude"}), (0x101, {"time"}),
                                            (0x015, {"speed", "horizontal_accuracy"})])
def test_location_has_what_the_receiver_knows(watch, flags, members):
    location = once(watch, "--locate", "1s", scenario=LOCATION + f"flags = {flags}\n")["location"]
    assert set(location) == {"latitude", "longitude", "age", *members}


def test_fix_without_a_place_is_no_location(watch):
    assert "location" not in once(watch, "--locate", "1s", scenario=LOCATION + "flags = 0x1FE\n")


def test_every_record_behind_the_first_location_has_one(watch):
    with watch.session(*FAST, "--locate", "100ms", scenario="[board]\ntick_ms = 50\n[location]\nfix_ms = 50\n") as session:
        session.wait_record(lambda record: record.get("event") == "loc_single_shot")
        seen = len(session.records)
        for _ in range(5):
            snapshot(session)
        assert session.terminate() == 0
        later = session.records[seen:]
    assert {record["type"] for record in later} == {"snapshot", "event"}
    assert all(record["location"]["latitude"] == 51.897463 for record in later)


def test_location_outlives_a_modem_that_goes(watch):
    scenario = QUIET + '[location]\nfix_ms = 50\n[[at]]\nms = 1000\nmodem = "down"\n'
    with watch.session(*FAST, "--locate", "1h", scenario=scenario) as session:
        assert "location" in snapshot(session, lambda record: record["state"] == "down")
        assert session.terminate() == 0


def test_counters_grow_and_have_rates(watch):
    scenario = (ROOT / "scenarios/traffic.toml").read_text(encoding="utf-8")
    with watch.session(*FAST, scenario=scenario) as session:
        first = snapshot(session, lambda record: record.get("data"))["data"]
        for _ in range(5):
            last = snapshot(session)["data"]
        assert session.terminate() == 0
    assert [(profile["profile"], profile["apn"]) for profile in last] == [(1, "internet"), (2, "ims"), (3, "meter.example")]
    assert [sorted({"ipv4", "ipv6"} & set(profile)) for profile in last] == [["ipv4", "ipv6"], ["ipv6"], ["ipv4"]]
    for before, after in zip(first, last):
        for family in {"ipv4", "ipv6"} & set(after):
            assert all(after[family][name] >= before[family][name] for name in before[family] if not name.endswith("_rate"))
            assert after[family]["rx_rate"] >= 0
    assert last[0]["ipv4"]["bytes_rx"] > first[0]["ipv4"]["bytes_rx"] >= 734003200


@pytest.mark.parametrize("apn, shown", [
    ('"\\"\\\\{}[],\\n\\u0001"', '"\\{}[],\n\x01'), ('"\u00e4\u2603"', "\u00e4\u2603"), ('"' + "x" * 100 + '"', "x" * 100),
    ('"' + "\u2603" * 33 + 'x"', "\u2603" * 33 + "x"),
], ids=["quotes", "unicode", "longest", "longest unicode"])
def test_apn_stands_as_the_modem_has_it(watch, apn, shown):
    scenario = f"[[wwan.profile]]\nindex = 1\napn = {apn}\n[[wwan.profile]]\nindex = 2\n"
    with watch.session(*FAST, scenario=QUIET + scenario) as session:
        assert snapshot(session, lambda record: record.get("data"))["data"][0]["apn"] == shown
        assert session.terminate() == 0


# Drives

def value_rows(path):
    """What records have to say of each row of a drive: registration, RSRP, RSRQ and SINR; none where nothing is valid."""
    for row in read_drive(path):
        registration = {5: "lte", 6: "lte_nr5g"}.get(expected_status(row), "no_service")
        values = [measured(row, *column) for column in (("RSRP",), ("RSRQ",), ("SNR", 10))]
        yield registration, values if registration != "no_service" and None not in values else None


def test_snapshots_of_a_drive_are_its_rows(watch):
    """Four rows a second, twenty snapshots: each is a row, in their order, unless the row changed while it was read."""
    path = DATA / "drive.csv"
    scenario = f'[trace]\nfile = "{path}"\nspeed = {4 / SCALE}\nafter = "nas.108"\nskip = 7\n'
    with watch.session("--json", "--every", "50ms", scenario=scenario, timeout=60) as session:
        session.wait_journal(lambda row: row["name"] == "trace_end")
        last = latest(session)
        assert session.terminate() == 0
        result = session.finish()
    rows = list(value_rows(path))
    at = torn = 0
    for record in result.snapshots:
        lte = record.get("lte", {})
        values = [lte.get(name) for name in ("rsrp", "rsrq", "sinr")] if "rsrp" in lte else None
        row = next((number for number in range(at, len(rows)) if rows[number] == (record.get("registration"), values)), None)
        if row is None:
            torn += 1
        else:
            at = row
    assert at == len(rows) - 1 and torn < len(rows) < len(result.snapshots)
    assert [last["lte"][name] for name in ("rsrp", "rsrq", "sinr")] == rows[-1][1]


def test_events_of_a_drive_are_its_changes(watch):
    """As fast as the board can: every change of a row is told, in the order of the rows, whatever the snapshots see."""
    path = DATA / "drive.csv"
    scenario = f'[trace]\nfile = "{path}"\nspeed = 200\nafter = "nas.108"\nskip = 7\n'
    with watch.session("--json", scenario=scenario, timeout=60) as session:
        session.wait_journal(lambda row: row["name"] == "trace_end")
        latest(session)
        assert session.terminate() == 0
        result = session.finish()
    rsrp = [event["value"] for event in result.events if event["event"] == "lte_rsrp"]
    wanted = []
    for _, values in value_rows(path):
        if values and (not wanted or wanted[-1] != values[0]):
            wanted.append(values[0])
    assert rsrp == wanted


def test_what_a_drive_did_not_measure_never_appears_as_a_number(watch, tmp_path):
    dirty = ["-", "", "2147483647", "-30", "1e400", "nan", "abc"]
    columns = ["Timestamp", "Longitude", "Latitude", "Speed", "NetworkMode", "RSRP", "RSRQ", "SNR", "CQI", "LACHEX", "RAWCELLID",
               "NRxRSRP", "NRxRSRQ"]
    with open(tmp_path / "dirty.csv", "w", encoding="utf-8", newline="") as file:
        writer = csv.writer(file)
        writer.writerow(columns)
        for value in dirty:
            place = "" if value == "-30" else value  # that is one
            writer.writerow(["2025.03.14_10.20.20", place, place, value, "LTE", value, "-10", "5.0", value, value, value,
                             value, value])
    with watch.session("--json", "--every", "50ms", "--scan", "200ms", "--locate", "200ms",
                       scenario=f'[trace]\nfile = "{tmp_path}/dirty.csv"\nspeed = 10\n[location]\nfix_ms = 20\n') as session:
        session.wait_journal(lambda row: row["name"] == "trace_end")
        latest(session)
        assert session.terminate() == 0
        result = session.finish()
    assert any(record.get("registration") == "lte" for record in result.snapshots)
    for record in result.snapshots:
        assert not {"rsrp", "rsrq", "sinr", "cqi", "cgi", "tac"} & set(record.get("lte", {})), record
        assert not record.get("neighbours", {}).get("lte", {}).get("cells"), record
    assert not [record for record in result.records if "location" in record]
