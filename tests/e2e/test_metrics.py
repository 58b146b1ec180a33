# SPDX-License-Identifier: Apache-2.0
"""Options 7 and 8: every metric of the NAS client on a board of each network status, from the option line to the
printed result, and what the two options do differently.

A transcript shows the line typed, what it printed, and the requests that reached the modem for it.
"""
import json

import pytest

from lyn import INVALID_OPTION, OPTION_FAILED, PARSE_FAILED, PROMPT, read_text
from test_main_loop import MENU

NAMES = [
    "Invalid Request", "Registration Status", "LTE Serving Cell EARFCN", "NR 5G Serving Cell EARFCN",
    "LTE Serving Cell PCI", "NR 5G Serving Cell PCI", "LTE Serving Cell CGI", "NR 5G Serving Cell CGI",
    "LTE Serving Cell PLMN", "NR 5G Serving Cell PLMN", "LTE Serving Cell RSRP", "NR 5G Serving Cell RSRP",
    "LTE Serving Cell RSRQ", "NR 5G Serving Cell RSRQ", "LTE Serving Cell SINR", "NR 5G Serving Cell SINR",
    "LTE Serving Cell CQI", "NR 5G Serving Cell CQI", "LTE Serving cell TAC", "NR 5G Serving Cell TAC",
    "LTE Serving cell TX Power", "NR 5G Serving cell TX Power", "LTE Neighboring Cell EARFCN",
    "NR 5G Neighboring Cell EARFCN", "LTE Neighboring Cell PCI", "NR 5G Neighboring Cell PCI",
    "LTE Neighboring Cell CGI", "NR 5G Neighboring Cell CGI", "LTE Neighboring Cell PLMN",
    "NR 5G Neighboring Cell PLMN", "LTE Neighboring Cell RSRP", "NR 5G Neighboring Cell RSRP",
    "LTE Neighboring Cell RSRQ", "LTE Cell Lock List", "NR 5G Cell Lock List", "Modem MCS LTE Info",
    "Modem MCS NR 5G Info", "Modem CA stats LTE INFO", "Modem ENDC LTE mode Info", "Modem RRC state LTE info",
    "Modem RRC state NR5G info", "Modem Sub-carrier spacing NR5G info", "Modem RF bandwidth LTE info",
    "Modem RF bandwidth NR5G info", "Get WWAN profile Index", "Get IPV4 statistics", "Get IPV6 statistics",
    "Get MTPE Server Config", "Get MTPE LTE Info Req", "Get MTPE NR5G Info Req", "GPS Get Single Shot",
    "GPS Start Batching", "Get IPV4 Network QOS/TFT info", "Get IPV6 Network QOS/TFT info",
]
METRICS = [*range(0, 22), *range(33, 44), 54]

SYS_INFO = {
    1: 'lte = "no_service"',
    2: 'lte = "power_save"',
    3: 'lte = "limited"',
    4: 'lte = "limited_regional"',
    5: 'lte = "service"\nnr5g_pci = -1',
    6: 'lte = "service"\nnr5g_pci = 777',
    7: 'lte = "absent"\nnr5g = "service"\nnr5g_pci = -1',
}

# Every value is another one, so that a value taken from the wrong place shows.
LTE = {
    "earfcn": "1301", "pci": "214", "tac": "6699", "cgi": "10607298", "plmn": "[0x72, 0xF2, 0x10]", "rsrp": "-95",
    "rsrq": "-11", "snr": "130", "rssi": "-65", "tx_power": "-120", "rrc_state": "3", "cqi": "[[12, 11], [9]]",
    "dl_mod": "[2, 3]", "ul_mod": "[1]", "rf_bandwidth": "[3, 4]", "ca_dl_bandwidth": "4",
    "cell_lock": "[{ pci = 214, freq = 1301 }, { pci = 65535, freq = 0 }]",
}
NR5G = {
    "arfcn": "636001", "pci": "500", "cgi": "68719476736", "tac": "[0x00, 0x1A, 0xFF]", "plmn": "[0x73, 0xF3, 0x20]",
    "rsrp": "-98", "rsrq": "-13", "snr": "-15", "tx_power": "150", "rrc_state": "2", "scs": "1", "cqi": "[[14, 13]]",
    "dl_mod": "[4]", "ul_mod": "[2, 0]", "rf_bandwidth": "[10]",
    "cell_lock": "{ type = 1, pci = 501, arfcn = 636002, scs = 2 }",
}


def table(name, values):
    return f"[{name}]\n" + "".join(f"{key} = {value}\n" for key, value in values.items())


def board(network_status, lte=None, nr5g=None, rest=""):
    return ("[board]\nnoise_db = 0\n[sys_info]\n" + SYS_INFO[network_status] + "\n" + table("lte", LTE | (lte or {}))
            + table("nr5g", NR5G | (nr5g or {})) + rest)


class Prompt:
    """The demo client at its prompt, registered: what each line prints, and what it asks the modem."""

    def __init__(self, session):
        self.session = session
        self.printed = 0
        self.journaled = 0
        self._output()
        assert "Register application" in self.type("1")

    def _output(self):
        text = self.session.wait_for(PROMPT)
        output, self.printed = text[self.printed:], len(text)
        assert output.endswith(MENU)
        return output.removesuffix(MENU)

    def type(self, *lines):
        """Type an option line and the answers to its questions; what was printed up to the menu."""
        for line in lines:
            self.session.send(line)
        return self._output()

    def asked(self):
        """The requests that reached the modem since the last call, "90 {"radio_if": 8}"."""
        text = read_text(self.session.launch.journal_path)
        rows = [json.loads(line) for line in text[self.journaled:].splitlines()]
        self.journaled = len(text)
        requests = [row for row in rows if row["lib"] == "nas" and row["dir"] == "request"]
        return [f"{row['id']} {json.dumps(row['fields'])}" if row["fields"] else str(row["id"]) for row in requests]

    def transcript(self, lines):
        self.asked()
        return "".join(f"> {line}\n{self.type(line)}\nasked: {', '.join(self.asked()) or 'nothing'}\n\n"
                       for line in lines)


@pytest.fixture
def at_prompt(demo):
    """A registered demo client on a board."""
    sessions = []

    def start(scenario):
        sessions.append(demo.session(scenario, limit=32 << 20))
        return Prompt(sessions[-1])

    yield start
    for session in sessions:
        assert session.terminate() == 0
        assert session.errors.text() == ""
        session.kill()


def request(metric):
    return f"LYN DEMO APP : Getting LTE/5G [{NAMES[metric]}] metric information.\n"


def refused(metric, status):
    return (f"LYN DEMO APP : Getting LTE/5G [{NAMES[metric]}] metric information failed with status[{status}].\n"
            + OPTION_FAILED)


def list_refused(status):
    return (f"LYN DEMO APP : Getting LTE/5G/GPS metric list information failed with status[{status}].\n"
            + OPTION_FAILED)


def oxmap_calls(prompt, name):
    rows = [json.loads(line) for line in read_text(prompt.session.launch.journal_path).splitlines()]
    return [row["fields"] for row in rows if (row["dir"], row["name"]) == ("call", name)]


# Every metric on every kind of board --------------------------------------------------------------------------------


@pytest.mark.parametrize("network_status", SYS_INFO)
def test_every_metric_in_both_options(at_prompt, goldens, network_status):
    lines = [f"{option} {metric}" for option in (7, 8) for metric in METRICS]
    goldens.check(f"metrics_status_{network_status}", console=at_prompt(board(network_status)).transcript(lines))


def test_every_request_names_its_metric_and_every_other_number_the_invalid_request(at_prompt):
    """Without service nothing but the request line and the refusal is printed, whatever the metric prepares."""
    prompt = at_prompt(board(1))
    answers = {45: ["1"], 46: ["1"], 47: ["4", "1.2.3.4"], 48: None, 49: None, 50: ["1000", "10"], 51: ["1000"]}
    for metric, name in enumerate(NAMES):
        if answers.get(metric, []) is None or metric == 1:
            continue
        printed = prompt.type(f"7 {metric}", *answers.get(metric, []))
        assert printed.startswith(request(metric))
        assert printed.endswith(refused(metric, -16)), name
    for number in (-1, 54, 60, 2147483647, -2147483648):
        assert prompt.type(f"7 {number}") == request(0) + refused(0, -16)


def test_number_outside_the_catalogue_is_sent_as_the_invalid_request(at_prompt):
    prompt = at_prompt(board(6))
    for number in ("0", "60", "-1", "54"):
        assert prompt.type(f"7 {number}") == request(0) + refused(0, -7)
        assert prompt.type(f"8 {number}") == request(0) + list_refused(-7)


# Lists --------------------------------------------------------------------------------------------------------------


def test_list_prints_its_results_in_order_and_repeats_what_stands_in_it_twice(at_prompt):
    prompt = at_prompt(board(6))
    status = "[Registration Status] - 6\n"
    assert prompt.type("8 1 1 1") == 3 * request(1) + 3 * status
    assert prompt.type("8 2 1 11") == (request(2) + request(1) + request(11) + "[LTE Serving Cell EARFCN] - 1301\n"
                                       + status + "[NR 5G Serving Cell RSRP] - -98\n")


def test_list_of_99_metrics_is_one_line_and_a_hundredth_is_too_many(at_prompt):
    prompt = at_prompt(board(5))
    assert prompt.type("8" + " 2" * 99) == 99 * request(2) + 99 * "[LTE Serving Cell EARFCN] - 1301\n"
    assert prompt.type("8" + " 2" * 100) == INVALID_OPTION + "\n" + PARSE_FAILED


def test_option_without_a_metric_says_so_and_is_no_failure(at_prompt):
    prompt = at_prompt(board(5))
    prompt.asked()
    assert prompt.type("7") == "LYN DEMO APP : Getting LTE/5G/GPS information failed - invalid options passed.\n"
    assert prompt.type("8") == "LYN DEMO APP : Getting LTE/5G/GPS information list failed - invalid options passed.\n"
    assert prompt.asked() == []


def test_list_that_forgets_its_unknown_entry_prints_nothing_for_it(at_prompt):
    prompt = at_prompt(board(6))
    assert prompt.type("8 0 2") == request(0) + request(2) + "[LTE Serving Cell EARFCN] - 1301\n"
    assert prompt.type("8 2 0") == request(2) + request(0) + list_refused(-7)
    assert prompt.type("8 2 53") == request(2) + request(53) + list_refused(-7)


def test_list_prints_nothing_of_what_it_has_read_when_a_later_entry_fails(at_prompt):
    fault = '[[fault]]\non = "nas.79"\ntransport = -1\n'
    prompt = at_prompt(board(6, rest=fault))
    prompt.asked()
    assert prompt.type("8 2 35 38 10 4") == "".join(map(request, (2, 35, 38, 10, 4))) + list_refused(-1)
    assert prompt.asked() == ["77", "67", "77", '90 {"radio_if": 8}', '90 {"radio_if": 12}', "77", "77", "79"]


def test_list_says_that_qos_was_requested_although_it_was_refused(at_prompt):
    prompt = at_prompt(board(6))
    assert prompt.type("8 52 2") == (request(52) + request(2)
                                     + "LYN DEMO APP: QOS metric id [Get IPV4 Network QOS/TFT info]\n"
                                     + "LYN DEMO APP: Network QOS requested successfully\n"
                                     + "[LTE Serving Cell EARFCN] - 1301\n")
    assert prompt.type("8 52") == request(52) + list_refused(-7)
    assert oxmap_calls(prompt, "GetGlobalQoSFlowInfo") == []


def test_entries_of_one_kind_share_one_buffer_so_that_the_last_prompt_of_a_list_wins(at_prompt):
    prompt = at_prompt(board(6))
    printed = prompt.type("8 47 47", "4", "1.2.3.4", "4", "5.6.7.8")
    assert printed.count("LYN DEMO APP: MTPE metric id YRP success->[Get MTPE Server Config]\n") == 2
    assert oxmap_calls(prompt, "GetMTPETestInfo") == 2 * [{"ip_family": 4, "client_addr": "5.6.7.8"}]


# What options 7 and 8 word differently ------------------------------------------------------------------------------


def results(prompt, metric, *answers):
    """What options 7 and 8 print for one metric behind the request line."""
    printed = [prompt.type(f"{option} {metric}", *answers) for option in (7, 8)]
    return [text.split(request(metric), 1)[1] for text in printed]


def test_empty_lte_lock_list_is_a_metric_id_in_option_8(at_prompt):
    prompt = at_prompt(board(5, lte={"cell_lock": "[]"}))
    assert results(prompt, 33) == ["[LTE Cell Lock List] - cell lock list not present\n",
                                   "Metric ID [LTE Cell Lock List] - cell lock list not present\n"]


@pytest.mark.parametrize("kind", [0, 3, 4])
def test_nr5g_lock_of_another_type_prints_its_type_and_is_not_present(at_prompt, kind):
    prompt = at_prompt(board(7, nr5g={"cell_lock": f"{{ type = {kind} }}"}))
    text = (f"[NR 5G Cell Lock List] -\nCell lock type {kind}\n"
            "[NR 5G Cell Lock List] - cell lock list not present\n")
    assert results(prompt, 34) == [text, text]


@pytest.mark.parametrize("count", [1, 3, 32])
def test_option_8_prints_one_spacing_behind_all_frequencies_and_it_is_that_of_no_entry(at_prompt, count):
    """The slot behind the last entry is 0; in a full list there is none, which prints as 0, too."""
    entries = ", ".join(f"{{ arfcn = {636000 + i}, scs = {i % 5} }}" for i in range(count))
    prompt = at_prompt(board(7, nr5g={"cell_lock": f"{{ type = 2, list = [{entries}] }}"}))
    head = "[NR 5G Cell Lock List] -\nCell lock type 2\n"
    frequencies = [f"Cell_Lock {i} arfcn based freq[{636000 + i}]\n" for i in range(count)]
    spacings = [f"Cell lock {i} arfcn based  scs [{i % 5 + 1}]\n" for i in range(count)]
    assert results(prompt, 34) == [head + "".join(map("".join, zip(frequencies, spacings))),
                                   head + "".join(frequencies) + f"Cell lock {count} arfcn based  scs [0]\n"]


def test_option_8_gives_the_downlink_count_for_both_mcs_lengths(at_prompt):
    prompt = at_prompt(board(6))
    single, in_list = results(prompt, 35)
    assert "LYN DM APP: uplink  length 1 downlink lenght 2\n" in single
    assert "LYN DM APP: uplink  length 2 downlink lenght 2\n" in in_list
    single, in_list = results(prompt, 36)
    assert "LYN DM APP: uplink  length 2 downlink lenght 1\n" in single
    assert "LYN DM APP: uplink  length 1 downlink lenght 1\n" in in_list


def test_mcs_without_an_uplink_is_a_failure_in_both_options(at_prompt):
    prompt = at_prompt(board(6, lte={"ul_mod": "[]"}, nr5g={"ul_mod": "[]"}))
    for metric in (35, 36):
        assert prompt.type(f"7 {metric}") == request(metric) + refused(metric, -1)
        assert prompt.type(f"8 1 {metric}") == request(1) + request(metric) + list_refused(-1)


def test_endc_and_rrc_are_worded_differently_in_option_8(at_prompt):
    prompt = at_prompt(board(5))
    single, in_list = results(prompt, 38)
    assert single.replace("restrict dcnr valid", "restrict_dcnr_valid") == in_list != single
    assert results(prompt, 39) == 2 * ["LYN DEMO APP : Modem Metric ID [Modem RRC state LTE info]\n"
                                       "LYN DEMO APP : Modem Metrics LTE RRC state - 4\n"]


def test_wwan_metrics_are_worded_differently_in_option_8(at_prompt):
    prompt = at_prompt(board(6, rest="[[wwan.stats]]\nbytes_rx = 4294967299\nbytes_tx = 2\npkts_rx = 3\npkts_tx = 4\n"
                             "dropped_rx = 5\ndropped_tx = 6\nrx_rate = 0\ntx_rate = 0\n"))
    single, in_list = results(prompt, 44)
    assert single.startswith("LYN DEMO APP: WWAN PROFILE INDEX metric id YRP success->[Get WWAN profile Index]\n")
    assert in_list.startswith("LYN DEMO APP: MTPE metric id YRP success->[Get WWAN profile Index]\n")
    assert single.split("\n", 1)[1] == in_list.split("\n", 1)[1]
    single, in_list = results(prompt, 45, "1")
    assert single == ("Please enter the selected profile handle number from the WWAN profiles list\n"
                      "\nWWAN Stats Fetched.\n\nbytes_rx: 4294967299\n\nbytes_tx: 2\n\npkts_rx: 3\n\npkts_tx: 4\n"
                      "\npkts_dropped_rx: 5\n\npkts_dropped_tx: 6\n")
    assert in_list == ("Please enter the selected profile handle number\nmetric id 45\n"
                       "\nWWAN Stats Fetched.\n\nbytes_rx: 3\nbytes_tx: 2\npkts_rx: 3\npkts_tx: 4\n"
                       "pkts_dropped_rx: 5\npkts_dropped_tx: 6\n")


def test_cqi_prints_two_codewords_whatever_a_carrier_has(at_prompt):
    prompt = at_prompt(board(5, lte={"cqi": "[[], [7], [1, 2, 3, 4]]"}))
    text = ("[LTE Serving Cell CQI] -\nCQI#0 : cw_cqi_len [0]\nCQI#0 : cw_cqi_0[0], cw_cqi_1[0]\n"
            "CQI#1 : cw_cqi_len [1]\nCQI#1 : cw_cqi_0[7], cw_cqi_1[0]\n"
            "CQI#2 : cw_cqi_len [4]\nCQI#2 : cw_cqi_0[1], cw_cqi_1[2]\n")
    assert results(prompt, 16) == [text, text]
