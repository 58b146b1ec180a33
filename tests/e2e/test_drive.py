"""Recorded drives replay row by row, and the demo client prints what the last row measured.

The reference here knows the log's columns and ranges and nothing of the board's reader.
"""
import csv
import math
import re
import time

import pytest

from lyn import DATA, PROMPT, SCALE, read_text

NO_SERVICE, INFO_UNAVAILABLE = -16, -17
RANGES = {"RSRP": (-156, -31), "RSRQ": (-43, 20), "SNR": (-40, 50)}
METRICS = {10: ("LTE Serving Cell RSRP", "RSRP", 1), 12: ("LTE Serving Cell RSRQ", "RSRQ", 1),
           14: ("LTE Serving Cell SINR", "SNR", 10)}  # SINR is given in 0.1 dB


def read_drive(path):
    with open(path, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file))


def measured(row, column, scale=1):
    """The value of a column in the unit of the metric, rounded half away from zero; None where nothing was measured."""
    try:
        value = float(row[column])
    except (TypeError, ValueError):
        return None
    low, high = RANGES[column]
    if not low <= value <= high:
        return None
    return int(math.copysign(math.floor(abs(value) * scale + 0.5), value))


def expected_status(row):
    return {"LTE": 5, "5G": 6}.get(row["NetworkMode"], 1)


def expected_line(row, metric):
    """What `7 METRIC` prints behind its request line."""
    name, column, scale = METRICS[metric]
    failed = f"LYN DEMO APP : Getting LTE/5G [{name}] metric information failed with status"
    if expected_status(row) not in (5, 6):
        return f"{failed}[{NO_SERVICE}].\n"
    if any(measured(row, each) is None for each in RANGES):
        return f"{failed}[{INFO_UNAVAILABLE}].\n"
    return f"[{name}] - {measured(row, column, scale)}\n"


def wait_for_trace_end(launch):
    deadline = time.monotonic() + 20 * SCALE
    while '"trace_end"' not in read_text(launch.journal_path):
        assert time.monotonic() < deadline, "the drive does not end"
        time.sleep(0.01)


def replay(demo, path, speed, timeout=60):
    """Register, wait for the end of the drive, ask for the metrics, deregister; returns session's console and journal."""
    rows = read_drive(path)
    with demo.session(scenario=f'[trace]\nfile = "{path}"\nspeed = {speed}\n', timeout=timeout) as session:
        session.wait_for(PROMPT)
        session.send("1")
        session.wait_for("LYN DEMO APP : Application registered successfully.\n")
        end = session.wait_journal(lambda row: row["name"] == "trace_end")
        assert end["fields"]["rows"] == len(rows)
        session.send("7 1")
        session.wait_for(f"[Registration Status] - {expected_status(rows[-1])}\n")
        for metric in METRICS:
            session.send(f"7 {metric}")
            session.wait_for(expected_line(rows[-1], metric))
        session.send("2")
        session.wait_for("LYN DEMO APP : Application deregistered successfully.\n")
        assert session.terminate() == 0
        result = session.finish()
    assert [row["fields"]["row"] for row in result.calls("event", "trace_row")] == list(range(len(rows)))
    return result


@pytest.mark.parametrize("speed", [0, 2000])
def test_drive_ends_with_the_values_of_its_last_row(demo, speed):
    replay(demo, DATA / "drive.csv", speed)


def test_drive_that_ends_without_lte_is_refused(demo, tmp_path):
    rows = (DATA / "drive.csv").read_text().splitlines(keepends=True)
    shorter = tmp_path / "shorter.csv"
    shorter.write_text("".join(rows[:27]))
    assert read_drive(shorter)[-1]["NetworkMode"] == "HSPA+"
    replay(demo, shorter, 0)


def test_drive_that_ends_unmeasured_is_refused(demo, tmp_path):
    rows = (DATA / "drive.csv").read_text().splitlines(keepends=True)
    shorter = tmp_path / "shorter.csv"
    shorter.write_text("".join(rows[:9]))
    assert measured(read_drive(shorter)[-1], "SNR") is None
    replay(demo, shorter, 0)


@pytest.mark.parametrize("speed", [0, 2000])
def test_every_recorded_drive_replays_without_a_skipped_row(demo, drives, speed):
    found = sorted(drives.glob("*.csv"))
    assert found
    for path in found:
        replay(demo, path, speed)


def by_thread(text, key):
    """Lines grouped by what `key` finds in them, in their order within a group: the board's threads run side by side."""
    lines = text.splitlines(keepends=True)
    return "".join(sorted(lines, key=lambda line: re.search(key, line).group()))


def test_session_on_a_drive_is_recorded(demo, goldens):
    """The session that README.md shows: tools/check-docs holds the one to the other."""
    env = {"LYN_SIM_SCENARIO": str(DATA / "drive.toml")}
    with demo.terminal(env=env) as terminal:
        console = terminal.expect(PROMPT) + PROMPT
        for line in ("1", "7 1", "7 10", "7 12", "7 14", "2"):
            terminal.sendline(line)
            console += terminal.expect(PROMPT) + PROMPT
            if line == "1":
                wait_for_trace_end(terminal.launch)
        assert terminal.terminate() == 0
        launch = terminal.launch
    goldens.check("drive_session", console=console.replace("\r\n", "\n"),
                  journal=by_thread(read_text(launch.journal_path), '"lib": "[a-z]+", "dir": "(indication)?'),
                  diag=by_thread(read_text(launch.diag_path), r"\w+\.(cpp|h)"))
