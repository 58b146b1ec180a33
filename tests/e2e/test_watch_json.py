# SPDX-License-Identifier: Apache-2.0
"""The live picture's records: how they are written, when they come, and how they end. What they say of boards of every
kind is in test_watch_source.py. Each line of each test is held to docs/lyn_watch.schema.json (watching.py)."""
import fcntl
import json
import os
import re
import signal
import subprocess

import pytest

import watching
from lyn import ROOT, SCALE, signals_of
from test_drive import read_drive
from test_scenarios import fast_motion

QUIET = "[board]\nnoise_db = 0\n"
DOCUMENT = ROOT / "docs/watch.md"




def test_one_snapshot_holds_what_the_board_measures(watch):
    result = watch.run("--json", "--once", scenario=QUIET)
    assert result.status == 0
    [record] = result.records
    assert record["type"] == "snapshot" and record["up"] and record["registration"] == "lte_nr5g"
    assert record["lte"]["rsrp"] == -95 and record["lte"]["sinr"] == 130 and record["lte"]["plmn"] == "272-01"
    assert record["nr5g"]["pci"] == 500


def test_a_measured_change_comes_as_an_event(watch):
    with watch.session("--json", scenario=QUIET + "[[at]]\nms = 500\nlte = { rsrp = -101 }\n") as session:
        event = session.wait_record(lambda record: record.get("event") == "lte_rsrp" and record["value"] == -101)
        assert event["type"] == "event" and event["radio"] == "lte"
        assert session.wait_record(lambda record: record["type"] == "snapshot")["lte"]["rsrp"] == -101
        assert session.terminate() == 0


def test_integral_numbers_are_integers_and_others_are_not(watch):
    text = watch.run("--json", "--once", scenario=QUIET + "[sys_info]\nnr5g_pci = -1\n[lte]\nrf_bandwidth = [0, 5]\n").console
    assert '"bands":[3]' in text and '"rf_bandwidth":[1.4,20]' in text


def test_nothing_but_records_is_printed(watch):
    """Module and board print, too; none of it is among the records, and standard error stays empty."""
    with watch.session("--json", "--every", "100ms", scenario="[[fault]]\non = \"oxmap.EnableMobileAP_Ext\"\n") as session:
        session.wait_record(lambda record: record.get("up"))
        assert session.terminate() == 0
        assert "MobileAP" not in session.console + session.errors.text()
        assert session.errors.text() == ""


def test_events_are_counted_without_a_gap_and_in_the_order_of_their_times(watch):
    with watch.session("--json", "--every", "20ms", scenario="[board]\ntick_ms = 10\n") as session:
        session.wait_record(lambda record: record.get("id", 0) >= 300)
        assert session.terminate() == 0
        result = session.finish()
    assert [event["id"] for event in result.events] == list(range(1, len(result.events) + 1))
    for records in (result.events, result.snapshots):
        times = [record["time"] for record in records]
        assert times == sorted(times)


def test_flood_of_events_arrives_whole_and_in_order(watch):
    """Ten thousand install-mode states of four kinds, told as fast as the board can."""
    scenario = QUIET + "".join(
        f'[[at]]\nafter = "nas.108"\nskip = 7\nms = 300\nraw = {{ lib = "nas", id = 335, bytes = "100400{code:02x}000000" }}\n'
        "repeat = 2500\nevery_ms = 0\n" for code in range(4))
    with watch.session("--json", "--every", "200ms", scenario=scenario, timeout=40) as session:
        for _ in range(10000):
            session.wait_record(lambda record: record.get("event") == "install_mode_status")
        assert session.terminate() == 0
        result = session.finish()
    told = [row["fields"]["status"] for row in result.calls("indication", "install_status_ind")]
    assert sorted(told) == [code for code in range(4) for _ in range(2500)]
    assert [event["value"] for event in result.events if event["event"] == "install_mode_status"] == told
    assert [event["id"] for event in result.events] == list(range(1, len(result.events) + 1))
    assert not [record for record in result.records if record["type"] == "missed"]


# Ends

def start(watch, *options, **kind):
    """A run whose standard output is the test's own; the reader's end of a pipe unless `stdout` says otherwise."""
    launch = watch.launch("--json", *options, scenario=kind.pop("scenario", QUIET))
    return subprocess.Popen(launch.command, cwd=ROOT, env=launch.env, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
                            **{"stdout": subprocess.PIPE, **kind}), launch


def finish(process):
    """Status and standard error."""
    try:
        errors = process.communicate(timeout=20 * SCALE)[1]
    finally:
        process.kill()
    return process.returncode, errors.decode()


@pytest.mark.parametrize("every", ["20ms", "1h"])
def test_reader_that_goes_ends_it_quietly(watch, every):
    """Also where there would be nothing to write for an hour: the six values of the signal have been told."""
    process, _ = start(watch, "--every", every)
    kinds = []
    while kinds.count("event") < 6 or "snapshot" not in kinds:
        kinds.append(json.loads(process.stdout.readline())["type"])
    process.stdout.close()
    process.stdout = None
    assert finish(process) == (0, "")


@pytest.mark.parametrize("options", [[], ["--once"]], ids=["lines", "once"])
def test_full_disk_is_told_in_one_line(watch, options):
    with open("/dev/full", "wb") as full:
        process, _ = start(watch, *options, stdout=full)
        assert finish(process) == (1, "lyn_watch: standard output: No space left on device\n")


def test_closed_standard_output_is_told_in_one_line(watch):
    launch = watch.launch("--json", scenario=QUIET)
    done = subprocess.run(["/bin/sh", "-c", 'exec "$@" >&-', "sh", *launch.command], cwd=ROOT, env=launch.env, check=False,
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20 * SCALE)
    assert (done.returncode, done.stderr) == (1, "lyn_watch: standard output: Bad file descriptor\n")


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_signal_ends_it_with_status_0(watch, number):
    with watch.session("--json", scenario=QUIET) as session:
        session.wait_record(lambda record: record["type"] == "snapshot")
        assert session.terminate(number) == 0
        assert session.finish().stderr == ""


@pytest.mark.parametrize("wait", [signal.SIGTERM, signal.SIGINT])
def test_signal_ends_it_though_the_reader_does_not_read(watch, wait):
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    process, launch = start(watch, "--every", "10ms", stdout=writer, scenario="[board]\ntick_ms = 1\n")
    os.close(writer)
    with open(reader, "rb") as pipe:
        while len(first := os.read(reader, 1 << 16)) == 0:
            pass
        # It is stuck once it has looked for room and has found none: what it sends is not read.
        deadline = 200 * SCALE
        while deadline and not stuck(launch.pid()):
            deadline -= 1
            signal.sigtimedwait([], 0.05)
        launch.signal(wait)
        assert finish(process) == (0, "")
        text = first + pipe.read()
    assert text.endswith(b"\n")
    assert all(json.loads(line) for line in text.splitlines())


def stuck(pid):
    """Whether the program's first thread waits in poll."""
    with open(f"/proc/{pid}/wchan", encoding="utf-8") as file:
        return "poll" in file.read()


def test_signal_ends_it_while_the_modem_is_not_there(watch):
    with watch.session("--json", "--every", "50ms", scenario="[nas]\navailable = false\n") as session:
        record = session.wait_record(lambda record: record["type"] == "snapshot")
        assert record["state"] == "starting" and not record["up"] and "age" not in record
        assert session.terminate() == 0


def test_four_signals_are_waited_for_and_all_others_left_as_they_are(watch):
    with watch.session("--json", "--every", "50ms", scenario=QUIET) as session:
        session.wait_record(lambda record: record["type"] == "snapshot")
        assert signals_of(session.launch.pid(), "SigBlk") == {signal.SIGHUP, signal.SIGINT, signal.SIGQUIT,
                                                              signal.SIGTERM}
        assert session.terminate() == 0


def test_what_is_printed_where_standard_error_is_closed_is_among_no_records(watch):
    launch = watch.launch("--json", "--once", scenario=QUIET, env={"LYN_SIM_JOURNAL": "/dev/full"})
    launch.program = ["/bin/sh", "-c", 'exec "$@" 2>&-', "sh", *launch.program]
    with watching.Session(launch, 1 << 20, 20) as session:
        result = session.finish()
    assert result.status == 0 and len(result.records) == 1


# Options

@pytest.mark.parametrize("options, words", [
    (["--json", "--every", "0s"], ["--every", "10ms to 24h", "'0s'"]),
    (["--json", "--every", "5"], ["--every", "such as 200ms, 1s, 5m or 1h", "'5'"]),
    (["--json", "--every", "-1s"], ["--every"]),
    (["--json", "--every", "25h"], ["--every", "10ms to 24h"]),
    (["--json", "--every"], ["--every", "TIME"]),
    (["--json", "--scan", "soon"], ["--scan", "'soon'"]),
    (["--json", "--locate", "1 s"], ["--locate", "'1 s'"]),
    (["--json", "--every", "99999999999999999999h"], ["--every"]),
    (["--once"], ["--once", "--json"]),
    (["--json", "--frequency", "3"], ["--frequency"]),
    (["--json", "--name"], ["--name", "NAME"]),
    (["--json", "--name="], ["--name", "NAME"]),
], ids=" ".join)
def test_wrong_use_is_one_line_that_names_the_option(watch, options, words):
    result = watch.run(*options, scenario=QUIET)
    assert result.status == 2 and result.console == ""
    assert result.stderr.startswith("lyn_watch: ") and result.stderr.count("\n") == 1
    assert all(word in result.stderr for word in words), result.stderr


@pytest.mark.parametrize("shortest, longest, too_long", [
    ("10ms", "86400000ms", "86400001ms"), ("1s", "86400s", "86401s"), ("1m", "1440m", "1441m"), ("1h", "24h", "25h")])
def test_a_duration_has_four_units(watch, shortest, longest, too_long):
    for every in (shortest, longest):
        assert watch.run("--json", "--once", "--every", every, scenario=QUIET).status == 0
    assert watch.run("--json", "--once", "--every", too_long, scenario=QUIET).status == 2


@pytest.mark.parametrize("name, shown", [
    ("van 3", "van 3"), ("M\u00fcnchen-\u2603\U0001f4f6", "M\u00fcnchen-\u2603\U0001f4f6"), ('"\\/', '"\\/'),
    ("two\nlines\t\x01\x7f", "two\nlines\t\x01\x7f"), (b"\xff\xc0\xaf\xed\xa0\x80x", "\ufffd\ufffd\ufffd\ufffd\ufffd\ufffdx"),
    ("-x", "-x"), ("%s{}[]", "%s{}[]"), ("n" * 5000, "n" * 5000),
], ids=["blank", "unicode", "quotes", "control", "no utf-8", "dash", "format", "long"])
def test_name_stands_in_every_record_as_it_was_given(watch, name, shown):
    option = b"--name=" + (name if isinstance(name, bytes) else name.encode())
    with watch.session("--json", "--every", "50ms", os.fsdecode(option), scenario=QUIET) as session:
        for kind in ("event", "snapshot"):
            assert session.wait_record(lambda record: record["type"] == kind)["board"] == shown
        assert session.terminate() == 0


def test_board_is_called_after_its_host_unless_it_has_a_name(watch):
    [record] = watch.run("--json", "--once", scenario=QUIET).records
    assert record["board"] == os.uname().nodename


# One snapshot

def test_once_waits_for_scan_and_location(watch):
    [record] = watch.run("--json", "--once", "--scan", "1h", "--locate", "1h",
                         scenario=QUIET + "[scan]\nanswer_ms = 1200\n[location]\ncapabilities_ms = 800\n").records
    assert record["neighbours"]["lte"]["cells"] and record["neighbours"]["nr5g"]["cells"]
    assert record["location"]["latitude"] == 51.897463


def test_once_does_without_scan_and_location_that_are_refused(watch):
    scenario = (ROOT / "scenarios/refusing_modem.toml").read_text(encoding="utf-8")
    result = watch.run("--json", "--once", "--scan", "1s", "--locate", "1s", scenario=scenario)
    [record] = result.records
    assert result.status == 0 and record["up"] and not {"neighbours", "location"} & set(record)


@pytest.mark.parametrize("every", ["1s", "1h"])
def test_once_waits_for_a_modem_that_comes_late(watch, every):
    result = watch.run("--json", "--once", "--every", every, scenario=QUIET + "[nas]\navailable_after_ms = 2000\n")
    assert result.status == 0 and result.records[0]["lte"]["rsrp"] == -95


@pytest.mark.parametrize("every", ["1s", "1h"])
def test_once_waits_for_a_modem_that_fails_at_first(watch, every):
    """The start succeeds, and then the registration status fails: skip 1 lets the start's own question pass."""
    fault = '[[fault]]\non = "nas.77"\nskip = 1\ntimes = 2\n'
    result = watch.run("--json", "--once", "--every", every, "--scan", "1h", scenario=QUIET + fault)
    [record] = result.records
    assert result.status == 0 and record["lte"]["rsrp"] == -95 and record["neighbours"]


ABSENT = {"never offered": "[nas]\navailable = false\n", "never answers": '[[fault]]\non = "nas.77"\ntimes = -1\n',
          "answers no more": '[[fault]]\non = "nas.77"\nskip = 1\ntimes = -1\n',
          "refuses": '[[fault]]\non = "nas.77"\ntimes = -1\nresult = 1\nerror = 3\n'}


@pytest.mark.parametrize("scenario", ABSENT.values(), ids=ABSENT)
def test_once_says_that_there_is_no_modem(watch, scenario):
    result = watch.run("--json", "--once", "--every", "1h", scenario=scenario, timeout=30)
    assert (result.status, result.console, result.stderr) == (3, "", "lyn_watch: no modem\n")


def test_once_prints_what_there_is_where_a_request_hangs(watch):
    """The cell is asked for first."""
    fault = '[[fault]]\non = "nas.67"\ntimes = -1\ndelay_ms = 45000\n'
    result = watch.run("--json", "--once", scenario=QUIET + fault, timeout=40)
    [record] = result.records
    assert result.status == 0 and record["up"] and record["registration"] == "lte_nr5g"
    assert "pci" not in record.get("lte", {}) and "registration" in record["ages"]


@pytest.mark.long
def test_once_gives_up_what_is_never_answered(watch):
    for options, scenario in ((["--scan", "1h"], "[scan]\nanswer_ms = -1\n"), (["--locate", "1h"], "[location]\nfix_ms = -1\n")):
        result = watch.run("--json", "--once", *options, scenario=QUIET + scenario, timeout=90)
        assert result.status == 0 and result.records[0]["lte"]["rsrp"] == -95


# The document

def document_map():
    """The document's command that makes a map of a drive."""
    return re.search(r"(?ms)^jq -n .*?> drive\.geojson$", DOCUMENT.read_text(encoding="utf-8"))[0]


def test_recorded_drive_becomes_a_map_by_the_command_of_the_document(watch, tmp_path):
    with watch.session("--json", "--every", "50ms", "--locate", "50ms", timeout=60,
                       scenario=fast_motion("motorway_drive.toml", 50) + "[location]\nfix_ms = 20\n") as session:
        session.wait_journal(lambda row: row["name"] == "trace_end")
        session.wait_record(lambda record: record["type"] == "snapshot" and record.get("lte", {}).get("pci") == 371)
        assert session.terminate() == 0
        snapshots = [record for record in session.finish().snapshots if "location" in record]
    (tmp_path / "drive.jsonl").write_text("".join(json.dumps(record) + "\n" for record in session.records), encoding="utf-8")
    subprocess.run(["/bin/sh", "-c", document_map()], cwd=tmp_path, check=True)

    drive = json.loads((tmp_path / "drive.geojson").read_text(encoding="utf-8"))
    assert drive["type"] == "FeatureCollection" and len(drive["features"]) == len(snapshots) >= 40
    places = [(float(row["Longitude"]), float(row["Latitude"])) for row in read_drive(ROOT / "scenarios/motorway_drive.csv")]
    at = 0
    for feature, record in zip(drive["features"], snapshots):
        assert feature["type"] == "Feature" and feature["geometry"]["type"] == "Point"
        at = places.index(tuple(feature["geometry"]["coordinates"]), at)  # a place of the drive, and in its order
        assert feature["properties"].get("rsrp") == record.get("lte", {}).get("rsrp")
    assert at > len(places) / 2
    assert sum("rsrp" in feature["properties"] for feature in drive["features"]) > len(snapshots) / 2
    assert not [feature for feature in drive["features"] if None in feature["properties"].values()]


def test_records_of_the_document_are_as_the_schema_has_them():
    blocks = re.findall(r"(?ms)^```json\n(.*?)^```$", DOCUMENT.read_text(encoding="utf-8"))
    *records, history = map(json.loads, blocks)
    assert len(records) == 2
    for record in records:
        watching.parse(json.dumps(record) + "\n")
    watching.HISTORY.validate(history)


def test_document_names_every_event_and_option(watch):
    text = DOCUMENT.read_text(encoding="utf-8")
    names = [kind["properties"]["event"] for kind in watching.SCHEMA["$defs"]["event"]["anyOf"]]
    events = [name for each in names for name in each.get("enum", [each.get("const")])]
    assert [name for name in events if f"`{name}`" not in text] == []
    options = re.findall(r"--[a-z]+", watch.run("--help").console)
    assert [name for name in options if name not in ("--help", "--version") and f"`{name}" not in text] == []
