# SPDX-License-Identifier: Apache-2.0
"""The boards of scenarios/: each is read as it stands, is named in the documents, and shows what it promises.

What a board shows over minutes is watched in fast motion: a copy with all its times divided by one factor, and without
noise.
"""
import csv
import dataclasses
import re
import subprocess
import sys
import tomllib

import pytest

from lyn import AUTO_DONE, PROMPT, ROOT

FOLDER = ROOT / "scenarios"
FILES = sorted(path.name for path in FOLDER.glob("*.toml"))

REGISTERED = "Application registered successfully.\n"
DEREGISTERED = "Application deregistered successfully.\n"
STATUS = "Registration status indication[{}].\n"
LTE_RSRP = "LTE serving cell RSRP indication[{}].\n"
NR5G_RSRP = "NR 5G serving cell RSRP indication[{}].\n"


def failed(name, status):
    return f"Getting LTE/5G [{name}] metric information failed with status[{status}].\n"


def value(name, number):
    return f"[{name}] - {number}\n"


def status_is(number):
    return "7 1", value("Registration Status", number)


@dataclasses.dataclass
class Board:
    """What a board shows. A step is lines to type and the texts that have to come, in this order, or a function of the
    session; the journal has the rows, each a direction, a name and some of its fields, in theirs."""

    steps: list
    journal: list
    faster: float = 1
    never: str = ""


LTE_TEST = ("1", "1", "1", "4", "192.0.2.10", "0", "192.0.2.20", "1", "5001", "5002")
PANEL_ON = ("2", "1", "1", "1", "261", "2079167", "4")
INSTALL_ON = ("1", "1", "261", "2079167", "4")
BEAM = "RSRP             --> \033[32m-78\n"


def scan_until(text):
    """Ask for the strongest LTE neighbour until a text comes."""
    def ask(session):
        for _ in range(100):
            seen = len(session.console)
            session.send("7 30")
            if text in session.wait_for("LTE neighbor frequency[")[seen:]:
                return
        raise AssertionError(f"no scan found {text!r}")
    return ask


def last_row():
    with open(FOLDER / "motorway_drive.csv", encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file))[-1]


BOARDS = {
    "motorway_drive.toml": Board(
        faster=100,
        steps=[("1", REGISTERED), ("3 2", *(STATUS.format(status) for status in (1, 5, 6, 5, 6, 5))),
               lambda session: session.wait_journal(lambda row: row["name"] == "trace_end"),
               ("8 2 4 6 18 10", value("LTE Serving Cell EARFCN", 6300), value("LTE Serving Cell PCI", 371),
                value("LTE Serving Cell CGI", last_row()["RAWCELLID"]),
                value("LTE Serving cell TAC", int(last_row()["LACHEX"], 16)),
                value("LTE Serving Cell RSRP", last_row()["RSRP"])),
               ("7 50", "5000", "10", f" Latitude is {last_row()['Latitude']} \n")],
        journal=[("event", "trace_row", {"row": 0}), ("event", "trace_row", {"row": 419}),
                 ("event", "trace_end", {"rows": 420})]),
    "cell_edge.toml": Board(
        faster=2, never=LTE_RSRP.format(-107),
        steps=[("1", REGISTERED), ("7 10", failed("LTE Serving Cell RSRP", -17)), ("3 2",),
               ("3 3 6", LTE_RSRP.format(-104), LTE_RSRP.format(-111), LTE_RSRP.format(-118), STATUS.format(3)),
               ("7 10", failed("LTE Serving Cell RSRP", -16), STATUS.format(5), LTE_RSRP.format(-98)),
               ("7 10", value("LTE Serving Cell RSRP", -98))],
        journal=[("request", "config_sig_info", {"lte_rsrp_delta": 6}), ("indication", "sys_info_ind", {}),
                 ("indication", "sys_info_ind", {})]),
    "lte_with_nr5g.toml": Board(
        faster=5,
        steps=[("1", REGISTERED), ("3 2",), status_is(6),
               ("8 10 11", value("LTE Serving Cell RSRP", -89), value("NR 5G Serving Cell RSRP", -94)),
               ("8 3 5", value("NR 5G Serving Cell EARFCN", 636000), value("NR 5G Serving Cell PCI", 811)),
               ("7 43", "RF Bandwidth type->[17]\n", STATUS.format(5)), ("7 38", "ENDC mode valid 1\n", STATUS.format(6)),
               status_is(6)],
        journal=[("indication", "sys_info_ind", {}), ("indication", "sys_info_ind", {})]),
    "standalone_nr5g.toml": Board(
        faster=10,
        steps=[("1", REGISTERED), status_is(7), ("7 41", "sub carrier spacing - 2\n"),
               ("8 3 5 7 19", value("NR 5G Serving Cell EARFCN", 636000), value("NR 5G Serving Cell PCI", 811),
                value("NR 5G Serving Cell CGI", 205668355), value("NR 5G Serving Cell TAC", "0, 47, 16")),
               ("7 10", failed("LTE Serving Cell RSRP", -17)),
               ("3 4 5", NR5G_RSRP.format(-101), NR5G_RSRP.format(-84)), ("7 41", "sub carrier spacing - 1\n"),
               ("7 43", "RF Bandwidth type->[10]\n", NR5G_RSRP.format(-101))],
        journal=[("indication", "sig_info_ind", {"nr5g_sig_info": {"rsrp": -101, "snr": 95}}),
                 ("indication", "sig_info_ind", {"nr5g_sig_info": {"rsrp": -84, "snr": 140}})]),
    "modem_restarts.toml": Board(
        faster=3,
        steps=[("1", REGISTERED), ("7 4", value("LTE Serving Cell PCI", 41)), ("3 1", "Modem down status indication\n"),
               ("7 10", failed("LTE Serving Cell RSRP", -1)),
               ("7 44", failed("Get WWAN profile Index", -1), "Modem up status indication\n"),
               ("8 4 10", value("LTE Serving Cell PCI", 302), value("LTE Serving Cell RSRP", -86)),
               ("4", "indication count - [1].\n")],
        journal=[("response", "get_sys_info", {"transport": 0}), ("response", "get_sys_info", {"transport": -1}),
                 ("response", "get_sys_info", {"transport": 0})]),
    "slow_modem.toml": Board(
        faster=2,
        steps=[("1", REGISTERED), ("3 2",), ("7 10", value("LTE Serving Cell RSRP", -95)),
               ("7 4", value("LTE Serving Cell PCI", 187)),
               ("7 22", "LTE neighbor information asynchronous response.\n")],
        journal=[("request", "get_sig_info", {}), ("indication", "sys_info_ind", {}), ("response", "get_sig_info", {}),
                 ("request", "get_cell_location_info", {}), ("response", "get_cell_location_info", {})]),
    "refusing_modem.toml": Board(
        steps=[("1", REGISTERED), *(("7 10", failed("LTE Serving Cell RSRP", status)) for status in (-1, -1, -17)),
               ("7 10", value("LTE Serving Cell RSRP", -93)), ("7 4", failed("LTE Serving Cell PCI", -17)),
               ("7 22", failed("LTE Neighboring Cell EARFCN", -1)),
               ("9 3", "1", "302", "6300", "1", "[SET LTE Cell Lock List] metric information failed with status[-1]"),
               ("9 8", *INSTALL_ON, "[SET LYN Install mode] metric information failed with status[-1]"),
               ("7 48", *LTE_TEST, "MTPE Test status 3\n"),
               ("7 50", "5000", "10", "single shot location response is 1 \n")],
        journal=[("response", "get_sig_info", {"transport": -1}), ("response", "get_sig_info", {"result": 1, "error": 46}),
                 ("response", "get_sig_info", {"transport": 0, "result": 0}), ("return", "StartMTPE", {"error": 0x21})]),
    "install_mode.toml": Board(
        faster=2,
        steps=[("1", REGISTERED),
               ("9 6", *PANEL_ON, "Panel position mode started\n", "for PPS Index  3\n", "for PPS mode 1\n",
                "for PPS Index  3\n", "for PPS mode 2\n"),
               ("9 8", *INSTALL_ON, BEAM), ("9 8", "2", "install status mode  0\n")],
        journal=[("request", "set_pps_config", {"position_index": 2}), ("indication", "pps_ind", {"position_index": 3}),
                 ("request", "set_install_mode", {"mode": 0}), ("indication", "install_freq_ind", {}),
                 ("request", "set_install_mode", {"mode": 1})]),
    "neighbours.toml": Board(
        faster=10,
        steps=[("1", REGISTERED), ("8 24 25", "LTE neighbor #1 : Cell ID[302]\n", "NR 5G neighbor #0 : Cell ID[612]\n"),
               ("8 24 25", "LTE neighbor #2 : Cell ID[302]\n", "NR 5G neighbor #1 : Cell ID[77]\n"),
               ("8 24 25", "LTE neighbor information asynchronous response.\n"
                "LYN DEMO APP CALLBACK - NR 5G neighbor information asynchronous response.\n"),
               scan_until("LTE neighbor cell ID[0]\n"), scan_until("LTE neighbor cell ID[302]\n"),
               scan_until("LTE neighbor cell ID[12]\n")],
        journal=[("request", "incremental_network_scan", {"network_type": 4}),
                 ("request", "incremental_network_scan", {"network_type": 16})] * 3),
    "throughput_test.toml": Board(
        faster=5,
        steps=[("1", REGISTERED), ("7 47", "4", "192.0.2.10", "MTPE bandwidth 300000 and MTU 1400"),
               ("7 48", *LTE_TEST, "MTPE Test status 1\n", "MTPE Test status 2\n",
                "MTPE Test peak rate caluculated 284000\n"),
               ("7 45", "1", "bytes_rx: ")],
        journal=[("call", "ConfigureMTPE", {"duration": 1}), ("call", "StartMTPE", {}),
                 ("indication", "mtpe_status_ind", {"test_status": 2, "peak_rate": 284000})]),
    "traffic.toml": Board(
        faster=5,
        steps=[("1", REGISTERED), ("7 44", "|            internet|\n", "|                 ims|\n", "|       meter.example|\n"),
               ("7 45", "1", "bytes_rx: 734"), ("7 45", "3", "pkts_dropped_tx: 37\n"), ("7 46", "2", "bytes_rx: "),
               ("7 46", "3", failed("Get IPV6 statistics", -1)), ("7 52", "QOS bearer ID 5\n", "QOS Tx_5g_qci value 6\n"),
               ("4", "QOS bearer ID 6\n", "QOS Tx_5g_qci value 1\n")],
        journal=[("call", "SetWWANProfileHandlePreference", {"profile_handle": 1}),
                 ("call", "SetWWANProfileHandlePreference", {"profile_handle": 3}),
                 ("indication", "qos_flow_ind", {"bearer_id": 6})]),
    "no_service.toml": Board(
        faster=10,
        steps=[("1", REGISTERED), status_is(1), ("7 10", failed("LTE Serving Cell RSRP", -16)),
               ("7 22", failed("LTE Neighboring Cell EARFCN", -16)), ("7 44", failed("Get WWAN profile Index", -16)),
               ("3 2", STATUS.format(2), STATUS.format(1))],
        journal=[("indication", "sys_info_ind", {}), ("indication", "sys_info_ind", {})]),
}


def fast_motion(name, faster):
    """The board with its times divided and without noise, to be read from another folder."""
    text = (FOLDER / name).read_text(encoding="utf-8")
    text = re.sub(r"(?m)^(\w*_?ms|noise_db) = ([\d.]+)",
                  lambda key: f"{key[1]} = {0 if key[1] == 'noise_db' else float(key[2]) / faster}", text)
    text = re.sub(r"(?m)^speed = (\d+)$", lambda key: f"speed = {int(key[1]) * faster}", text)
    return text.replace('file = "', f'file = "{FOLDER}/')


def take(session, step):
    """What is typed has digits, dots and blanks; what has to come has words."""
    if callable(step):
        step(session)
        return
    for text in step:
        if re.fullmatch(r"[\d. ]+", text):
            session.send(text)
        else:
            session.wait_for(text)


def has(row, wanted):
    direction, name, fields = wanted
    return row["dir"] == direction and row["name"] == name and fields.items() <= row["fields"].items()


def missing_rows(journal, wanted):
    """The rows that the journal does not have in this order."""
    rest = iter(journal)
    return [each for each in wanted if not any(has(row, each) for row in rest)]


def test_every_board_has_a_test_and_every_test_a_board():
    assert sorted(BOARDS) == FILES


@pytest.mark.parametrize("name", BOARDS)
def test_board_shows_what_it_promises(demo, name):
    board = BOARDS[name]
    with demo.session(scenario=fast_motion(name, board.faster), timeout=60, limit=32 << 20) as session:
        session.wait_for(PROMPT)
        for step in board.steps:
            take(session, step)
        session.send("2")
        session.wait_for(DEREGISTERED)
        assert session.terminate() == 0
        result = session.finish()
    assert missing_rows(result.journal, board.journal) == []
    assert not board.never or board.never not in result.console
    assert result.stderr == ""


@pytest.mark.parametrize("name", FILES)
def test_board_is_read_as_it_stands_from_the_root_of_the_tree(demo, name):
    result = demo.auto(["1", "2"], env={"LYN_SIM_SCENARIO": f"scenarios/{name}"})
    assert result.stderr == ""
    assert REGISTERED in result.console and DEREGISTERED in result.console and result.console.endswith(AUTO_DONE)


def test_board_says_first_what_to_look_at():
    for name in FILES:
        head = (FOLDER / name).read_text(encoding="utf-8").split("\n\n")[0]
        assert re.match(r"# [A-Z]", head) and "\n#\n# Look at: " in head, name


def test_every_board_is_named_in_the_documents():
    text = (ROOT / "docs/simulator.md").read_text(encoding="utf-8")
    assert sorted(re.findall(r"(?m)^\| \[`(\w+\.toml)`\]\(\.\./scenarios/\1\) \|", text)) == FILES


# The motorway -------------------------------------------------------------------------------------------------------


def test_motorway_is_made_by_its_tool():
    made = subprocess.run([sys.executable, ROOT / "tools/motorway-drive"], check=True, capture_output=True)
    assert made.stdout == (FOLDER / "motorway_drive.csv").read_bytes()


def handovers():
    """Rows of the drive at which the serving cell is another than the one before."""
    with open(FOLDER / "motorway_drive.csv", encoding="utf-8", newline="") as file:
        rows = [row["RAWCELLID"] for row in csv.DictReader(file)]
    serving = rows[0]
    for number, cell in enumerate(rows):
        if cell not in ("-", serving):
            serving = cell
            yield number


def test_motorway_changes_carrier_and_cell_with_the_rows_that_change_the_cell_identity():
    board = tomllib.loads((FOLDER / "motorway_drive.toml").read_text(encoding="utf-8"))
    assert board["trace"]["speed"] == 1
    assert [(entry["after"], entry["ms"]) for entry in board["at"]] == [
        (board["trace"]["after"], row * 1000) for row in handovers()]
    cells = [board["lte"]["pci"], *(entry["lte"]["pci"] for entry in board["at"])]
    assert len(set(cells)) == len(cells)
