# SPDX-License-Identifier: Apache-2.0
"""Indications: from what the board measures and does to the lines that the demo client's callback prints.

The reference for drives knows the log's columns, the modem's rule of reports and the suppression of repeats, and nothing
of the code.
"""
import csv
import os
import re

import pytest

from lyn import BUILD, DATA, DRIVES, OPTION_FAILED, PROMPT
from test_drive import measured, read_drive
from test_main_loop import MENU

QUIET = "[board]\nnoise_db = 0\n"
NO_SERVICE = QUIET + '[sys_info]\nlte = "no_service"\nnr5g_pci = -1\n'  # nothing is measured, so nothing is reported

# Indication: the words of its line, the column, the scale (SINR is given in 0.1 dB).
SIGNALS = {3: ("LTE serving cell RSRP", "RSRP", 1), 5: ("LTE serving cell RRSQ", "RSRQ", 1),
           7: ("LTE serving cell SINR", "SNR", 10), 4: ("NR 5G serving cell RSRP", "NR_RSRP", 1),
           6: ("NR 5G serving cell RSRQ", "NR_RSRQ", 1), 8: ("NR 5G serving cell SINR", "NR_SNR", 10)}
LTE, NR5G = (3, 5, 7), (4, 6, 8)
NR5G_OF = {"NR_RSRP": "RSRP", "NR_RSRQ": "RSRQ", "NR_SNR": "SNR"}

CALLBACK = "LYN DEMO APP CALLBACK - "
SIGNAL_LINE = re.compile(re.escape(CALLBACK) + r"((?:LTE|NR 5G) serving cell \w+) indication\[(-?\d+)\]\.")
END = "LYN DEMO APP indication for install status mode  77\n"


# Drives -------------------------------------------------------------------------------------------------------------


def values_of(row):
    """What is measured in a row: indication -> value. The LTE part needs service and all three; RSRQ of NR 5G is alone."""
    values = {}
    lte = {ind: measured(row, SIGNALS[ind][1], SIGNALS[ind][2]) for ind in LTE}
    if row["NetworkMode"] in ("LTE", "5G") and None not in lte.values():
        values.update(lte)
    nr5g = {}
    for ind in NR5G:
        _, column, scale = SIGNALS[ind]
        nr5g[ind] = measured({NR5G_OF[column]: row.get(column)}, NR5G_OF[column], scale)
    if nr5g[4] is not None and nr5g[8] is not None:
        values.update({4: nr5g[4], 8: nr5g[8]})
    if nr5g[6] is not None:
        values[6] = nr5g[6]
    return values


class Reference:
    """The modem's reports, and what is left of them once repeats are gone."""

    def __init__(self, thresholds):
        self.thresholds = thresholds
        self.deltas, self.reported, self.last, self.lines = {}, {}, {}, []

    def subscribe(self, ind, values):
        self.deltas[ind] = self.thresholds[ind]
        self.last[ind] = 0
        self.reported = {}
        if values:
            self.report(values)

    def measure(self, values):
        for ind, delta in self.deltas.items():
            if ind in values and (ind not in self.reported or abs(values[ind] - self.reported[ind]) >= delta):
                self.report(values)
                return

    def report(self, values):
        self.reported.update(values)
        for ind in SIGNALS:
            if ind in self.deltas and ind in values and values[ind] != self.last[ind]:
                self.last[ind] = values[ind]
                self.lines.append((SIGNALS[ind][0], values[ind]))


def expected_lines(rows, thresholds):
    reference = Reference(thresholds)
    for ind in thresholds:
        reference.subscribe(ind, values_of(rows[0]))
    for row in rows[1:]:
        reference.measure(values_of(row))
    return reference.lines


def every_change(rows, ind):
    """With threshold 1: each change of the measured value once, the first value included."""
    changes = []
    for row in rows:
        value = values_of(row).get(ind)
        if value is not None and value != (changes[-1] if changes else 0):
            changes.append(value)
    return [(SIGNALS[ind][0], value) for value in changes]


def replayed_lines(demo, path, thresholds):
    """Subscribe, replay the drive from the last subscription on, and return the callback's signal lines."""
    scenario = (f'[trace]\nfile = "{path}"\nspeed = 2000\nafter = "nas.108"\nskip = {len(thresholds) - 1}\n'
                '[[at]]\nafter = "nas.77"\nskip = 1\ninstall_status = 77\n')
    with demo.session(scenario=scenario, timeout=60) as session:
        session.wait_for(PROMPT)
        session.send("1")
        for ind, threshold in thresholds.items():
            session.send(f"3 {ind} {threshold}")
        session.wait_journal(lambda row: row["name"] == "trace_end")
        session.send("7 1")  # its query lets the board send what comes behind all others
        console = session.wait_for(END)
        session.send("2")
        session.wait_for("Application deregistered successfully.\n")
        assert session.terminate() == 0
    return [(name, int(value)) for name, value in SIGNAL_LINE.findall(console)]


def with_nr5g(path, folder):
    """The drive with NR 5G columns: the LTE ones of other rows, some left out."""
    rows = read_drive(path)
    for i, row in enumerate(rows):
        other = rows[(i * 7 + 3) % len(rows)]
        row.pop(None, None)
        for column, source in NR5G_OF.items():
            row[column] = other.get(source) if i % 11 else "-"
        if i % 5 == 0:
            row["NR_RSRQ"] = "-"
        if i % 13 == 0:
            row["NR_SNR"] = ""
    target = folder / path.name
    with open(target, "w", encoding="utf-8", newline="") as file:
        writer = csv.DictWriter(file, list(rows[0]))
        writer.writeheader()
        writer.writerows(rows)
    return target


ALL_SIX = [{3: 2, 5: 1, 7: 15, 4: 3, 6: 2, 8: 7}, {8: 40, 3: 5, 6: 4, 5: 3, 4: 1, 7: 200}]


def check_single(demo, path, ind):
    rows = read_drive(path)
    lines = replayed_lines(demo, path, {ind: 1})
    assert lines == every_change(rows, ind)
    assert lines == expected_lines(rows, {ind: 1})


def check_six(demo, path, folder, thresholds):
    path = with_nr5g(path, folder)
    assert replayed_lines(demo, path, thresholds) == expected_lines(read_drive(path), thresholds)


@pytest.mark.parametrize("ind", LTE)
@pytest.mark.parametrize("path", DRIVES, ids=lambda path: path.stem)
def test_every_change_of_a_measured_value_is_printed_once(demo, path, ind):
    check_single(demo, path, ind)


@pytest.mark.parametrize("thresholds", ALL_SIX)
@pytest.mark.parametrize("path", DRIVES, ids=lambda path: path.stem)
def test_six_values_follow_their_thresholds(demo, tmp_path, path, thresholds):
    check_six(demo, path, tmp_path, thresholds)


@pytest.mark.parametrize("thresholds", ALL_SIX)
def test_values_of_an_nr5g_cell_that_comes_and_goes_follow_their_thresholds(demo, thresholds):
    path = DRIVES[1]
    assert replayed_lines(demo, path, thresholds) == expected_lines(read_drive(path), thresholds)


def recorded_drives():
    folder = os.environ.get("LYN_DRIVES")
    return sorted(name for name in os.listdir(folder) if name.endswith(".csv")) if folder else [None]


@pytest.mark.release_only
@pytest.mark.parametrize("ind", LTE)
@pytest.mark.parametrize("name", recorded_drives())
def test_every_change_of_a_recorded_drive_is_printed_once(demo, drives, name, ind):
    check_single(demo, drives / name, ind)


@pytest.mark.parametrize("name", recorded_drives())
def test_six_values_of_a_recorded_drive_follow_their_thresholds(demo, drives, tmp_path, name):
    check_six(demo, drives / name, tmp_path, ALL_SIX[0])


# Options 3 to 6 -----------------------------------------------------------------------------------------------------

APP = "LYN DEMO APP : "
NAMES = {0: "Invalid Indication", 1: "Modem Status", 2: "Registration Status", 3: "LTE Serving Cell RSRP"}


def name_of(ind):
    return NAMES.get(ind, "Unknown Indication")


def subscribed(ind, value=None, status=0):
    name = name_of(ind)
    text = f"{APP}Set LTE/5G [{name}] indication information.\n"
    if value is not None:
        text += f"{APP}Set LTE/5G [{name}] indication with value[{value}].\n"
    if status == 0:
        return text + f"{APP}LTE/5G [{name}] indication information set successfully.\n"
    return text + f"{APP}Set LTE/5G [{name}] indication information failed with status[{status}].\n" + OPTION_FAILED


def counted(count):
    return f"{APP}Get LTE/5G indication count.\n{APP}LTE/5G indication count - [{count}].\n"


def listed(inds, status=0):
    text = f"{APP}Get LTE/5G/GPS indication list.\n"
    if status != 0:
        return text + f"{APP}Get LTE/5G indication list failed with status[{status}].\n" + OPTION_FAILED
    text += f"{APP}LTE/5G indication list retrieved successfully.\n"
    return text + "".join(f"{APP}Indication #{i} - [{name_of(ind)}]\n" for i, ind in enumerate(inds))


def cleared(inds, status=0):
    text = f"{APP}Clear LTE/5G indication list.\n"
    text += "".join(f"{APP}Clear indication #{i} - [{name_of(ind)}]\n" for i, ind in enumerate(inds, 1))
    if status == 0:
        return text + f"{APP}LTE/5G indication list cleared successfully.\n"
    return text + f"{APP}Clear LTE/5G indication list failed with status[{status}].\n" + OPTION_FAILED


def invalid(what):
    return f"{APP}{what} failed - invalid options passed.\n"


SET_INVALID = invalid("Set LTE/5G indication")
CLEAR_INVALID = invalid("Clear LTE/5G indication list")
NO_MEMORY = f"{APP}Get LTE/5G/GPS indication list.\n{APP}Memory allocation failure for LYN DM indication list\n"

# In this order; one line changes what the next one finds.
OPTION_LINES = [
    ("4", counted(0)),
    ("5 2", listed([0, 0])),
    ("6", CLEAR_INVALID),
    ("3", SET_INVALID),
    ("3 1 2 3", SET_INVALID),
    ("3 20", subscribed(0, status=-7)),
    ("3 0", subscribed(0, status=-7)),
    ("3 -1", subscribed(0, status=-7)),
    ("3 14", subscribed(0, status=-7)),
    ("3 9", subscribed(9, status=-7)),
    ("3 13 5", subscribed(13, 5, status=-7)),
    ("3 3", subscribed(3, status=-2)),
    ("3 3 0", subscribed(3, 0, status=-2)),
    ("4", counted(0)),
    ("3 3 -1", subscribed(3, -1)),
    ("3 3 70000", subscribed(3, 70000)),
    ("3 2", subscribed(2)),
    ("4", counted(2)),
    ("4 7 7", counted(2)),
    ("5", invalid("Get LTE/5G/GPS indication list")),
    ("5 0", listed([], status=-2)),
    ("5 1", listed([], status=-4)),
    ("5 2", listed([2, 3])),
    ("5 4 9", listed([2, 3, 0, 0])),
    ("5 -1", NO_MEMORY),
    ("5 65537", NO_MEMORY),
    ("5 -2147483648", NO_MEMORY),
    ("6 2 9", cleared([2, 9], status=-7)),
    ("6 2 20", cleared([2, 0], status=-7)),
    ("6 -1", cleared([0], status=-7)),
    ("5 2", listed([2, 3])),
    ("6" + " 1" * 19, CLEAR_INVALID),
    ("6" + " 1" * 17 + " 3", cleared([1] * 17 + [3])),
    ("5 1", listed([2])),
    ("3 1 5", subscribed(1, 5)),
    ("6 2 1", cleared([2, 1])),
    ("4", counted(0)),
]


def test_subscription_options_print_and_do_what_they_should(demo):
    """Also: indications 9 to 13 pass the client's check and are refused by the API; a negative threshold prints as such."""
    with demo.session(scenario=NO_SERVICE) as session:
        session.wait_for(PROMPT)
        session.send("1")
        mark = len(session.wait_for(PROMPT))
        for line, text in OPTION_LINES:
            session.send(line)
            console = session.wait_for(PROMPT)
            assert console[mark:] == text + MENU, line
            mark = len(console)
        assert session.terminate() == 0
        result = session.finish()
    deltas = [row["fields"].get("lte_rsrp_delta") for row in result.calls("request", "config_sig_info")]
    assert deltas == [65535, 4464, 4464, None, None, None]
    errors = [re.sub(r"0x[0-9a-f]+", "0x*", line.split(" ", 2)[2]) for line in result.diag if line.startswith("ERROR")]
    unsupported = "diagnostic indication information for metric[{}] - not supported!!"
    assert errors == [
        *[f"Setting {unsupported.format(ind)}" for ind in (0, 0, 0, 0, 9, 13)],
        "Invalid params - hndl[0x*], dm_ind_list[0x*], dm_ind_list_cnt[0]",
        "Indication list count [1] passed can't store the entire indication list [2]",
        *[f"Clearing {unsupported.format(ind)}" for ind in (9, 0, 0)],
    ]


def test_argument_error_of_a_subscription_option_does_not_end_an_automatic_run(demo):
    result = demo.auto(["3", "5", "6", "4"])
    assert SET_INVALID in result.console and CLEAR_INVALID in result.console
    assert result.console.endswith(f"{APP}Get LTE/5G indication count failed with status[-2].\n" + OPTION_FAILED)


# What the board sends -----------------------------------------------------------------------------------------------


def test_modem_that_goes_down_and_up_ten_times_is_told_each_time_and_measures_on(demo):
    scenario = QUIET + "".join(f'[[at]]\nafter = "nas.108"\nskip = 1\nms = {ms}\n{what}\n' for ms, what in (
        (10, 'modem = "down"\nrepeat = 10\nevery_ms = 10'), (15, 'modem = "up"\nrepeat = 10\nevery_ms = 10'),
        (120, "lte = { rsrp = -101 }")))
    with demo.session(scenario=scenario) as session:
        session.wait_for(PROMPT)
        session.send("1")
        session.send("3 3 1")
        session.wait_for(f"{CALLBACK}LTE serving cell RSRP indication[-95].\n")
        session.send("3 1")
        session.wait_for(f"{CALLBACK}LTE serving cell RSRP indication[-101].\n")
        session.send("7 10")
        console = session.wait_for("[LTE Serving Cell RSRP] - -101\n")
        assert session.terminate() == 0
    assert re.findall(r"CALLBACK - Modem (\w+) status indication\n", console) == ["down", "up"] * 10
    assert SIGNAL_LINE.findall(console) == [("LTE serving cell RSRP", "-95"), ("LTE serving cell RSRP", "-101")]


def test_request_to_a_modem_that_is_down_fails_and_the_next_one_succeeds(demo):
    scenario = QUIET + '[[at]]\nafter = "nas.108"\nmodem = "down"\n[[at]]\nafter = "nas.108"\nms = 400\nmodem = "up"\n'
    with demo.session(scenario=scenario) as session:
        session.wait_for(PROMPT)
        session.send("1")
        session.send("3 1")
        session.wait_for(f"{CALLBACK}Modem down status indication\n")
        session.send("7 10")
        session.wait_for("failed with status[-1].\n")
        session.wait_for(f"{CALLBACK}Modem up status indication\n")
        session.send("7 10")
        session.wait_for("[LTE Serving Cell RSRP] - -95\n")
        assert session.terminate() == 0


EVERYTHING = NO_SERVICE + """
[[at]]
after = "nas.108"
ms = 5
sys_info = { lte = "limited" }
[[at]]
after = "nas.108"
ms = 5
panel = { index = 2, changed = 1, mode = 1 }
[[at]]
after = "nas.108"
ms = 5
qos_flow = { bearer = 6, tx_5qi = 1, rx_5qi = 2 }
[[at]]
after = "nas.108"
ms = 10
raw = { lib = "nas", id = 81, bytes = "01020000" }
[[at]]
after = "nas.108"
ms = 20
install_status = 1
[[at]]
after = "nas.108"
ms = 30
install_measurement = [{ arfcn = 2079167, band = 261, scs = 3, rsrp = -88, snr = 12 }, { arfcn = 2070833, band = 260, scs = 4, rsrp = -97, snr = -3 }]
[[at]]
after = "nas.108"
ms = 40
install_measurement = []
[[at]]
after = "nas.108"
ms = 50
sys_info = { lte = "service", nr5g_pci = -1 }
"""

RULE = "-" * 60


def install_screen(number, entries):
    text = (f"\033[2J\033[31;5;1m\033#6LYN DEMO APP Indication Install Mode - Indication #{number}\n"
            f"\033[97m{RULE}\n")
    for arfcn, band, scs, rsrp, snr in entries:
        text += (f"\033[33;5m Arfcn            --> \033[32m {arfcn}\n\033[33;5m NR5G Band        --> \033[32m {band}\n"
                 f"\033[33;5m Sub Carrier Freq --> \033[32m {scs}\n\033[33;5m RSRP             --> \033[32m{rsrp}\n"
                 f"\033[33;5m SNR              --> \033[32m{snr}\n\033[39m{RULE}\n")
    return text


def test_what_the_board_sends_unasked_is_printed(demo):
    with demo.session(scenario=EVERYTHING) as session:
        session.wait_for(PROMPT)
        session.send("1")
        session.wait_for(PROMPT)
        session.send("3 2")
        console = session.wait_for(f"{CALLBACK}Registration status indication[5].\n")
        session.send("2")
        session.wait_for("Application deregistered successfully.\n")
        assert session.terminate() == 0
        result = session.finish()
    first = f"{CALLBACK}Registration status indication[3].\n"
    subscription = f"{APP}Set LTE/5G [Registration Status] indication information.\n"
    printed = console[console.index(subscription) + len(subscription):].replace(MENU, "")
    done = f"{APP}LTE/5G [Registration Status] indication information set successfully.\n"
    for text in (done, first,
                 "LYN DEMO APP indication result for PPS Index  2\nLYN DEMO APP indication result for PPS mode 2\n",
                 f"{CALLBACK}Successfully Recevied Indication Results\n{CALLBACK}QOS bearer ID 6\n"
                 f"{CALLBACK}QOS Tx_5g_qci value 1\n{CALLBACK}QOS Rx_5g_qci value 2\n"):
        assert printed.count(text) == 1
        printed = printed.replace(text, "")
    assert printed == ("LYN DEMO APP indication for install status mode  1\n"
                       + install_screen(0, [(2079167, 261, 4, -88, 12), (2070833, 260, 5, -97, -3)])
                       + install_screen(1, []) + f"{CALLBACK}Registration status indication[5].\n")
    assert any(line.endswith("Signal strength change indication decoding failed with status[-4]")
               for line in result.diag)


# Leaks --------------------------------------------------------------------------------------------------------------


@pytest.mark.skipif(BUILD.name != "asan", reason="only this build looks for leaks")
@pytest.mark.parametrize("suppressed", [True, False])
def test_blocks_of_indications_9_10_and_11_are_the_only_leak_and_deliberate(demo, tmp_path, suppressed):
    scenario = QUIET + "[mtpe]\nconfigured_ms = -1\n" + "".join(
        f'[[at]]\nafter = "nas.108"\nrepeat = 2\nevery_ms = 1\n{what}\n' for what in (
            "panel = { index = 2, changed = 1, mode = 1 }", "qos_flow = { bearer = 6, tx_5qi = 1, rx_5qi = 2 }",
            'raw = { lib = "oxmap", id = 264, bytes = "01040003000000" }',
            "install_measurement = [{ arfcn = 1, band = 261, scs = 3, rsrp = -88, snr = 12 }]"))
    empty = tmp_path / "no.supp"
    empty.write_text("")
    supp = DATA.parent / "lsan.supp" if suppressed else empty
    env = {"LSAN_OPTIONS": f"suppressions={supp}:print_suppressions=0", "ASAN_OPTIONS": "detect_leaks=1"}
    with demo.session(scenario=scenario, env=env) as session:
        session.wait_for(PROMPT)
        session.send("1")
        session.send("3 2")
        for text in ("PPS mode 2\n", "QOS Rx_5g_qci value 2\n", "MTPE Test status 3\n", " SNR  "):
            session.mark = 0
            session.wait_for(text)
            session.wait_for(text)
        status = session.terminate()
        errors = session.finish().stderr
    if suppressed:
        assert (status, errors) == (0, "")
        return
    assert status != 0
    lost = re.findall(r"(?:Direct|Indirect) leak of (\d+) byte\(s\) in \d+ object\(s\) allocated from:\n((?: +#.*\n)+)",
                      errors)
    assert {int(size) for size, _ in lost} <= {8, 16, 12, 24, 32}
    assert all("lyn_interface_event.cpp" in frames for _, frames in lost)
