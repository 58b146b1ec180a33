# SPDX-License-Identifier: Apache-2.0
"""Recorded drives replay row by row, and the demo client prints what the last row measured.

The reference here knows the log's columns and ranges and nothing of the board's reader.
"""
import contextlib
import csv
import math

import pytest

from lyn import DRIVES, PROMPT

NO_SERVICE, INFO_UNAVAILABLE = -16, -17
RANGES = {"RSRP": (-156, -31), "RSRQ": (-43, 20), "SNR": (-40, 50)}
RANGES.update({f"NR_{column}": limits for column, limits in RANGES.items()})
# Metric, column, scale (SINR is given in 0.1 dB), and the columns that are valid only together.
LTE_PART, NR5G_PART = ("RSRP", "RSRQ", "SNR"), ("NR_RSRP", "NR_SNR")
METRICS = {10: ("LTE Serving Cell RSRP", "RSRP", 1, LTE_PART),
           11: ("NR 5G Serving Cell RSRP", "NR_RSRP", 1, NR5G_PART),
           12: ("LTE Serving Cell RSRQ", "RSRQ", 1, LTE_PART),
           13: ("NR 5G Serving Cell RSRQ", "NR_RSRQ", 1, ("NR_RSRQ",)),
           14: ("LTE Serving Cell SINR", "SNR", 10, LTE_PART),
           15: ("NR 5G Serving Cell SINR", "NR_SNR", 10, NR5G_PART)}


def read_drive(path):
    """The rows as they are recorded; a field that breaks off at the end of the file may be half a number and goes."""
    with open(path, encoding="utf-8", newline="") as file:
        lines = list(csv.reader(file))
        file.seek(0)
        broken = not file.read().endswith("\n")
    names, rows = lines[0], [line for line in lines[1:] if line]
    if broken and len(rows[-1]) < len(names):
        rows[-1].pop()
    return [dict(zip(names, row)) for row in rows]


def measured(row, column, scale=1):
    """The value of a column in the unit of the metric, rounded half away from zero; None where nothing was measured."""
    try:
        value = float(row[column])
    except (KeyError, TypeError, ValueError):
        return None
    low, high = RANGES[column]
    if not low <= value <= high:
        return None
    return int(math.copysign(math.floor(abs(value) * scale + 0.5), value))


def expected_status(row):
    return {"LTE": 5, "5G": 6}.get(row["NetworkMode"], 1)


def expected_line(row, metric):
    """What `7 METRIC` prints behind its request line."""
    name, column, scale, part = METRICS[metric]
    failed = f"LYN DEMO APP : Getting LTE/5G [{name}] metric information failed with status"
    if expected_status(row) not in (5, 6):
        return f"{failed}[{NO_SERVICE}].\n"
    if any(measured(row, each) is None for each in part):
        return f"{failed}[{INFO_UNAVAILABLE}].\n"
    return f"[{name}] - {measured(row, column, scale)}\n"


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
    trace = [row["fields"].get("row", row["name"]) for row in result.journal if row["lib"] == "sim"]
    assert trace == [*range(len(rows)), "trace_end"]
    return result


@pytest.mark.parametrize("speed", [0, 2000])
@pytest.mark.parametrize("path", DRIVES, ids=lambda path: path.stem)
def test_drive_ends_with_the_values_of_its_last_row(demo, path, speed):
    replay(demo, path, speed)


CLEAN = {"Timestamp": "2025.03.14_10.20.20", "Longitude": "11.566957", "Latitude": "48.148970", "Speed": "24",
         "Operatorname": "Testnet", "CellID": "1", "NetworkMode": "LTE", "RSRP": "-90", "RSRQ": "-10", "SNR": "5.0",
         "CQI": "12", "LACHEX": "2F3C", "RAWCELLID": "85594113", "NRxRSRP": "-95.0", "NRxRSRQ": "-14.0"}
NR5G = {"NR_RSRP": "-101", "NR_RSRQ": "-12", "NR_SNR": "-3.5"}


def log_of(*rows, columns=tuple(CLEAN), end="\n", trailer="\n"):
    """A log whose rows are the clean one with some fields replaced; one that is None ends its row early."""
    lines = [columns]
    for row in rows:
        fields = [{**CLEAN, **row}.get(column, "") for column in columns]
        lines.append(fields[: fields.index(None)] if None in fields else fields)
    return end.join(",".join(line) for line in lines) + trailer


WIDE = (*CLEAN, *NR5G)
LOGS = {
    "ends_without_lte": log_of({}, {"NetworkMode": "HSPA+"}),
    "never_has_lte": log_of({"NetworkMode": "HSPA", "RSRP": "-7"}, {"NetworkMode": "UMTS"}, {"NetworkMode": "EDGE"}),
    "service_comes_back": log_of({"NetworkMode": "-"}, {"NetworkMode": "5G", "SNR": "-11.0"}),
    "ends_unmeasured": log_of({}, {"SNR": "-"}),
    "unknown_value": log_of({"RSRQ": "2147483647"}),
    "empty_value": log_of({"RSRP": ""}),
    "out_of_range": log_of({"RSRP": "-30"}),
    "bounds": log_of({"RSRP": "-156", "RSRQ": "20", "SNR": "-40"}),
    "fractions": log_of({"RSRP": "-90.5", "RSRQ": "-9.5", "SNR": "12.25"}),
    "no_trailing_fields": log_of({"CQI": None}),
    "row_that_ends_before_its_measurements": log_of({}, {"RSRQ": None}),
    "last_line_broken_off": log_of({}, {"SNR": "1", "CQI": None}, trailer=""),
    "last_line_complete_without_newline": log_of({"NRxRSRQ": "-9"}, trailer=""),
    "carriage_returns": log_of({}, {"RSRP": "-77"}, end="\r\n", trailer="\r\n"),
    "backward_time_stamps": log_of({}, {"Timestamp": "2024.01.01_00.00.00", "RSRP": "-71"}, {"RSRP": "-72"}),
    "operator_with_a_comma": log_of({"Operatorname": '"B, the other"', "RSRP": "-73"}),
    "columns_in_another_order": log_of({"RSRP": "-74"}, columns=tuple(reversed(CLEAN))),
    "more_columns": log_of({"RSRP": "-75", "Extra": "-1"}, columns=("Extra", *CLEAN, "Last")),
    "nr5g": log_of({}, {**NR5G, "NetworkMode": "5G"}, columns=WIDE),
    "nr5g_without_rsrq": log_of({**NR5G, "NetworkMode": "5G", "NR_RSRQ": "-"}, columns=WIDE),
    "nr5g_without_snr": log_of({**NR5G, "NetworkMode": "5G", "NR_SNR": "-"}, columns=WIDE),
    "nr5g_without_lte_values": log_of({**NR5G, "NetworkMode": "5G", "RSRP": "-"}, columns=WIDE),
    "one_row": log_of({}),
}


@pytest.mark.parametrize("kind", LOGS)
def test_made_up_log_ends_with_the_values_of_its_last_row(demo, tmp_path, kind):
    path = tmp_path / "made_up.csv"
    path.write_bytes(LOGS[kind].encode())
    replay(demo, path, 0)


@pytest.mark.parametrize("speed", [0, 2000])
def test_every_recorded_drive_replays_without_a_skipped_row(demo, drives, speed):
    found = sorted(drives.glob("*.csv"))
    assert found
    for path in found:
        replay(demo, path, speed)


def test_first_rows_come_one_by_one_at_speed_1(demo, drives):
    with contextlib.ExitStack() as stack:
        sessions = []
        for path in sorted(drives.glob("*.csv")):
            sessions.append(stack.enter_context(demo.session(scenario=f'[trace]\nfile = "{path}"\n')))
            sessions[-1].send("1")
        for session in sessions:
            session.wait_journal(lambda row: row["name"] == "trace_row" and row["fields"]["row"] == 2)
            assert session.terminate() == 0
            seen = [row["fields"]["row"] for row in session.finish().calls("event", "trace_row")]
            assert seen == list(range(len(seen)))
