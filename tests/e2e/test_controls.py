# SPDX-License-Identifier: Apache-2.0
"""Option 9 and every prompt sequence: what is asked, what becomes of each answer, what reaches the board.

The expected transcripts and requests come from `dialogues`, which knows the questions and nothing of the client.
"""
import contextlib
import dataclasses
import re

import pytest

import dialogues
from dialogues import CONTROLS, CTRL_D, Keyboard
from lyn import AUTO_DONE, AUTO_ENABLED, BANNER, OPTION_FAILED, PARSE_FAILED, PROMPT, parse_journal
from test_main_loop import MENU, not_supported

SYS_INFO = {
    1: 'lte = "no_service"\nnr5g_pci = -1',
    2: 'lte = "power_save"\nnr5g_pci = -1',
    3: 'lte = "limited"\nnr5g_pci = -1',
    4: 'lte = "limited_regional"\nnr5g_pci = -1',
    5: 'lte = "service"\nnr5g_pci = -1',
    6: 'lte = "service"\nnr5g_pci = 500',
    7: 'lte = "absent"\nnr5g = "service"\nnr5g_pci = -1',
}
# A receiver without capabilities refuses positions, and a mobile AP without a test server every throughput test, so
# that nothing stays ongoing from one case to the next.
REFUSING = '[location]\ncapabilities_ms = -1\n[[fault]]\non = "oxmap.ConfigureMTPE"\ntimes = -1\n'
# Nothing is printed behind an automatic run's last line, which would be torn by the end of the process.
SILENT = "[location]\ncapabilities_ms = -1\n[mtpe]\nconfigured_ms = 3600000\n"
CALLS = ("ConfigureMTPE", "GetMTPETestInfo", "getSinglePosition", "startRoutineBatchingSession")
CALLBACK = re.compile(r"LYN DEMO APP (CALLBACK -|indication) [^\n]*\n")


def board(network_status, rest=REFUSING):
    """No tick comes, so that install mode draws no screens."""
    return f"[board]\nnoise_db = 0\ntick_ms = 3600000\n[sys_info]\n{SYS_INFO[network_status]}\n{rest}"


def asked(rows):
    """What of a journal is asked of the board by an option: requests but for the system information, and calls."""
    return ([(row["id"], row["fields"]) for row in rows
             if row["lib"] == "nas" and row["dir"] == "request" and row["id"] != 77]
            + [(row["name"], row["fields"]) for row in rows if row["dir"] == "call" and row["name"] in CALLS])


class AtPipe:
    """The demo client at its prompt, registered, its standard streams pipes."""

    def __init__(self, demo, scenario):
        self.session = demo.session(scenario, limit=64 << 20)
        self.launch = self.session.launch
        self.printed = 0
        self.read_prompt()

    def read_prompt(self):
        text = self.session.wait_for(PROMPT)
        output, self.printed = text[self.printed:], len(text)
        return output

    def send(self, text):
        self.session.send_raw(text.encode())

    def close(self):
        assert self.session.terminate() == 0
        assert self.session.errors.text() == ""
        self.session.kill()


class AtTerminal:
    """The same in a pseudo-terminal, without echo."""

    def __init__(self, demo, scenario):
        self.terminal = demo.terminal(scenario)
        self.launch = self.terminal.launch
        self.terminal.child.delaybeforesend = None
        self.read_prompt()
        self.terminal.child.setecho(False)

    def read_prompt(self):
        return self.terminal.expect(PROMPT).replace("\r\n", "\n") + PROMPT

    def send(self, text):
        self.terminal.child.send(text)

    def close(self):
        assert self.terminal.terminate() == 0


class Conversation:
    """Option lines and answers typed at the prompt, and what they brought about."""

    def __init__(self, way):
        self.way = way
        self.journaled = 0
        assert "Application registered successfully." in self.type("1\n")
        self.requests()

    def type(self, text, prompts=1):
        """What is printed up to the last of so many prompts, callbacks aside."""
        self.way.send(text)
        return CALLBACK.sub("", "".join(self.way.read_prompt() for _ in range(prompts)))

    def requests(self):
        with open(self.way.launch.journal_path, encoding="utf-8") as journal:
            journal.seek(self.journaled)
            text = journal.read()
        whole = text[:text.rfind("\n") + 1]
        self.journaled += len(whole)
        return asked(parse_journal(whole))


@contextlib.contextmanager
def conversations(demo, way):
    """Starts conversations with boards of a network status; closes them in the end."""
    open_ones = []

    def start(network_status, rest=REFUSING):
        open_ones.append(Conversation(way(demo, board(network_status, rest))))
        return open_ones[-1]

    yield start
    for each in open_ones:
        each.way.close()


@pytest.fixture(params=[AtPipe, AtTerminal], ids=["pipe", "terminal"])
def converse(request, demo):
    with conversations(demo, request.param) as start:
        yield start


@pytest.fixture
def converse_in_a_terminal(demo):
    with conversations(demo, AtTerminal) as start:
        yield start


def left_over(rest):
    """What the main loop makes of the part of an answer that no question took."""
    if not rest:
        return ""
    return (not_supported(min(int(rest), 2147483647)) if rest.strip() else PARSE_FAILED) + MENU


@dataclasses.dataclass(frozen=True)
class Sequence:
    option: int
    identifier: int
    network_status: int
    path: tuple = ()
    counts: tuple = ()  # the questions that ask for a list's length

    def run(self, keys):
        return dialogues.OPTIONS[self.option](self.identifier, keys, self.network_status, **dict(self.path))

    def questions(self):
        keys = Keyboard()
        self.run(keys)
        return keys.heard

    def check(self, talk, changes):
        keys = Keyboard(changes)
        outcome = self.run(keys)
        expected = (outcome.console + (OPTION_FAILED if outcome.status != 0 else "") + MENU + left_over(keys.rest))
        printed = talk.type(f"{self.option} {self.identifier}\n{keys.typed}", expected.count(PROMPT))
        assert printed == expected, (self, changes)
        assert talk.requests() == outcome.requests, (self, changes)


SEQUENCES = [
    Sequence(9, 3, 5, counts=(0,)),
    Sequence(9, 4, 7),
    Sequence(9, 4, 7, (("lock_type", 2),), counts=(1,)),
    Sequence(9, 4, 7, (("lock_type", 3),)),
    Sequence(9, 5, 7),
    Sequence(9, 6, 7, counts=(3,)),
    Sequence(9, 7, 7),
    Sequence(9, 8, 7, counts=(1,)),
    Sequence(9, 8, 7, (("install_mode", 2),)),
    Sequence(7, 47, 7),
    Sequence(7, 47, 7, (("ip_family", 6),)),
    Sequence(7, 48, 7, (("test_type", 1),)),
    Sequence(7, 48, 7, (("test_type", 2),)),
    Sequence(7, 49, 7, (("test_type", 3), ("ip_family", 6))),
    Sequence(7, 49, 7, (("test_type", 2), ("by_url", 1))),
    Sequence(7, 48, 7, (("test_type", 3), ("external", 1))),
    Sequence(7, 50, 7),
    Sequence(7, 51, 7),
]
ANSWERS = [
    "", "abc", "0", "1", "2", "3", "6", "9", "-1", "65536", "65537", "2147483648", "4294967297",
    "18446744073709551615", "  +4x", "1" + " " * 98,  # fills the buffer, so that the line break is the next answer
    "9" * 150,
]
COUNTS = ["0", "1", "16", "17", "32", "33", "60", "61", "255", "256", "65535", "65537", "4294967297"]


@pytest.mark.parametrize("network_status", sorted({each.network_status for each in SEQUENCES}))
def test_every_answer_to_every_question(converse, network_status):
    """One question is answered badly, the others well; every other case shows that the client is none the worse."""
    talk = converse(network_status)
    for sequence in [each for each in SEQUENCES if each.network_status == network_status]:
        sequence.check(talk, {})
        for question in range(len(sequence.questions())):
            for answer in ANSWERS:
                sequence.check(talk, {question: answer})
        for question in sequence.counts:
            for count in COUNTS:
                sequence.check(talk, {question: count})


@pytest.mark.parametrize("choice", range(1, 9))
def test_each_band_mask_has_its_place_in_the_request(demo, choice):
    """The question for the seventh mask alone ends with a blank."""
    sequence = Sequence(9, 4, 7)
    result = demo.auto(["1", "9 4"], board(7), stdin=f"1\n500\n2\n636000\n{choice}\n-2\n".encode())
    outcome = sequence.run(Keyboard({4: str(choice), 5: "-2"}))
    assert result.console.endswith(outcome.console + AUTO_DONE)
    assert asked(result.journal)[-1] == outcome.requests[0]
    blocks = [octet for block in outcome.requests[0][1]["cell_identity"]["blocks"] for octet in block]
    assert blocks == [0] * (8 * choice - 8) + [0xFE] + [0xFF] * 7 + [0] * (64 - 8 * choice)


def end_of_input_cases():
    """Each question of each sequence once, though several paths lead to it."""
    seen = set()
    for sequence in SEQUENCES:
        for end, question in enumerate(sequence.questions()):
            sequence_of = (dialogues.CONTROLS if sequence.option == 9 else dialogues.METRICS)[sequence.identifier].run
            if (sequence_of, question) not in seen:
                seen.add((sequence_of, question))
                yield pytest.param(sequence, end, id=f"{sequence_of.__name__}_{len(seen)}")


def check_end_of_input(console, sequence, keys):
    outcome = sequence.run(keys)
    expected = outcome.console + (OPTION_FAILED if outcome.status != 0 else AUTO_DONE)
    start = f"LYN DEMO APP : {sequence.option} {sequence.identifier}\n"
    assert console.startswith(BANNER + AUTO_ENABLED)
    assert console[console.index(start) + len(start):] == expected
    return outcome


@pytest.mark.parametrize("sequence, end", end_of_input_cases())
def test_end_of_input_at_every_question_ends_an_automatic_run(demo, sequence, end):
    keys = Keyboard(end=end)
    sequence.run(keys)
    result = demo.auto(["1", f"{sequence.option} {sequence.identifier}"], board(sequence.network_status, SILENT),
                       stdin=keys.typed.encode())
    outcome = check_end_of_input(result.console, sequence, Keyboard(end=end))
    assert result.status == 0 and result.stderr == ""
    assert [each for each in asked(result.journal) if each[0] not in (3, 108)] == outcome.requests


@pytest.mark.parametrize("network_status", sorted({each.network_status for each in SEQUENCES}))
def test_ctrl_d_at_every_question_in_a_terminal_is_an_empty_answer_and_no_more(converse_in_a_terminal, network_status):
    """Alone it is an empty answer; the second one behind a part of an answer ends it."""
    talk = converse_in_a_terminal(network_status)
    for sequence in [each for each in SEQUENCES if each.network_status == network_status]:
        for question in range(len(sequence.questions())):
            for answer in [CTRL_D, "1" + CTRL_D * 2]:
                sequence.check(talk, {question: answer})


def test_unfinished_last_answer_counts(demo):
    result = demo.auto(["1", "9 7"], board(7), stdin=b"1\n7\n2")
    assert asked(result.journal)[-1] == (279, {"position_index": 7, "position_changed": 1, "pps_mode": 1})
    assert result.console.endswith(AUTO_DONE)


# The network status decides -----------------------------------------------------------------------------------------

@pytest.mark.parametrize("network_status", SYS_INFO)
def test_each_control_at_each_network_status(converse, network_status):
    """De-prioritisation comes last, because it changes the status. With both radios control 3 is sent and yet fails."""
    talk = converse(network_status)
    for identifier in [0, 1, 2, 3, 4, 6, 7, 8, 5]:
        Sequence(9, identifier, network_status).check(talk, {})


@pytest.mark.parametrize("line, name", [
    ("9 0", "Invalid Request"), ("9 9", "Invalid Request"), ("9 -1", "Invalid Request"),
    ("9 2147483647 3", "Invalid Request"),
])
def test_control_outside_1_to_8_is_sent_as_none_and_refused(demo, line, name):
    result = demo.auto(["1", line], board(5))
    assert result.console.endswith(
        "LYN DEMO APP : Setting metric information.\n"
        f"LYN DEMO APP : Setting LTE/NR5G GPS [{name}] metric information.\n"
        f"LYN DEMO APP : Setting LTE/NR5G/GPS [{name}] metric information failed with status[-7].\n" + OPTION_FAILED)


def test_option_9_alone_is_an_argument_error(demo):
    result = demo.auto(["1", "9", "2"], board(5))
    assert ("LYN DEMO APP : 9\nLYN DEMO APP : Setting metric information.\n"
            "LYN DEMO APP : Setting LTE/5G/GPS information failed - invalid options passed.\nLYN DEMO APP : 2\n"
            in result.console)
    assert result.console.endswith(AUTO_DONE)


def test_control_before_registration_is_refused(demo):
    result = demo.auto(["9 5"], board(6), stdin=b"1\n")
    assert result.console.endswith(f"[{CONTROLS[5].name}] metric information failed with status[-2].\n{OPTION_FAILED}")


# The board keeps what was set ---------------------------------------------------------------------------------------

def test_locked_cells_are_given_back(demo):
    lte = demo.auto(["1", "9 3", "7 33", "8 33"], board(5), stdin=b"2\n214\n1300\n215\n65535\n1\n")
    cells = ("[LTE Cell Lock List] -\nCell_Lock#0 : pci[214]\nCell_Lock#0 : freq[1300]\n"
             "Cell_Lock#1 : pci[215]\nCell_Lock#1 : freq[65535]\n")
    request = "LYN DEMO APP : Getting LTE/5G [LTE Cell Lock List] metric information.\n"
    shown = request + cells
    assert lte.console.endswith(f"LYN DEMO APP : 7 33\n{shown}LYN DEMO APP : 8 33\n{shown}{AUTO_DONE}")


def test_nr5g_locks_are_given_back_until_they_are_taken_back(demo):
    answers = b"1\n500\n2\n636000\n1\n7\n" + b"2\n1\n636001\n5\n" + b"3\n"
    result = demo.auto(["1"] + ["9 4", "7 34"] * 3, board(7), stdin=answers)
    request = ("LYN DEMO APP : 7 34\nLYN DEMO APP : Getting LTE/5G [NR 5G Cell Lock List] metric information.\n"
               "[NR 5G Cell Lock List] -\n")
    masks = ["1_64", "65_128", "129_192", "193_256", "257_320", "321_384", "385_448", "449_512"]
    one_cell = ("Cell lock type 1\nCell_Lock#0 : pci[500]\nCell_Lock#0 : freq[636000]\nCell_Lock#0 : scs[2]\n"
                + "".join(f"Cell_Lock#0 : band bits_{mask}[0]\n" for mask in masks))
    one_arfcn = "Cell lock type 2\nCell_Lock 0 arfcn based freq[636001]\nCell lock 0 arfcn based  scs [5]\n"
    unlocked = "Cell lock type 3\n[NR 5G Cell Lock List] - cell lock list not present\n"
    shown = [part.split("LYN DEMO APP :")[0] for part in result.console.split(request)[1:]]
    assert shown == [one_cell, one_arfcn, unlocked]


def test_deprioritised_board_reports_lte_alone_until_restored(demo):
    result = demo.auto(["1", "7 1", "9 5", "7 1", "9 5"], board(6), stdin=b"1\n")
    assert result.console.count("[Registration Status] - 6\n") == 1
    assert result.console.count("[Registration Status] - 5\n") == 1
    assert result.console.endswith("[SET NR5G De_Prioritize Req] metric information failed with status[-1].\n"
                                   + OPTION_FAILED)


def test_install_mode_shows_measurements_of_its_frequencies_until_stopped(demo):
    """Screens come on ticks of the board; the callback prints them."""
    def entry(arfcn, band, scs):
        labels = [("Arfcn            -->", f" {arfcn}"), ("NR5G Band        -->", f" {band}"),
                  ("Sub Carrier Freq -->", f" {scs}"), ("RSRP             -->", "-98"), ("SNR              -->", "110")]
        return "".join(f"\033[33;5m {label} \033[32m{value}\n" for label, value in labels) + f"\033[39m{'-' * 60}\n"

    def screen(number):
        return (f"\033[2J\033[31;5;1m\033#6LYN DEMO APP Indication Install Mode - Indication #{number}\n"
                f"\033[97m{'-' * 60}\n" + entry(2079167, 257, 4) + entry(2079168, 258, 1))

    with demo.session("[board]\nnoise_db = 0\ntick_ms = 20\n[sys_info]\n" + SYS_INFO[7]
                      + "\n[nr5g]\nrsrp = -98\nsnr = 110\n") as session:
        for line in ["1", "3 1"]:
            session.wait_for(PROMPT)
            session.send(line)
        session.send_raw(b"9 8\n1\n2\n257\n2079167\n4\n258\n2079168\n1\n")
        for number in (0, 1, 0):
            session.wait_for(f"Indication #{number}\n")
        session.send_raw(b"9 8\n2\n")
        stop = session.wait_journal(lambda row: row.get("id") == 333 and row["fields"].get("mode") == 1)
        status = session.wait_journal(lambda row: row["name"] == "install_status_ind" and row["t"] > stop["t"])
        assert status["fields"]["status"] == 0
        session.wait_for("LYN DEMO APP indication for install status mode  0\n")
        assert session.terminate() == 0
        result = session.finish()
    text = re.sub(r"LYN DEMO APP : [^\n]*\n", "", result.console)
    assert screen(0) in text or screen(1) in text
    late = [row for row in result.journal if row["name"] == "install_freq_ind" and row["t"] > status["t"]]
    assert late == []
