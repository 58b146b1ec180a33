# SPDX-License-Identifier: Apache-2.0
"""Lines that are typed at a terminal which can move its cursor: they are edited and remembered, the reader gets what it
would have got of an unedited line, and the terminal is left as it was found, however the process ends or stops."""
import os
import pathlib
import re
import shlex
import signal
import subprocess
import termios
import time

import pexpect
import pytest

from lyn import BUILD, EMULATOR, PARSE_FAILED, PROMPT, ROOT, SCALE, Terminal, signals_of

pytestmark = pytest.mark.skipif("libedit" not in subprocess.run(
    ["ldd", BUILD / "lyn_demo"], capture_output=True, text=True, check=False).stdout, reason="built without libedit")

XTERM = {"TERM": "xterm"}
UP, DOWN, RIGHT, LEFT, HOME, END, DELETE = "\x1b[A", "\x1b[B", "\x1b[C", "\x1b[D", "\x1b[H", "\x1b[F", "\x1b[3~"
NOT_SUPPORTED = "Option ID[{}] NOT SUPPORTED."


def mode(terminal):
    return termios.tcgetattr(terminal.child.child_fd)


def edits(terminal):
    return not mode(terminal)[3] & termios.ICANON


@pytest.fixture
def terminal(demo):
    """At the prompt. `found` is the terminal's mode before the program came."""
    with demo.terminal(env=XTERM) as each:
        each.child.delaybeforesend = None
        each.expect(PROMPT)
        yield each


def answered(terminal, keys):
    """The option numbers that are refused, up to the next prompt."""
    terminal.child.send(keys)
    return re.findall(r"ID\[(-?\d+)\]", terminal.expect(PROMPT))


@pytest.mark.parametrize("keys, number", [
    ("13" + LEFT + "2\r", "123"),
    ("23" + HOME + "1" + END + "4\r", "1234"),
    ("123" + HOME + DELETE + "\r", "23"),
    ("123" + HOME + RIGHT + "\x7f\r", "23"),
    ("77 1\x1533\r", "33"),
], ids=["left", "home_and_end", "delete", "backspace", "whole_line"])
def test_line_is_edited(terminal, keys, number):
    assert edits(terminal)
    assert answered(terminal, keys) == [number]


def test_arrows_recall_what_was_typed_without_repetitions_and_empty_lines(terminal):
    for line in ("21\r", "22\r", "22\r", "\r", "23\r"):
        answered(terminal, line)
    assert answered(terminal, UP * 3 + "\r") == ["21"]
    assert answered(terminal, UP * 3 + DOWN + "\r") == ["23"]


def test_answer_is_edited_and_recalled_and_its_question_stays(terminal):
    question = "IPv6 :- "
    terminal.child.send("1\r7 47\r")
    terminal.expect(question)
    terminal.child.send("83" + LEFT + "\x7f\r")
    terminal.expect(question)
    terminal.child.send(UP + HOME)
    terminal.child.send("\x0b4\r")  # what was recalled goes
    terminal.expect("V4 Address Value =>")
    terminal.child.send("192.0.2.X" + LEFT + DELETE + "1\r")
    assert "Address not in" not in terminal.expect(PROMPT)


def test_line_longer_than_its_buffer_goes_on_as_the_next_line(terminal):
    """Of 299 characters the last is taken for the line break."""
    assert answered(terminal, "0" * 296 + "112" + "34\r") == ["11"]
    assert re.findall(r"ID\[(\d+)\]", terminal.expect(PROMPT)) == ["34"]
    assert answered(terminal, "35\r") == ["35"]


def test_lines_pasted_at_once_are_read_one_by_one(terminal):
    terminal.child.send("".join(f"{number}\r" for number in range(11, 61)))
    for number in range(11, 61):
        terminal.expect(NOT_SUPPORTED.format(number))
    terminal.expect(PROMPT)


def test_line_typed_while_an_option_runs_is_read_after_it(demo):
    with demo.terminal("[[fault]]\non = 'nas.79'\ndelay_ms = 500\n", env=XTERM) as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("1")
        terminal.expect(PROMPT)
        terminal.sendline("7 10")
        terminal.expect("metric information.")
        assert not edits(terminal)
        terminal.child.send("5")
        terminal.expect(PROMPT)
        terminal.child.send("6\r")
        terminal.expect(NOT_SUPPORTED.format(56))


@pytest.mark.parametrize("character", ["\t", "\u00fc"], ids=["tab", "two_octets"])
def test_character_that_is_no_key_of_the_editor_is_part_of_the_line(terminal, character):
    terminal.child.send(f"4{character}4\r")
    assert PARSE_FAILED in terminal.expect(PROMPT)
    assert answered(terminal, "88\r") == ["88"]


def test_ctrl_d_on_an_empty_line_is_an_empty_answer_and_reading_goes_on(terminal):
    for _ in range(3):
        terminal.child.send("\x04")
        assert PARSE_FAILED not in terminal.expect(PROMPT)
    assert answered(terminal, "12\x04\r") == ["12"]


def test_ctrl_d_at_a_question_that_repeats_is_an_empty_answer(terminal):
    terminal.child.send("1\r7 47\r")
    for _ in range(3):
        terminal.expect("IPv6 :- ")
        terminal.child.send("\x04")


def with_mode(demo, stty):
    """Lets the program find the terminal in a mode."""
    if EMULATOR:
        pytest.skip("a shell sets the mode, and is not emulated")
    script = demo.folder / "with_mode"
    script.write_text(f'#!/bin/sh\nstty {stty}\nexec "{demo.program[0]}"\n', encoding="utf-8")
    script.chmod(0o755)
    demo.program = [script]


@pytest.fixture
def found(demo):
    """A mode that the editor would not give the terminal by itself."""
    with_mode(demo, "echonl noflsh")
    with demo.terminal(env={"TERM": "dumb"}) as plain:
        plain.expect(PROMPT)
        return mode(plain)


@pytest.mark.parametrize("keys", ["", "7 1" + LEFT], ids=["empty_line", "in_a_line"])
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGQUIT, signal.SIGHUP])
def test_signal_while_a_line_is_edited_ends_the_process_and_leaves_the_terminal_as_it_was(demo, found, keys, number):
    with demo.terminal(env=XTERM) as terminal:
        terminal.expect(PROMPT)
        terminal.child.send(keys)
        assert edits(terminal)
        terminal.launch.signal(number)
        terminal.child.expect(pexpect.EOF)
        assert mode(terminal) == found
        terminal.child.close()
        assert terminal.child.exitstatus == (0 if number == signal.SIGTERM else 128 + number)


def test_ctrl_c_ends_the_process_and_leaves_the_terminal_as_it_was(demo, found):
    launch = demo.launch(env=XTERM)
    launch.private = os.path.exists("/data/data_oxmap/lyn_auto_test.cfg")  # else bubblewrap would end first, and end it
    with Terminal(launch, 20) as terminal:
        terminal.expect(PROMPT)
        terminal.child.send("7 \x03")
        terminal.child.expect(pexpect.EOF)
        assert mode(terminal) == found


def test_terminal_is_as_it_was_while_an_option_runs(demo, found):
    with demo.terminal("[nas]\navailable = false\n", env=XTERM) as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("1")
        terminal.expect("Register application.")
        assert mode(terminal) == found
        assert terminal.terminate() == 0


@pytest.mark.skipif(bool(EMULATOR), reason="the emulator catches them all")
def test_signals_of_the_editor_are_not_caught_while_an_option_runs(demo):
    with demo.terminal("[nas]\navailable = false\n", env=XTERM) as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("1")
        terminal.expect("Register application.")
        caught = signals_of(terminal.launch.pid(), "SigCgt")
        assert signal.SIGTERM in caught
        assert not caught & {signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTSTP, signal.SIGCONT, signal.SIGWINCH}
        assert terminal.terminate() == 0


def test_hung_up_terminal_is_a_closed_standard_input(demo):
    """As without an editor: the menu repeats without end, and nothing but a signal ends it."""
    launch = demo.launch(env=XTERM)
    keyboard, screen = os.openpty()
    output = open(launch.folder / "errors", "wb")
    with subprocess.Popen(launch.command, cwd=ROOT, env=launch.env, stdin=screen, stdout=screen, stderr=output) as process:
        os.close(screen)
        seen = b""
        while PROMPT.encode() not in seen:
            seen += os.read(keyboard, 4096)
        os.close(keyboard)
        time.sleep(0.2)
        assert process.poll() is None
        launch.signal(signal.SIGTERM)
        assert process.wait(20 * SCALE) == 0
    output.close()
    assert (launch.folder / "errors").read_bytes() == b""


def test_terminal_that_changes_its_size_goes_on_with_the_line(terminal):
    """It is drawn from the edge on, and broken where the terminal ends."""
    terminal.child.send("777777777")
    terminal.expect("777777777")
    for size, drawn in (((50, 60), "7{9}"), ((10, 15), "7+[^7O]+7+"), ((2, 2), "7"), ((50, 200), "7{9}")):
        terminal.child.setwinsize(*size)
        terminal.child.expect(drawn if size[1] == 2 else "\r" + PROMPT + drawn)
    assert answered(terminal, "\r") == ["777777777"]


def test_question_of_several_lines_is_drawn_again_from_its_last_line_on(terminal):
    terminal.child.send("1\r7 47\r")
    terminal.expect("IPv6 :- ")
    terminal.child.setwinsize(50, 100)
    terminal.expect("\rPlease input IP Family 4:IPv4 6:IPv6 :- ")


# The thread sanitizer holds back the signals that come while a handler runs, as long as the process is stopped in it.
delivers_signals_at_once = pytest.mark.skipif(BUILD.name == "tsan", reason="signals in a handler are held back")


class Shell(Terminal):
    """The program as a job of an interactive shell."""

    def __init__(self, launch):
        self.launch = launch
        self.child = pexpect.spawn("bash", ["--norc", "--noprofile", "--noediting", "-i"], cwd=str(ROOT),
                                   timeout=20 * SCALE, env={**launch.env, "PS1": "shell% "}, encoding="utf-8",
                                   dimensions=(50, 200))
        self.expect("shell% ")
        self.found = mode(self)
        self.sendline(shlex.join(launch.command))
        self.expect(PROMPT)

    def type_until_shell(self, keys):
        self.child.send(keys)
        self.expect("shell% ")
        assert mode(self) == self.found


@delivers_signals_at_once
def test_signal_that_is_ignored_stays_so_while_a_line_is_edited(demo):
    demo.program = ["/bin/sh", "-c", "trap '' INT; exec \"$0\"", *demo.program]
    with demo.terminal(env=XTERM) as terminal:
        terminal.expect(PROMPT)
        terminal.child.send("9")
        terminal.expect("9")
        terminal.launch.signal(signal.SIGINT)
        terminal.child.send("9\r")
        terminal.expect("Option ID[99] NOT SUPPORTED")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


@delivers_signals_at_once
def test_stopped_and_continued_the_line_goes_on(demo):
    with Shell(demo.launch(env=XTERM)) as shell:
        shell.child.send("66")
        shell.expect("66")
        for _ in range(2):
            shell.type_until_shell("\x1a")
            shell.sendline("fg")
            shell.expect(PROMPT + "66")
            assert edits(shell)
        assert answered(shell, "6\r") == ["666"]
        shell.type_until_shell("\x03")


@delivers_signals_at_once
def test_sigterm_ends_a_stopped_job_without_a_touch_of_the_terminal(demo):
    with Shell(demo.launch(env=XTERM)) as shell:
        shell.type_until_shell("\x1a")
        shell.launch.signal(signal.SIGTERM)
        shell.launch.signal(signal.SIGCONT)
        deadline = time.monotonic() + 20 * SCALE
        stat = pathlib.Path(f"/proc/{shell.launch.pid()}/stat")
        while stat.exists() and ") Z" not in stat.read_text(encoding="ascii"):
            assert time.monotonic() < deadline
            time.sleep(0.01)
        shell.type_until_shell("fg\n")
        shell.type_until_shell("echo $?.\n")
        assert "\n0." in shell.child.before


def piped(demo, *lines):
    """What the lines print where no editor is."""
    with demo.session() as session:
        for line in lines:
            session.send(line)
        for _ in range(len(lines) + 1):
            text = session.wait_for(PROMPT)
    return text


def unedited(terminal, *lines):
    text = terminal.expect(PROMPT) + PROMPT
    terminal.child.setecho(False)
    for line in lines:
        terminal.sendline(line)
        text += terminal.expect(PROMPT) + PROMPT
    assert terminal.terminate() == 0
    return text.replace("\r\n", "\n")


@pytest.mark.parametrize("name", ["dumb", None, "", "no-such-terminal"])
def test_terminal_that_cannot_move_its_cursor_prints_what_a_pipe_gets(demo, name):
    with demo.terminal(env={"TERM": name}) as terminal:
        assert unedited(terminal, "11", UP) == piped(demo, "11", UP)


def test_terminal_without_echo_prints_what_a_pipe_gets(demo):
    wanted = piped(demo, "11", UP)
    with_mode(demo, "-echo")
    with demo.terminal(env=XTERM) as terminal:
        assert unedited(terminal, "11", UP) == wanted


def test_automatic_file_asks_without_the_editor(demo):
    launch = demo.launch(env=XTERM)
    launch.auto_file.write_text("1\n7 47\n")
    with Terminal(launch, 20) as terminal:
        terminal.expect("IPv6 :- ")
        assert not edits(terminal)
