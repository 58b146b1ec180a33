# SPDX-License-Identifier: Apache-2.0
"""Neighbour scans from the menu to the printed list: metrics 22 to 32 at every network status, alone and in lists.

The answer comes through the callback while the menu is printed again, so a transcript is taken apart into the lines of
the callback and everything else.
"""
import re
import time

import pytest

import lyn
from lyn import OPTION_FAILED, PROMPT
from test_controls import SYS_INFO, asked
from test_main_loop import MENU

NAMES = {22: "LTE Neighboring Cell EARFCN", 23: "NR 5G Neighboring Cell EARFCN", 24: "LTE Neighboring Cell PCI",
         25: "NR 5G Neighboring Cell PCI", 26: "LTE Neighboring Cell CGI", 27: "NR 5G Neighboring Cell CGI",
         28: "LTE Neighboring Cell PLMN", 29: "NR 5G Neighboring Cell PLMN", 30: "LTE Neighboring Cell RSRP",
         31: "NR 5G Neighboring Cell RSRP", 32: "LTE Neighboring Cell RSRQ", 0: "Invalid Request",
         10: "LTE Serving Cell RSRP"}

LTE_HEAD = "LTE neighbor information asynchronous response."
NR5G_HEAD = "NR 5G neighbor information asynchronous response."
NEIGHBOURS = """
[[lte.neighbour]]
earfcn = 1301
pci = 301
cgi = 4294967295
rsrp = -101
rsrq = -14
plmn = [{ mcc = 272, mnc = 1, pcs_digit = 0 }, { mcc = 310, mnc = 410, pcs_digit = 1 }]
[[lte.neighbour]]
earfcn = 1302
pci = 302
cgi = 7
rsrp = -111
rsrq = -15
plmn = [{ mcc = 262, mnc = 2, pcs_digit = 0 }]
[[nr5g.neighbour]]
arfcn = 636001
pci = 501
rsrp = -104
cgi = [68719476737, 5]
plmn = [{ mcc = 272, mnc = 1, pcs_digit = 0 }, { mcc = 310, mnc = 410, pcs_digit = 1 }]
[[nr5g.neighbour]]
arfcn = 636002
pci = 502
rsrp = -105
cgi = [18446744073709551]
plmn = [{ mcc = 262, mnc = 2, pcs_digit = 0 }]
"""


def nbr(radio, number, label, value):
    return f"{radio} neighbor #{number} : {label}[{value}]"


def plmn_lines(radio, numbers, plmns):
    return [nbr(radio, number, f"PLMN {part}", value)
            for number, plmn in zip(numbers, plmns) for part, value in zip(("MCC", "MNC", "PCS"), plmn)]


PLMNS = [[(272, 1, 0), (310, 410, 1)], [(262, 2, 0)]]


def lte_lines(metrics):
    """What the board's two LTE neighbours print for the metrics asked for."""
    lines = [LTE_HEAD]
    if metrics & {30, 32}:  # the strongest neighbour, under the name of a signal
        lines += ["LTE neighbor signal information valid.", "LTE neighbor cell ID[301]", "LTE neighbor frequency[1301]"]
        lines += ["LTE neighbor RRSP[-101]"] * (30 in metrics) + ["LTE neighbor RRSQ[-14]"] * (32 in metrics)
    for i in range(2 if metrics & {22, 24, 26, 28} else 0):
        lines += [nbr("LTE", i, "Frequency", 1301 + i), nbr("LTE", i, "Cell ID", 301 + i)]
        lines += [nbr("LTE", i, "Global Cell ID", (4294967295, 7)[i])] * (26 in metrics)
        if 28 in metrics:  # numbered by PLMN
            lines += plmn_lines("LTE", range(len(PLMNS[i])), PLMNS[i])
    return lines


def nr5g_lines(metrics):
    lines = [NR5G_HEAD]
    for i in range(2):
        lines += [nbr("NR 5G", i, "Cell ID", 501 + i), nbr("NR 5G", i, "Frequency", 636001 + i)]
        lines += [nbr("NR 5G", i, "RRSP", -104 - i)] * (31 in metrics)
        if 29 in metrics:  # numbered by neighbour, unlike LTE
            lines += plmn_lines("NR 5G", [i] * len(PLMNS[i]), PLMNS[i])
        if 27 in metrics:
            lines += [nbr("NR 5G", i, "CGI", cgi) for cgi in ((68719476737, 5), (18446744073709551,))[i]]
    return lines


def is_lte(metric):
    return metric % 2 == 0


def expected_lines(network_status, metrics):
    """The callback's lines for metrics asked for at once: LTE before NR 5G; a radio without service finds nobody."""
    lte, nr5g = {m for m in metrics if is_lte(m)}, {m for m in metrics if not is_lte(m)}
    found_lte, found_nr5g = network_status in (5, 6), network_status in (6, 7)
    lines = []
    if lte:
        none = [LTE_HEAD] + (["LTE neighbor signal information valid.", "LTE neighbor cell ID[0]",
                              "LTE neighbor frequency[0]"] if lte & {30, 32} else [])
        lines += lte_lines(lte) if found_lte else none
    if nr5g:
        lines += nr5g_lines(nr5g) if found_nr5g else [NR5G_HEAD]
    return lines


def request(metric):
    return f"LYN DEMO APP : Getting LTE/5G [{NAMES[metric]}] metric information.\n"


def refused(metric, status):
    return (f"LYN DEMO APP : Getting LTE/5G [{NAMES[metric]}] metric information failed with status[{status}].\n"
            + OPTION_FAILED)


def list_refused(status):
    return f"LYN DEMO APP : Getting LTE/5G/GPS metric list information failed with status[{status}].\n" + OPTION_FAILED


SCAN = {"network_type_valid": 1, "scan_type_valid": 1, "scan_type": 5}
LTE_SCAN, NR5G_SCAN = (133, SCAN | {"network_type": 4}), (133, SCAN | {"network_type": 16})


class Scanner:
    """The demo client at its prompt, registered: option lines in, callback lines and the rest out."""

    CALLBACK = re.compile(r"LYN DEMO APP CALLBACK - ([^\n]*)\n")

    def __init__(self, demo, network_status, scan="answer_ms = 0", rest=""):
        self.session = demo.session(f"[board]\nnoise_db = 0\n[sys_info]\n{SYS_INFO[network_status]}\n[scan]\n{scan}\n"
                                    + NEIGHBOURS + rest, limit=32 << 20)
        self.session.wait_for(PROMPT)
        self.lines_seen = self.rest_seen = 0
        self.type("1")
        self.journaled = 0
        self.requests()

    def type(self, line):
        """Type a line; what it printed up to the menu, callbacks aside."""
        prompts = self._rest().count(PROMPT)
        self.session.send(line)
        self._until(lambda: self._rest().count(PROMPT) > prompts)
        output, self.rest_seen = self._rest()[self.rest_seen:], len(self._rest())
        assert output.endswith(MENU)
        return output.removesuffix(MENU)

    def lines(self, count):
        """The callback's next lines, so many of them."""
        def found():
            return self.CALLBACK.findall(self.session.console)[self.lines_seen:]
        self._until(lambda: len(found()) >= count)
        lines = found()
        self.lines_seen += len(lines)
        return lines

    def requests(self):
        rows = lyn.parse_journal(lyn.read_text(self.session.launch.journal_path))
        new, self.journaled = rows[self.journaled:], len(rows)
        return asked(new)

    def _rest(self):
        return self.CALLBACK.sub("", self.session.console)

    def _until(self, condition):
        deadline = time.monotonic() + self.session.timeout
        while not condition():
            assert time.monotonic() < deadline, self.session.console[-2000:]
            time.sleep(0.002)


@pytest.fixture
def scanner(demo):
    open_ones = []

    def start(*args, **kwargs):
        open_ones.append(Scanner(demo, *args, **kwargs))
        return open_ones[-1]

    yield start
    for each in open_ones:
        assert each.lines(0) == []
        assert each.session.terminate() == 0
        assert each.session.errors.text() == ""
        each.session.kill()


@pytest.mark.parametrize("network_status", SYS_INFO)
def test_each_neighbour_metric_at_each_network_status(scanner, network_status):
    menu = scanner(network_status)
    for metric in range(22, 33):
        printed = menu.type(f"7 {metric}")
        if network_status < 5:
            assert printed == request(metric) + refused(metric, -16)
            assert menu.requests() == []
            continue
        assert printed == request(metric)
        expected = expected_lines(network_status, {metric})
        assert menu.lines(len(expected)) == expected
        assert menu.requests() == [LTE_SCAN if is_lte(metric) else NR5G_SCAN]


@pytest.mark.parametrize("network_status", [5, 6, 7])
def test_all_neighbour_metrics_in_one_list_are_two_scans(scanner, network_status):
    menu = scanner(network_status)
    metrics = list(range(22, 33))
    assert menu.type("8 " + " ".join(map(str, metrics))) == "".join(map(request, metrics))
    expected = expected_lines(network_status, set(metrics))
    assert menu.lines(len(expected)) == expected
    assert menu.requests() == [LTE_SCAN, NR5G_SCAN]


def test_lists_of_neighbours_and_others(scanner):
    fault = '[[fault]]\non = "nas.79"\nresult = 1\nerror = 46\n'
    menu = scanner(6, rest=fault)
    assert menu.type("8 22 23 30") == request(22) + request(23) + request(30)
    expected = expected_lines(6, {22, 23, 30})
    assert menu.lines(len(expected)) == expected
    assert menu.requests() == [LTE_SCAN, NR5G_SCAN]

    assert menu.type("8 22 0") == request(22) + request(0) + list_refused(-7)
    assert menu.requests() == []

    assert menu.type("8 0 22") == request(0) + request(22)
    expected = expected_lines(6, {22})
    assert menu.lines(len(expected)) == expected
    assert menu.requests() == [LTE_SCAN]

    # An entry that fails leaves the neighbours before it pending for ever, without a scan.
    assert menu.type("8 22 10") == request(22) + request(10) + list_refused(-1)
    assert menu.requests() == [(79, {})]
    assert menu.type("7 22") == request(22) + refused(22, -5)
    assert menu.type("7 23") == request(23) + refused(23, -5)
    assert menu.requests() == []


@pytest.mark.parametrize("running", [22, 23])
def test_second_scan_is_refused_until_the_first_is_answered_or_the_module_restarted(scanner, running):
    menu = scanner(6, scan="answer_ms = -1")
    assert menu.type(f"7 {running}") == request(running)
    assert menu.requests() == [LTE_SCAN if is_lte(running) else NR5G_SCAN]
    for metric in range(22, 33):
        assert menu.type(f"7 {metric}") == request(metric) + refused(metric, -5)
        assert menu.type(f"8 {metric}") == request(metric) + list_refused(-5)
    assert menu.requests() == []
    menu.type("2")
    menu.type("1")
    menu.requests()
    assert menu.type("7 25") == request(25)
    assert menu.requests() == [NR5G_SCAN]


def test_scan_that_fails_to_start_can_be_repeated(scanner):
    menu = scanner(6, rest='[[fault]]\non = "nas.133"\nresult = 1\nerror = 46\n')
    assert menu.type("7 22") == request(22) + refused(22, -1)
    assert menu.type("7 22") == request(22)
    expected = expected_lines(6, {22})
    assert menu.lines(len(expected)) == expected


def test_scan_that_is_answered_with_an_error_is_reported_as_not_valid(scanner):
    menu = scanner(6, scan="answer_ms = 0\nstatus = 3")
    assert menu.type("8 22 23") == request(22) + request(23)
    assert menu.lines(2) == [f"Metric information not valid for async response[{name} Neighbor Info]."
                             for name in ("LTE", "NR 5G")]
    menu.type("7 22")
    assert menu.lines(1) == ["Metric information not valid for async response[LTE Neighbor Info]."]


def raw(octets, after):
    """The modem sends these octets as a scan's answer behind the first request `after`."""
    return f'[[at]]\nms = 0\nafter = "{after}"\nraw = {{ lib = "nas", id = 133, bytes = "{octets.hex()}" }}\n'


def scan_answer(lte_cells=None):
    """Encoded: status 0 and, where wanted, so many LTE cells of zeroes, without PLMN, with a strongest one behind."""
    answer = bytes.fromhex("01040000000000")
    if lte_cells is not None:
        part = bytes([lte_cells]) + bytes(11 * lte_cells) + bytes(10)
        answer += b"\x10" + len(part).to_bytes(2, "little") + part
    return answer


def test_answer_that_nobody_asked_for_is_shown_as_one_of_nr5g(scanner):
    menu = scanner(6, rest=raw(scan_answer(), "nas.79"))
    assert menu.type("7 10") == request(10) + "[LTE Serving Cell RSRP] - -95\n"
    assert menu.lines(1) == [NR5G_HEAD]
    assert menu.type("7 22") == request(22)
    assert menu.lines(len(lte_lines({22}))) == lte_lines({22})


def test_answer_with_more_cells_than_fit_is_dropped_and_the_scan_goes_on(scanner):
    answers = raw(scan_answer(6), "nas.133") + raw(scan_answer()[:-1], "nas.133") + raw(scan_answer(5), "nas.79")
    menu = scanner(6, scan="answer_ms = -1", rest=answers)
    assert menu.type("7 24") == request(24)
    menu.session.wait_journal(lambda row: row["dir"] == "indication" and row.get("id") == 133)
    assert menu.type("7 24") == request(24) + refused(24, -5)
    assert menu.type("7 10") == request(10) + "[LTE Serving Cell RSRP] - -95\n"
    expected = [LTE_HEAD] + [nbr("LTE", i, label, 0) for i in range(5) for label in ("Frequency", "Cell ID")]
    assert menu.lines(len(expected)) == expected
    assert menu.type("7 24") == request(24)
