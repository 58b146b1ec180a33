# SPDX-License-Identifier: Apache-2.0
"""The demo client's main loop: start-up, the two ways of reading option lines, their grammar, and how it all ends.

None of these needs a modem: they use option numbers without a meaning, the usage screen, and calls that are refused
because nothing is registered.
"""
import os
import signal
import socket
import time

import pytest

from lyn import (AUTO_DONE, AUTO_ENABLED, BANNER, INVALID_OPTION, OPTION_FAILED, PARSE_FAILED, PROMPT, Session,
                 open_terminal)

MENU_LINES = [
    "01. LYN DM Register",
    "02. LYN DM Deregiser",  # the misspelling is deliberate: it is what users' scripts look for
    "03. LYN DM Set Indication",
    "04. LYN DM Get Indication Count",
    "05. LYN DM Get Indication List",
    "06. LYN DM Clear Indication List",
    "07. LYN DM Get LTE/5G/GPS Metric Info",
    "08. LYN DM Get LTE/5G/GPS Metric List",
    "09. LYN DM Set LTE/5G/GPS Metric Info",
    "10. LYN DM Options Usage",
]
MENU = ("\n\nPlease select an option to test from the items listed below.\n\n"
        + "".join(f"{line:53}\n" for line in MENU_LINES) + PROMPT)


def echo(line):
    return f"LYN DEMO APP : {line}\n"


def not_supported(number):
    return f"LYN DEMO APP : Option ID[{number}] NOT SUPPORTED.\n"


def auto_transcript(*parts):
    return BANNER + AUTO_ENABLED + "".join(parts)


def check_auto(demo, content, *parts):
    """An automatic run of CONTENT prints exactly PARTS after its two opening lines, nothing on stderr, and ends well."""
    result = demo.auto(content)
    assert result.console == auto_transcript(*parts)
    assert result.stderr == ""
    assert result.status == 0


# Automatic mode -----------------------------------------------------------------------------------------------------


def test_empty_automatic_file_prints_only_its_frame(demo):
    check_auto(demo, b"", AUTO_DONE)


def test_comment_and_empty_lines_are_echoed_and_otherwise_skipped_silently(demo):
    check_auto(demo, ["# a comment 7 1", "", "   ", "#", "11"],
               echo("# a comment 7 1"), echo(""), echo("   "), echo("#"), echo("11"), not_supported(11), AUTO_DONE)


@pytest.mark.parametrize("line, number", [
    ("0", 0), ("11", 11), ("-5", -5), ("+13", 13), ("0012", 12), ("   11   4  ", 11), ("\t11", 11), ("11 \t5", 11),
    ("\x0b\x0c11", 11),
])
def test_unknown_option_is_reported_and_the_run_continues(demo, line, number):
    check_auto(demo, [line, "12"], echo(line), not_supported(number), echo("12"), not_supported(12), AUTO_DONE)


@pytest.mark.parametrize("text, number", [
    ("2147483647", 2147483647), ("2147483648", 2147483647), ("4294967297", 2147483647),
    ("99999999999999999999999", 2147483647), ("-2147483648", -2147483648), ("-2147483649", -2147483648),
    ("-99999999999999999999999", -2147483648),
])
def test_number_out_of_range_clamps_to_32_bits(demo, text, number):
    check_auto(demo, [text], echo(text), not_supported(number), AUTO_DONE)


@pytest.mark.parametrize("line", [
    "7 x", "abc", "11x", "x11", "-", "+", "11 -", "11\t5", "11\t", "11\r", "11 5\r", "11,5", "0x11", "1.5", " # comment",
    "11 # comment", "--11", "11 \x80", "\t",
])
def test_bad_line_ends_the_automatic_run_before_later_lines(demo, line):
    content = line.encode("latin-1") + b"\n11\n"
    result = demo.auto(content)
    shown = line.encode("latin-1").decode("utf-8", "backslashreplace")
    assert result.console == auto_transcript(echo(shown), INVALID_OPTION + "\n", PARSE_FAILED)
    assert result.status == 0 and result.stderr == ""


def test_carriage_return_before_the_newline_ends_the_automatic_run(demo):
    check_auto(demo, b"7 1\r\n11\n", "LYN DEMO APP : 7 1\r\n", INVALID_OPTION + "\n", PARSE_FAILED)


def test_last_line_without_a_newline_loses_its_last_character(demo):
    check_auto(demo, b"11\n123", echo("11"), not_supported(11), "LYN DEMO APP : 123", not_supported(12), AUTO_DONE)


def test_lone_last_character_without_a_newline_leaves_an_empty_line(demo):
    check_auto(demo, b"7", "LYN DEMO APP : 7", AUTO_DONE)


def test_hundred_values_fit_on_a_line(demo):
    line = " ".join(["11"] + ["1"] * 99)
    check_auto(demo, [line], echo(line), not_supported(11), AUTO_DONE)


def test_hundred_and_one_values_on_a_line_are_invalid(demo):
    line = " ".join(["11"] + ["1"] * 100)
    check_auto(demo, [line, "11"], echo(line), INVALID_OPTION + "\n", PARSE_FAILED)


def test_line_that_begins_with_a_nul_byte_counts_as_empty(demo):
    check_auto(demo, b"\x00 2 x\n11\n", "LYN DEMO APP : ", echo("11"), not_supported(11), AUTO_DONE)


def test_line_ends_at_a_nul_byte_and_loses_the_character_before_it(demo):
    check_auto(demo, b"112\x00 x\n", "LYN DEMO APP : 112", not_supported(11), AUTO_DONE)


def test_ten_megabytes_of_blanks_are_one_line(demo):
    line = "11" + " " * (10 << 20) + "5"
    result = demo.auto([line, "12"], limit=24 << 20, timeout=60)
    assert result.console == auto_transcript(echo(line), not_supported(11), echo("12"), not_supported(12), AUTO_DONE)
    assert result.status == 0


@pytest.mark.parametrize("filler", ["1 ", "9"])
def test_ten_megabyte_line_of_digits_is_one_line(demo, filler):
    line = "11 " + filler * ((10 << 20) // len(filler))
    result = demo.auto([line, "12"], limit=24 << 20, timeout=60)
    too_many = filler == "1 "
    rest = [INVALID_OPTION + "\n", PARSE_FAILED] if too_many else [not_supported(11), echo("12"), not_supported(12),
                                                                   AUTO_DONE]
    assert result.console == auto_transcript(echo(line), *rest)
    assert result.status == 0


def test_refused_call_ends_the_automatic_run(demo):
    check_auto(demo, ["2", "11"], echo("2"), "LYN DEMO APP : Deregister application.\n",
               "LYN DEMO APP : Deregister application failed with status[-2].\n", OPTION_FAILED)


def test_automatic_run_does_not_read_standard_input(demo):
    result = demo.auto(["11"], stdin=b"2\n2\n")
    assert result.console == auto_transcript(echo("11"), not_supported(11), AUTO_DONE)


@pytest.mark.fixed_path
def test_automatic_file_that_cannot_be_opened_ends_the_program(demo):
    launch = demo.launch()
    here = os.getcwd()
    os.chdir(launch.auto_file.parent)  # a socket's path may be no longer than about 100 bytes
    try:
        # Nobody can open a socket as a file, not even root.
        with socket.socket(socket.AF_UNIX) as blocked:
            blocked.bind(launch.auto_file.name)
            result = demo.auto_prepared(launch)
    finally:
        os.chdir(here)
    assert result.console == BANNER + "LYN DEMO APP : Opening auto test configuration file failed.\n"
    assert result.status == 0 and result.stderr == ""


@pytest.mark.fixed_path
def test_folder_in_place_of_the_automatic_file_reads_as_empty(demo):
    launch = demo.launch()
    launch.auto_file.mkdir()
    result = demo.auto_prepared(launch)
    assert result.console == auto_transcript(AUTO_DONE)
    assert result.status == 0


def test_usage_screen(demo, goldens):
    result = demo.auto(["10", "10 5 6"])
    assert result.status == 0
    screens = result.console.removeprefix(auto_transcript(echo("10"))).removesuffix(AUTO_DONE)
    first, second = screens.split(echo("10 5 6"))
    assert first == second
    goldens.check("usage", console=first)


# Interactive mode ---------------------------------------------------------------------------------------------------


def test_without_an_automatic_file_the_menu_is_shown(demo):
    with demo.session() as session:
        assert session.wait_for(PROMPT) == BANNER + MENU
        assert session.terminate() == 0
        # A signal that comes while the prompt is being flushed makes exit flush it once more.
        assert session.console.removeprefix(BANNER + MENU) in ("", PROMPT)
        assert session.errors.text() == ""


@pytest.mark.parametrize("line", ["", "   ", "# comment", "#"])
def test_comment_or_empty_line_at_the_prompt_is_reported_as_invalid(demo, line):
    """The asymmetry with the automatic file, where they are skipped, is deliberate."""
    with demo.session() as session:
        session.wait_for(PROMPT)
        session.send(line)
        assert session.wait_for(PROMPT) == BANNER + MENU + PARSE_FAILED + MENU


@pytest.mark.parametrize("line", ["abc", " # comment", "11\t5", "11\r", " ".join(["1"] * 101)])
def test_bad_line_at_the_prompt_is_reported_and_the_menu_comes_again(demo, line):
    with demo.session() as session:
        session.wait_for(PROMPT)
        session.send(line)
        assert session.wait_for(PROMPT) == BANNER + MENU + INVALID_OPTION + "\n" + PARSE_FAILED + MENU
        session.send("11")
        session.wait_for(not_supported(11))


def test_refused_call_at_the_prompt_is_reported_and_the_menu_comes_again(demo):
    with demo.session() as session:
        session.wait_for(PROMPT)
        session.send("2")
        refused = ("LYN DEMO APP : Deregister application.\n"
                   "LYN DEMO APP : Deregister application failed with status[-2].\n")
        assert session.wait_for(PROMPT) == BANNER + MENU + refused + OPTION_FAILED + MENU


def test_line_at_the_prompt_is_read_in_pieces_of_299_characters(demo):
    """Each piece loses its last character, so the 13 that ends the first piece becomes a 1 and is no option of its own."""
    with demo.session() as session:
        session.wait_for(PROMPT)
        session.send("11" + " " * 295 + "13" + "12")
        session.wait_for(not_supported(11))
        session.wait_for(PROMPT)
        session.wait_for(not_supported(12))
        session.wait_for(PROMPT)
        assert session.console.count(PROMPT) == 3


def test_nul_byte_at_the_prompt_counts_as_an_empty_line(demo):
    with demo.session() as session:
        session.wait_for(PROMPT)
        session.send_raw(b"\x0011\n")
        assert session.wait_for(PROMPT) == BANNER + MENU + PARSE_FAILED + MENU


def test_last_line_without_a_newline_at_the_prompt_loses_its_last_character(demo):
    with demo.session(limit=256 << 20) as session:
        session.wait_for(PROMPT)
        session.send_raw(b"123")
        session.close_stdin()
        session.wait_for(not_supported(12))
        assert session.terminate() == 0


def test_closed_standard_input_repeats_the_menu_without_end_until_a_signal(demo):
    with demo.session(limit=256 << 20) as session:
        session.close_stdin()
        session.wait_for(MENU * 100)
        assert session.process.poll() is None
        assert session.terminate() == 0


def test_prompt_appears_in_a_terminal_and_sigterm_ends_it_with_status_0(demo):
    with demo.terminal() as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("11")
        terminal.expect("Option ID[11] NOT SUPPORTED.")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


@pytest.mark.parametrize("typed, printed", [
    ("\x04", MENU),  # nothing is said of it, unlike of an empty line
    ("\x04\x04\x04", MENU * 3),
    ("112\x04\n", not_supported(112) + MENU),  # once behind a part of a line it takes that part, and the line goes on
    ("112\x04\x04", not_supported(11) + MENU),  # twice it ends the line, which loses its last character
    ("112\x04 4\x04\x04\x04", not_supported(112) + MENU * 2),
], ids=["alone", "thrice", "once_in_a_line", "twice_in_a_line", "in_a_line_and_alone"])
def test_ctrl_d_at_the_prompt_of_a_terminal_ends_one_line_and_reading_goes_on(demo, typed, printed):
    with demo.terminal() as terminal:
        terminal.expect(PROMPT)
        terminal.child.setecho(False)
        terminal.child.send(typed)
        terminal.sendline("12")
        assert terminal.expect(not_supported(12).strip()).replace("\r\n", "\n") == printed
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


def test_terminal_that_hangs_up_between_two_questions_is_a_closed_standard_input(demo):
    """One question finds the terminal there, one finds it gone and gives up, although it repeats at Ctrl-D."""
    keyboard, terminal = open_terminal()
    slow = "[sys_info]\nlte = 'absent'\nnr5g = 'service'\n[[fault]]\non = 'nas.295'\ndelay_ms = 500\n"
    launch = demo.launch(slow)
    launch.auto_file.write_text("1\n9 5\n7 47\n")
    with Session(launch, 256 << 20, 20, stdin=terminal) as session:
        os.close(terminal)
        os.write(keyboard, b"\x04")
        session.wait_journal(lambda row: row["dir"] == "request" and row["id"] == 295)
        os.close(keyboard)
        assert session.wait() == 0
        assert session.console.endswith("IPv6 :- failed to get the MTPE test info\n" + OPTION_FAILED)


def test_terminal_that_hangs_up_during_a_question_is_a_closed_standard_input(demo):
    """The repeated question gives up, and the menu repeats without end."""
    keyboard, terminal = open_terminal()
    with demo.session(limit=256 << 20, stdin=terminal) as session:
        os.close(terminal)
        os.write(keyboard, b"1\n\x047 47\n")
        session.wait_for("IPv6 :- ")
        os.write(keyboard, b"\x04")
        session.wait_for("IPv6 :- ")
        os.close(keyboard)
        session.wait_for("failed to get the MTPE test info\n" + OPTION_FAILED + MENU * 100)
        assert session.terminate() == 0


def test_only_sigterm_is_handled(demo):
    with demo.session() as session:
        session.wait_for(PROMPT)
        assert session.terminate(signal.SIGINT) == 128 + signal.SIGINT


@pytest.mark.release_only
def test_idle_prompt_uses_no_processor_time(demo):
    with demo.session() as session:
        session.wait_for(PROMPT)

        def ticks():
            with open(f"/proc/{session.launch.pid()}/stat", encoding="ascii") as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
            return int(fields[11]) + int(fields[12])

        before = ticks()
        time.sleep(1)
        assert ticks() - before <= 5
