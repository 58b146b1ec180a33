# SPDX-License-Identifier: Apache-2.0
"""The sessions that the documents show: each is typed at a terminal and recorded with the command that starts it, and
tools/check-docs holds the documents to the records.

A session has the board and its steps: a line to type, then the texts to wait for, the prompt where none is given; or a
function of the terminal. What the board does by itself must come well behind a prompt.
"""
import re
import time

import pyte
import pytest

from lyn import PROMPT, SCALE, mask_console, read_text


def wait_for_trace_end(terminal):
    deadline = time.monotonic() + 20 * SCALE
    while '"trace_end"' not in read_text(terminal.launch.journal_path):
        assert time.monotonic() < deadline, "the drive does not end"
        time.sleep(0.01)


SESSIONS = {
    "drive_session": ("tests/data/drive.toml", [
        ("1",), wait_for_trace_end, ("7 1",), ("7 10",), ("7 12",), ("7 14",), ("2",)]),
    "cell_edge_session": ("scenarios/cell_edge.toml", [
        ("1",), ("7 1",), ("7 10",), ("3 2",),
        ("3 3 6", PROMPT, "RSRP indication[-118].\n", "status indication[3].\n", "RSRP indication[-98].\n"),
        ("8 10 12 14",), ("8 2 4 6 18 20",), ("6 2 3",), ("2",)]),
    "neighbours_session": ("scenarios/neighbours.toml", [
        ("1",), ("8 24 25", PROMPT, "NR 5G neighbor #0 : Frequency[636000]\n"),
        ("8 30 32 31", PROMPT, "NR 5G neighbor #1 : RRSP[-101]\n"),
        ("7 24", PROMPT, "LTE neighbor information asynchronous response.\n"), ("2",)]),
    "install_mode_session": ("scenarios/install_mode.toml", [
        ("1",), ("9 6", "panel position index \n"), ("2", "pps mode 1 - yes/0 - No \n"),
        ("1", "freq information 1 -yes/ 0 - no \n"), ("1", "pps freq length \n"), ("1", "(250 to 290) \n"),
        ("261", "earfcn freq \n"), ("2079167", "-(1 to 5)\n"), ("4", PROMPT, "PPS mode 1\n", "PPS mode 2\n"),
        ("9 7", "changed 1 - yes/ 0 - no \n"), ("1", "position index  \n"), ("3", "2 - measurement\n"), ("2",), ("2",)]),
}


def by_thread(text, key):
    """Lines grouped by what `key` finds in them, in their order within a group: the board's threads run side by side."""
    lines = text.splitlines(keepends=True)
    return "".join(sorted(lines, key=lambda line: re.search(key, line).group()))


def typed(demo, scenario, steps, term="dumb"):
    """Type a session; what the terminal has shown, and the run's files."""
    with demo.terminal(env={"LYN_SIM_SCENARIO": scenario, "TERM": term}, timeout=60) as terminal:
        console = terminal.expect(PROMPT) + PROMPT
        for step in steps:
            if callable(step):
                step(terminal)
                continue
            line, *texts = step
            terminal.sendline(line)
            for text in texts or [PROMPT]:
                text = text.replace("\n", "\r\n")
                console += terminal.expect(text) + text
        assert terminal.terminate() == 0
        launch = terminal.launch
    return f"$ LYN_SIM_SCENARIO={scenario} tools/demo\n" + console.replace("\r\n", "\n"), launch


@pytest.mark.parametrize("name", SESSIONS)
def test_session_of_the_documents_is_recorded(demo, goldens, name):
    console, launch = typed(demo, *SESSIONS[name])
    goldens.check(name, console=console)
    if name == "drive_session":
        goldens.check(name, journal=by_thread(read_text(launch.journal_path), '"lib": "[a-z]+", "dir": "(indication)?'),
                      diag=by_thread(read_text(launch.diag_path), r"\w+\.cpp"))


def on_screen(console):
    """The lines that a terminal shows of a text."""
    screen = pyte.Screen(200, 3000)
    pyte.Stream(screen).feed(console.replace("\n", "\r\n"))
    return [line.rstrip() for line in screen.display]


@pytest.mark.release_only
@pytest.mark.parametrize("name", SESSIONS)
def test_session_looks_the_same_where_lines_are_edited(demo, goldens, name):
    recorded = goldens.folder / f"{name}.console"
    console, _ = typed(demo, *SESSIONS[name], term="xterm")
    assert on_screen(mask_console(console)) == on_screen(recorded.read_text(encoding="utf-8"))
