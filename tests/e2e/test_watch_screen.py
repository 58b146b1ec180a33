# SPDX-License-Identifier: Apache-2.0
"""The live picture in a terminal: it shows what the scenario measures, and leaves the terminal as it was found."""
import os
import pathlib
import random
import re
import signal
import subprocess
import termios
import time

import pytest

import lyn
from watching import ALTERNATE_OFF, ALTERNATE_ON

QUIET = "[board]\nnoise_db = 0\n"
LTE_ONLY = QUIET + "[sys_info]\nnr5g_pci = -1\n"
CHATTER = "MobileAP"


def at(ms, what):
    return f"[[at]]\nms = {ms}\n{what}\n"


def cells(line):
    """The two panels of a line of 80 columns."""
    return line[:39].rstrip(), line[41:].rstrip()


def row(screen, label, panel=0):
    """What stands behind a label at the begin of a line of a panel of 80 columns."""
    found = [cells(line)[panel] for line in screen.lines if cells(line)[panel].startswith(label)]
    return found[0][len(label):].split() if found else None


def up(screen):
    """Every value has come; the clock has moved since, so that the frame is whole."""
    screen.wait_for("modem up")
    screen.settle()
    return screen


# Without times, ages, plots and events.
QUIET_80 = """\
LTE        now      best worst 10 min    NR 5G      now      best worst 10 min
RSRP       -95 dBm   -95   -95           RSRP       -98 dBm   -98   -98
RSRQ       -11 dB    -11   -11           RSRQ       -11 dB    -11   -11
SINR      13.0 dB   13.0  13.0           SINR      15.0 dB   15.0  15.0
TX power  12.0 dBm  12.0  12.0           TX power  15.0 dBm  15.0  15.0
PLMN   272-01       UL mod     QPSK      PLMN   272-01       UL mod    16QAM
Cell   10607298     RRC        state_3   Cell   68719476736  RRC       connected
TAC    6699         Bandwidth  -         TAC    6699         Bandwidth 25 MHz
PCI    214          CA         -         PCI    500          SCS       30 kHz
Chan   1300         EN-DC      -         Chan   636000       Locked to -
Band   B3           DCNR restr -         Band   n77/n78
CQI    12/11        Locked to  -         CQI    13/12
DL mod 16QAM 64QAM                       DL mod 64QAM 256QAM
Neighbours  chan  PCI RSRP RSRQ PLMN     Neighbours  chan  PCI RSRP RSRQ PLMN
-                                        -

Data path   rx b/s tx b/s   rx B   tx B  Location
1 -                                      Latitude            - Alt             -
                                         Longitude           - Speed           -
Events
HH:MM:SS  LTE RSRP -95 RSRQ -11 SINR 13.0  NR 5G RSRP -98 RSRQ -11 SINR 15.0

 h help   p pause   s scan   q quit""".splitlines()


def still(lines):
    """Lines without what moves: plots and rates."""
    lines = [re.sub(r"^\d\d:\d\d:\d\d  ", "HH:MM:SS  ", line) for line in lines]
    lines = [re.sub("[\u2800-\u28ff]+", lambda plot: " " * len(plot.group()), line) for line in lines]
    return [re.sub(r"^(1 .{9}).{28}", r"\1" + " " * 28, line).rstrip() for line in lines]


def test_a_quiet_board_at_80x24(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        assert still(screen.lines)[1:] == QUIET_80
        assert re.fullmatch(r" lyn_watch  \S+ +modem up    lte_nr5g          answer [01]s old   \d\d:\d\d:\d\d ",
                            screen.lines[0])


def test_a_quiet_board_at_200x60_shows_the_same_with_longer_plots(watch):
    with watch.screen("--name", "a board of this name", scenario=QUIET, size=(200, 60)) as screen:
        up(screen)
        lines = still(screen.lines)
        assert lines[0].startswith(" lyn_watch  a board of this name  ")
        assert lines[2].split() == "RSRP -95 dBm -95 -95 RSRP -98 dBm -98 -98".split()
        assert lines[8].split() == "SINR 13.0 dB 13.0 13.0 SINR 15.0 dB 15.0 15.0".split()
        assert lines[14].split() == "PLMN 272-01 Band B3 Bandwidth - PLMN 272-01 Band n77/n78 Bandwidth 25 MHz".split()
        assert lines[17].split() == "PCI 214 UL mod QPSK DCNR restr - PCI 500 UL mod 16QAM".split()
        assert [number for number, line in enumerate(lines) if re.match("Neighbours|Data path|Events", line)] == [19, 30, 37]
        # Three lines for each of four plots, up to the right edge of both panels.
        assert all(screen.lines[number][98] != " " and screen.lines[number][199] != " " for number in (4, 7, 10, 13))


def test_without_nr5g_its_side_has_dashes(watch):
    with watch.screen(scenario=LTE_ONLY) as screen:
        up(screen)
        assert row(screen, "RSRP") [:4] == ["-95", "dBm", "-95", "-95"]
        for line in screen.lines[2:6]:
            assert re.fullmatch(r"(RSRP|RSRQ|SINR|TX power) +- dBm? +- +-", cells(line)[1])
        assert row(screen, "EN-DC") is None and row(screen, "Chan ")[1:] == ["EN-DC", "yes"]
        assert row(screen, "Band")[1:] == ["DCNR", "restr", "no"]
        assert [row(screen, label, 1) for label in ("CQI", "DL mod", "Band")] == [["-"]] * 3
        assert row(screen, "PLMN", 1) == ["-", "UL", "mod", "-"]


def test_no_service_has_no_values_and_says_so(watch):
    with watch.screen(scenario=QUIET + '[sys_info]\nlte = "no_service"\nnr5g_pci = -1\n') as screen:
        screen.wait_for("no_service")
        up(screen)
        assert not re.search(r"\d", "".join(screen.lines[2:19]).replace("10 min", ""))
        assert row(screen, "RSRP") == ["-", "dBm", "-", "-"]


def test_best_and_worst_are_those_of_the_history_and_the_plot_shows_them(watch):
    scenario = LTE_ONLY + at(1500, "lte = { rsrp = -110, snr = -35 }") + at(3000, "lte = { rsrp = -84, snr = 201 }")
    with watch.screen(scenario=scenario, size=(700, 60)) as screen:  # a column of dots for each second
        screen.wait_for(lambda _: re.match(r"RSRP +-84 dBm +-84 +-110 ", screen.screen.display[2]))
        up(screen)
        assert re.match(r"SINR +20\.1 dB +20\.1 +-3\.5 ", screen.lines[8])
        highest, middle, lowest = [line[31:349] for line in screen.lines[2:5]]
        assert len(highest.strip()) < len(lowest.strip()) < 10  # all is measured, and only the end is high
        assert {line[-1] for line in (highest, middle, lowest)} < set("⣿⢸⡇⣸⣇⣼⣧")
        assert set(lowest.strip()) & set("⣀⢀⡀⢸⣸⣇⡇⣰⣆⣠⣄⣼⣧") and middle.strip() != lowest.strip()


def test_of_transmit_power_less_is_best(watch):
    with watch.screen(scenario=LTE_ONLY + at(1500, "lte = { tx_power = 230 }")) as screen:
        screen.wait_for(lambda _: re.match(r"TX power +23\.0 dBm +12\.0 +23\.0", screen.screen.display[5]))


MODEM_DOWN = """\
#   #   ###   ####   #####  #   #         ####    ###   #   #  #   #
## ##  #   #  #   #  #      ## ##         #   #  #   #  #   #  ##  #
# # #  #   #  #   #  ####   # # #         #   #  #   #  # # #  # # #
#   #  #   #  #   #  #      #   #         #   #  #   #  ## ##  #  ##
#   #   ###   ####   #####  #   #         ####    ###   #   #  #   #""".splitlines()
STARTING = """\
 ####  #####   ###   ####   #####   ###   #   #   ####
#        #    #   #  #   #    #      #    ##  #  #
 ###     #    #####  ####     #      #    # # #  #  ##
    #    #    #   #  #  #     #      #    #  ##  #   #
####     #    #   #  #   #    #     ###   #   #   ####""".splitlines()


def large(screen, first):
    """The letters of five lines, from the first of these on, without what is left of all of them."""
    with screen.changed:
        lines = ["".join("#" if screen.screen.buffer[line][column].reverse else " " for column in range(80)).rstrip()
                 for line in range(first - 1, first + 6)]
    assert lines[0] == lines[6] == ""
    left = min(len(line) - len(line.lstrip()) for line in lines[1:6])
    return [line[left:] for line in lines[1:6]]


def test_a_modem_that_goes_and_comes_is_said_large(watch):
    scenario = LTE_ONLY + at(2500, 'modem = "down"') + at(6000, 'modem = "up"')
    with watch.screen(scenario=scenario, size=(80, 30)) as screen:
        up(screen)
        screen.wait_for("The modem is gone, refuses or does not answer.")
        screen.settle()
        assert "modem down" in screen.line(0)
        assert row(screen, "RSRP")[:4] == ["-", "dBm", "-95", "-95"]
        assert large(screen, 7) == MODEM_DOWN
        screen.wait_for("modem up")
        screen.wait_for(lambda _: re.match("PLMN   272-01", screen.screen.display[6]))
        screen.settle()
        assert re.search(r"\d\d:\d\d:\d\d  modem_status +down", screen.text)


def test_a_modem_that_is_not_there_yet_is_said_large(watch):
    with watch.screen(scenario=LTE_ONLY + "[nas]\navailable = false\n") as screen:
        screen.wait_for("The module starts, or waits for the modem.")
        screen.settle()
        assert "starting" in screen.line(0) and "no answer yet" in screen.line(0)
        assert large(screen, 7) == STARTING
        screen.press("q")
        assert screen.wait() == 0


NEIGHBOURS = QUIET + """
[scan]
answer_ms = 1500
[lte]
neighbour = [
  { earfcn = 6300, pci = 302, rsrp = -103, rsrq = -15, plmn = [{ mcc = 1, mnc = 1 }] },
  { earfcn = 1300, pci = 41, plmn = [{ mcc = 310, mnc = 410, pcs_digit = 1 }, { mcc = 1, mnc = 2 }] },
  { earfcn = 1301, pci = 7 },
]
[nr5g]
neighbour = [{ arfcn = 2079167, pci = 1007, rsrp = -105 }, { arfcn = 636000, pci = 12, rsrp = -99 }]
"""


def test_neighbours_come_after_the_key(watch):
    with watch.screen(scenario=NEIGHBOURS) as screen:
        up(screen)
        assert cells(screen.lines[15]) == ("-", "-")
        screen.press("s")
        screen.wait_for(lambda _: screen.screen.display[15].startswith("scanning"))
        screen.wait_for(lambda _: "scanning" in screen.screen.display[23])
        screen.wait_for("2079167")
        screen.settle()
        [strongest, second] = screen.lines[15:17]
        assert re.fullmatch(r"\ds old      6300  302 -103  -15 001-01", cells(strongest)[0])
        assert re.fullmatch(r"2 of 3      1300   41    -    - 310-41…", cells(second)[0])
        assert re.fullmatch(r"\ds old    636000   12  -99    - 272-01", cells(strongest)[1])
        assert cells(second)[1] == "         2079167 1007 -105    - 272-01"
        assert "scanning" not in screen.text


def test_all_neighbours_have_room_on_a_larger_screen(watch):
    with watch.screen("--scan", "1s", scenario=NEIGHBOURS, size=(200, 60)) as screen:
        screen.wait_for("310-410 001-02")
        screen.settle()
        assert " of " not in screen.text and "1301" in screen.text


def test_a_scan_that_finds_no_neighbours_says_so(watch):
    with watch.screen("--scan", "1s", scenario=QUIET + "[lte]\nneighbour = []\n[nr5g]\nneighbour = []\n") as screen:
        screen.wait_for(lambda _: all(cell.startswith("nobody") for cell in cells(screen.lines[16])))
        screen.press("q")
        assert screen.wait() == 0


TRAFFIC = QUIET + """
[[wwan.profile]]
index = 1
ip_family = 10
apn = "internet"
[[wwan.profile]]
index = 7
ip_family = 4
apn = "a.rather.long.name.example"
[[wwan.profile]]
index = 9
ip_family = 6
apn = "ims"
[[wwan.stats]]
handle = 1
ip_family = 4
bytes_rx = 700000000000
rx_rate = 1250000
tx_rate = 0
[[wwan.stats]]
handle = 1
ip_family = 6
bytes_tx = 52000000000
rx_rate = 3750000
tx_rate = 0
[[wwan.stats]]
handle = 7
ip_family = 4
rx_rate = 0
tx_rate = 0
"""


def test_data_path_of_each_profile(watch):
    with watch.screen(scenario=TRAFFIC) as screen:
        # Two readings make a rate, whose third digit is the machine's.
        screen.wait_for(lambda _: re.match(r"1 internet   (39\.|40\.)\dM      0   700G  52\.0G", screen.screen.display[18]))
        screen.wait_for("7 a.rather…      0      0      0      0")
    with watch.screen(scenario=TRAFFIC, size=(200, 60)) as screen:
        screen.wait_for("7 a.rather.long.name.example")
        screen.wait_for(lambda _: re.search(r"(?m)^9 ims +- +- +- +- ", "\n".join(screen.screen.display)))


def test_location_where_it_is_asked_for(watch):
    place = "[location]\nlatitude = -33.8567844\nlongitude = 151.2152967\naltitude = 1234.5\nspeed = 33.3\n"
    with watch.screen("--locate", "1s", scenario=QUIET + place) as screen:
        screen.wait_for("-33.856784")
        screen.settle()
        assert re.fullmatch(r"Location +\ds old", cells(screen.lines[17])[1])
        assert cells(screen.lines[18])[1] == "Latitude   -33.856784 Alt        1234 m"
        assert cells(screen.lines[19])[1] == "Longitude  151.215297 Speed    33.3 m/s"


def test_what_a_location_does_not_have_is_a_dash(watch):
    with watch.screen("--locate", "1s", scenario=QUIET + "[location]\nflags = 1\n") as screen:
        screen.wait_for("51.897463")
        screen.settle()
        assert cells(screen.lines[18])[1].split()[2:] == ["Alt", "-"]
        assert cells(screen.lines[19])[1].split()[2:] == ["Speed", "-"]


def test_events_with_runs_of_measurements_in_one_line(watch):
    scenario = QUIET + "[wwan.qos]\n" + "".join(
        at(1000 + 500 * step, f"lte = {{ rsrp = {-100 - step}, rsrq = {-12 - step % 2} }}\nnr5g = {{ snr = {20 - 10 * step} }}")
        for step in range(6)) + at(4500, "qos_flow = { bearer = 6, tx_5qi = 1, rx_5qi = 2 }") + at(
            5500, "lte = { rsrp = -90 }") + at(6500, "sys_info = { nr5g_pci = -1 }")
    with watch.screen(scenario=scenario, size=(80, 30)) as screen:
        screen.wait_for(lambda _: re.search(r"reg_status +lte ", "\n".join(screen.screen.display)))
        begin = screen.lines.index(next(line for line in screen.lines if line.startswith("Events"))) + 1
        events = [line.rstrip() for line in screen.lines[begin:29] if line.strip()]
        assert [re.sub(r"^\d\d:\d\d:\d\d  ", "", line) for line in events] == [
            "LTE RSRP -105 RSRQ -13 SINR 13.0  NR 5G RSRP -98 RSRQ -11 SINR -3.0",
            "qos_flow            bearer=6 tx_5qi=1 rx_5qi=2",
            "LTE RSRP -90",
            "reg_status          lte",
        ]


def test_the_screen_follows_the_terminals_size(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.resize(200, 60)
        screen.wait_for(lambda _: screen.screen.display[59].startswith(" h help"))
        screen.settle()
        assert screen.lines[0].rstrip()[-1].isdigit() and len(screen.lines[0].rstrip()) == 199
        screen.resize(40, 10)
        screen.wait_for("lyn_watch needs 80x24, here are 40x10")
        screen.wait_quiet()
        assert not "".join(screen.lines[1:]).strip()
        screen.resize(80, 24)
        screen.wait_for(lambda _: screen.screen.display[23].startswith(" h help"))
        up(screen)
        assert still(screen.lines)[1:] == QUIET_80
        screen.resize(7, 1)
        screen.wait_for(lambda _: screen.screen.display == ["lyn_wa…"])
        screen.press("q")
        assert screen.wait() == 0


def colours(raw):
    """Parameters that give a colour."""
    numbers = [int(number) for found in re.findall(rb"\x1b\[([0-9;]*)m", bytes(raw)) for number in found.split(b";") if number]
    return {number for number in numbers if 30 <= number <= 49 or 90 <= number <= 107}


@pytest.mark.parametrize("env, coloured", [
    ({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "vt100"}, False),
], ids=["by_default", "empty_no_color", "no_color", "vt100"])
def test_colours(watch, env, coloured):
    with watch.screen(scenario=QUIET, env=env) as screen:
        up(screen)
        screen.press("p")
        screen.wait_for("PAUSED")
        screen.press("q")
        assert screen.wait() == 0
        assert bool(colours(screen.raw)) == coloured


def two_profiles(apn):
    """Of a lone one the name is not told."""
    return f'[[wwan.profile]]\napn = "{apn}"\n[[wwan.profile]]\nindex = 2\napn = "ims"\n'


def test_without_utf8_all_is_ascii(watch):
    scenario = QUIET + two_profiles("b\u00fcro \u5bb6") + at(1500, "lte = { rsrp = -110 }")
    with watch.screen("--name", "caf\u00e9", scenario=scenario, env={"LC_ALL": "C"}) as screen:
        screen.wait_for("1 b?ro ?")
        up(screen)
        assert "lyn_watch  caf?" in screen.line(0)
        assert max(screen.raw) < 0x80
        assert screen.line(2)[38] in ".:|"


def test_strange_characters_keep_their_columns(watch):
    scenario = QUIET + two_profiles("a\\u001b[2J\\u202e\u5bb6\u5bb6\u5bb6\u5bb6")
    with watch.screen("--name", "b\ne\u0301\u5bb6", scenario=scenario) as screen:
        up(screen)
        assert "b\ufffde\u5bb6" in screen.line(0)
        assert screen.lines[18].startswith("1 a\ufffd[2J\ufffd\u5bb6\u2026 ")
        assert still(screen.lines)[2:17] == QUIET_80[1:16]
        assert re.search(r"\d\d:\d\d:\d\d $", screen.lines[0])


def test_help_comes_and_goes(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        for key in "h?":
            screen.press(key)
            screen.wait_for("q        quit, as Ctrl-C does")
            screen.press(key)
            screen.wait_for(lambda _: "Ctrl-C" not in "\n".join(screen.screen.display))
        screen.wait_for(lambda _: still(screen.screen.display)[1:] == QUIET_80)


def test_a_paused_picture_stands_still_and_reading_goes_on(watch):
    with watch.screen(scenario=LTE_ONLY + at(4000, "lte = { rsrp = -111 }")) as screen:
        up(screen)
        screen.press("p")
        screen.wait_for("PAUSED")
        before = screen.lines
        marker = len(screen.raw)
        screen.resize(100, 30)
        screen.wait_for(lambda _: screen.screen.display[29].startswith(" h help"))
        screen.wait_quiet()
        assert screen.lines[0].split()[-1] == before[0].split()[-1] and len(screen.raw) > marker
        wait_measured(screen, -111)
        assert "-111" not in screen.text and "PAUSED" in screen.text
        screen.press(" ")
        screen.wait_for(lambda _: re.match(r"RSRP +-111 dBm", screen.screen.display[2]))
        screen.wait_for(lambda _: "PAUSED" not in screen.screen.display[29])


def wait_measured(screen, rsrp):
    """Wait until the board has told the module a value."""
    lyn.Session.wait_journal(screen, lambda found: f'"rsrp": {rsrp}' in str(found).replace("'", '"'))


def test_other_keys_and_pasted_text_do_nothing(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        before = still(screen.lines)[1:]
        for keys in ("x", "Q", "\x1b[A", "\x1bOq", "\x1bq", "\x1b[15~", "\x04", "\r", "quit please\n", b"\xff\x00h\x80"):
            screen.press(keys)
            screen.settle()
        for part in ("\x1b[200~", "q", "h", "\x1b[201~"):  # pasted slowly
            screen.press(part)
        screen.settle()
        assert still(screen.lines)[1:] == before
        assert screen.process.poll() is None
        screen.press("q")
        assert screen.wait() == 0


def test_only_what_changes_is_drawn(watch):
    with watch.screen(scenario=QUIET, size=(200, 60)) as screen:
        up(screen)
        begin = len(screen.raw)
        for _ in range(3):
            screen.settle()
        sent = bytes(screen.raw[begin:])
        assert not re.search(rb"\x1b\[[0-3]?J", sent)
        assert b"RSRP" not in sent and b"PLMN" not in sent


ENDS = {"q": "q", "ctrl_c": "\x03", "ctrl_backslash": "\x1c", "sigint": signal.SIGINT, "sigterm": signal.SIGTERM,
        "sighup": signal.SIGHUP, "sigquit": signal.SIGQUIT}


@pytest.mark.parametrize("end", ENDS.values(), ids=ENDS.keys())
def test_the_terminal_is_left_as_it_was_found(watch, end):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        assert screen.settings() != screen.found
        if isinstance(end, str):
            screen.press(end)
        else:
            screen.launch.signal(end)
        assert screen.wait() == 0
        assert screen.leftovers() == []
        assert screen.raw.count(ALTERNATE_ON) == 1 and screen.after_picture() == ""


def test_a_killed_process_leaves_the_terminal_as_it_was_found(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.launch.signal(signal.SIGKILL)
        screen.wait_raw(ALTERNATE_OFF)
        assert screen.wait() == 128 + signal.SIGKILL
        # Behind it stands the last that module and board had to say.
        screen.wait_for(lambda _: screen.leftovers() == [] and CHATTER in screen.after_picture())


@pytest.mark.release_only
def test_a_picture_ended_at_random_moments_leaves_the_terminal_as_it_was_found(watch):
    """Also while it is being drawn for the first time, and before: there a signal ends it as any program."""
    seed = int(os.environ.get("LYN_SEED") or random.SystemRandom().randrange(1 << 32))
    chance = random.Random(seed)
    for _ in range(60):
        number = chance.choice([signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL])
        delay = chance.choice([0.02, 0.1, 0.4]) * chance.random()
        told = f"LYN_SEED={seed}: {number.name} at {delay * 1000:.1f} ms"
        with watch.screen(scenario=QUIET) as screen:
            while not screen.launch.pid_path.exists() or not screen.launch.pid_path.read_text().endswith("\n"):
                time.sleep(0.001)
            time.sleep(delay)
            screen.launch.signal(number)
            status = screen.wait()
            if ALTERNATE_ON in screen.raw:
                screen.wait_for(lambda screen: screen.leftovers() == [])
                assert status == (137 if number == signal.SIGKILL else 0), told
            else:
                assert screen.settings() == screen.found and status in (0, 128 + number), told


def test_a_scenario_that_cannot_be_used_is_named_on_the_restored_terminal(watch):
    with watch.screen(scenario="[board]\nnoise = 1\n") as screen:
        screen.wait_raw(b"scenario.toml:2:1: board.noise: unknown key")
        assert screen.wait() == 2
        assert screen.settings() == screen.found
        assert screen.raw.count(ALTERNATE_ON) == screen.raw.count(ALTERNATE_OFF)


def test_a_closed_terminal_ends_the_program(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.hang_up()
        assert screen.process.wait(screen.timeout) == 0


def test_the_end_of_input_ends_the_program(watch):
    with watch.screen(scenario=QUIET, stdin=subprocess.DEVNULL) as screen:
        assert screen.wait() == 0
        assert screen.leftovers() == []


def test_what_module_and_board_print_is_not_in_the_picture(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.press("q")
        assert screen.wait() == 0
        assert CHATTER.encode() not in screen.raw


def test_why_there_is_no_board_is_told_in_the_file_that_standard_error_is(watch, tmp_path):
    path = tmp_path / "errors"
    with path.open("wb") as errors, watch.screen(scenario="[board]\nnoise = 1\n", stderr=errors) as screen:
        assert screen.wait() == 2
        assert "unknown key" in path.read_text() and b"unknown key" not in screen.raw


def typed_up(screen, command):
    """The picture, typed at a shell's prompt; the terminal's settings before it and while it is drawn."""
    screen.wait_for("prompt>")
    cooked = screen.settings()
    screen.press(command + "\n")
    up(screen)
    return cooked, screen.settings()


def check_drawn_again_and_quit(screen, cooked, drawn):
    up(screen)
    assert screen.lines[2].startswith("RSRP       -95 dBm") and screen.settings() == drawn
    assert "brackets" in screen.leftovers()
    screen.press("q")
    screen.wait_for("status=0")
    assert screen.settings() == cooked and screen.leftovers() == []


def test_a_shell_stops_and_resumes_the_picture(watch):
    with watch.shell(scenario=QUIET) as screen:
        cooked, drawn = typed_up(screen, "lyn_watch")
        screen.press("\x1a")
        screen.wait_for("Stopped")
        assert screen.settings() == cooked and screen.leftovers() == []
        screen.resize(100, 40)
        screen.press("fg; echo status=$?\n")
        screen.wait_for(lambda _: screen.screen.display[39].startswith(" h help"))
        up(screen)
        assert "Stopped" not in screen.text
        check_drawn_again_and_quit(screen, cooked, drawn)


def picture_of(shell):
    """The process that the shell has started."""
    return int(subprocess.run(["pgrep", "-P", str(shell.launch.pid())], capture_output=True, text=True, check=True).stdout)


def test_a_resumed_picture_that_is_killed_leaves_the_shell_its_terminal(watch):
    with watch.shell(scenario=QUIET) as screen:
        cooked, _ = typed_up(screen, "lyn_watch")
        screen.press("\x1a")
        screen.wait_for("Stopped")
        screen.press("fg; status=$?; read line; echo status=$status\n")
        screen.wait_for(lambda _: "Stopped" not in screen.text)
        up(screen)
        os.kill(picture_of(screen), signal.SIGKILL)
        screen.wait_for("Killed")
        screen.wait_for(lambda _: screen.leftovers() == [] and screen.settings() == cooked)


def test_a_picture_that_was_stopped_without_warning_is_drawn_anew(watch):
    with watch.shell(scenario=QUIET) as screen:
        cooked, drawn = typed_up(screen, "lyn_watch")
        os.kill(picture_of(screen), signal.SIGSTOP)
        screen.wait_for("(signal)")
        termios.tcsetattr(screen.slave, termios.TCSANOW, cooked)
        screen.press("fg; echo status=$?\n")
        screen.wait_for(lambda _: "(signal)" not in "\n".join(screen.screen.display))
        check_drawn_again_and_quit(screen, cooked, drawn)


def test_a_picture_that_is_killed_leaves_the_shell_its_terminal(watch):
    with watch.shell(scenario=QUIET) as screen:
        cooked, _ = typed_up(screen, "lyn_watch; status=$?; read line; echo status=$status")
        os.kill(picture_of(screen), signal.SIGKILL)
        screen.wait_for("Killed")  # the shell may say so before it has its terminal back
        screen.wait_for(lambda _: screen.leftovers() == [] and screen.settings() == cooked)
        screen.press("\n")
        screen.wait_for("status=137")


def test_a_picture_that_is_killed_in_the_background_leaves_the_settings_of_who_is_in_front(watch):
    with watch.shell(scenario=QUIET) as screen:
        cooked, _ = typed_up(screen, "lyn_watch")
        picture = picture_of(screen)
        os.kill(picture, signal.SIGSTOP)
        screen.wait_for("(signal)")
        own = [*cooked[:3], cooked[3] & ~termios.ECHOE, *cooked[4:]]
        termios.tcsetattr(screen.slave, termios.TCSANOW, own)
        os.kill(picture, signal.SIGKILL)
        screen.wait_raw(ALTERNATE_OFF)
        screen.wait_quiet()
        assert screen.settings() == own


def test_a_picture_that_is_killed_in_a_terminal_without_a_size_leaves_it_as_it_was(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.set_size((0, 0))
        screen.settle()
        screen.launch.signal(signal.SIGKILL)
        screen.wait_raw(ALTERNATE_OFF)
        screen.wait_for(lambda _: screen.leftovers() == [])


def test_of_what_was_printed_meanwhile_a_killed_picture_leaves_the_last(watch):
    with watch.screen("--every", "50ms", scenario=QUIET, env={"LYN_SIM_JOURNAL": "/dev/stdout"}) as screen:
        up(screen)
        screen.settle()
        screen.settle()
        screen.launch.signal(signal.SIGKILL)
        screen.wait_raw(ALTERNATE_OFF)
        screen.wait_quiet()
        assert 8192 < len(screen.after_picture()) <= 16384 + 4096


def test_the_picture_keeps_no_end_of_its_pipe_but_those_that_it_prints_into(watch):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        links = [os.readlink(path) for path in pathlib.Path(f"/proc/{screen.launch.pid()}/fd").iterdir()]
        assert sum(link.startswith("pipe:") for link in links) == 2


def test_standard_error_that_is_a_file_leaves_nothing_on_the_terminal(watch, tmp_path):
    with (tmp_path / "errors").open("w") as errors, watch.screen(scenario=QUIET, stderr=errors) as screen:
        up(screen)
        screen.press("q")
        assert screen.wait() == 0
        assert screen.leftovers() == []


def test_a_request_that_hangs_holds_up_no_key_and_what_is_shown_looks_old(watch):
    scenario = LTE_ONLY + '[[fault]]\non = "nas.79"\nskip = 40\ndelay_ms = 60000\n'
    with watch.screen("--every", "200ms", scenario=scenario) as screen:
        up(screen)
        screen.wait_for(lambda _: re.match(r"RSRP +-95 \d+s", screen.screen.display[2]))
        screen.wait_for(lambda _: re.match(r"Cell   10607298 +\d+s ", screen.screen.display[7]))
        screen.wait_for(lambda _: re.match(r"Data \d+s +rx b/s", screen.screen.display[17]))
        [age] = re.findall(r"answer (\d+)s old", screen.line(0))
        screen.press("h")
        screen.wait_for("Ctrl-C")
        screen.press("h")
        screen.wait_for(lambda _: f"answer {age}s old" not in screen.screen.display[0])
        assert screen.terminate() == 0
        assert screen.leftovers() == []


@pytest.mark.parametrize("by_key", [True, False], ids=["q", "sigterm"])
def test_a_terminal_that_takes_no_output_holds_up_no_end(watch, by_key):
    with watch.screen(scenario=QUIET) as screen:
        up(screen)
        screen.press("\x13")  # Ctrl-S
        screen.wait_quiet(1.5)  # a frame was due
        if by_key:
            screen.press("q")
        else:
            screen.launch.signal(signal.SIGTERM)
        assert screen.process.wait(screen.timeout) == 0
        assert ALTERNATE_OFF not in screen.raw
        screen.press("\x11")  # Ctrl-Q
        screen.wait_raw(ALTERNATE_OFF)
        screen.wait_for(lambda _: screen.leftovers() == [])


def test_a_terminal_that_stops_in_the_middle_of_a_frame_holds_up_no_end(watch):
    with watch.screen("--every", "50ms", scenario=QUIET, size=(200, 60)) as screen:
        up(screen)
        screen.stopped.set()
        screen.thread.join()  # nobody reads any more
        for _ in range(30):
            screen.press("h")
            time.sleep(0.05)
        screen.launch.signal(signal.SIGTERM)
        assert screen.process.wait(screen.timeout) == 0


def test_without_a_terminal_the_other_views_are_named(watch):
    result = watch.run(scenario=QUIET)
    assert result.status == 2
    assert re.fullmatch(r"lyn_watch: .*--json.*--serve.*\n", result.stderr) and result.console == ""


@pytest.mark.parametrize("name", ["no-such-terminal", "", "dumb", None])
def test_a_terminal_that_cannot_be_drawn_on_is_refused(watch, name):
    with watch.screen(scenario=QUIET, env={"TERM": name}) as screen:
        assert screen.wait() == 1
        assert bytes(screen.raw).startswith(f"lyn_watch: the terminal '{name or ''}' ".encode())
        assert bytes(screen.raw).count(b"\n") == 1 and screen.settings() == screen.found


def test_picture_and_records_are_refused_together(watch):
    result = watch.run("--screen", "--json")
    assert result.status == 2 and "--screen" in result.stderr
