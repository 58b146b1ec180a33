# SPDX-License-Identifier: Apache-2.0
"""How the demo client ends at any moment after its banner, in its menu, at a question and while events are printed, and
while the board is busy: with status 0 at SIGTERM, also after it was stopped and continued and where journal and log have
found the disk full; by SIGPIPE where nobody reads what it prints; by the signals of its terminal. It leaves whole lines
behind, but for the last, and the terminal as it was."""
import concurrent.futures
import fcntl
import json
import os
import random
import re
import resource
import select
import signal
import subprocess
import termios
import time

import pytest

import lyn

RUNS = 1000
SEED = int(os.environ.get("LYN_SEED") or random.SystemRandom().randrange(1 << 32))

HEADER = "Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n"
LONG_DRIVE = HEADER + "".join(f"0,0,0,LTE,{-100 + row % 9},-10,{row % 30},9,1,1,-95,-14\n" for row in range(5000))

BOARDS = {
    # Changing measurements, ten a millisecond, so that every thread of module and board is at work.
    "timeline": "[board]\ntick_ms = 1\n" + "".join(
        f"[[at]]\nms = 0\nafter = 'nas.108'\nlte = {{ rsrp = {rsrp} }}\nrepeat = 100000\nevery_ms = 1\n"
        for rsrp in range(-100, -90)),
    "drive": "[trace]\nfile = 'drive.csv'\nspeed = 0\nafter = 'nas.108'\n",
    "drive_from_the_start": "[trace]\nfile = 'drive.csv'\nspeed = 0\n",
    "flood": "[[at]]\nms = 0\nraw = { lib = 'nas', id = 81, bytes = '01020000' }\nrepeat = 1000000\nevery_ms = 0\n"
             "[[at]]\nms = 0\nmodem = 'down'\nrepeat = 100000\nevery_ms = 0\n",
    "restarting_modem": "[[at]]\nms = 0\nmodem = 'down'\nrepeat = 100000\nevery_ms = 2\n"
                        "[[at]]\nms = 1\nmodem = 'up'\nrepeat = 100000\nevery_ms = 2\n",
}

INPUTS = {
    "idle": b"",
    "registered": b"1\n7 1\n",
    "busy": b"1\n3 1\n3 2\n3 3 1\n" + b"7 10\n7 1\n4\n" * 50,
    "register_cycles": b"1\n2\n" * 100,
    "in_a_prompt": b"1\n3 3 1\n7 47\n4\n192.0.2.1\n",
    "in_the_callback": b"1\n3 1\n3 2\n" + b"".join(b"3 %d 1\n" % number for number in range(3, 9)),
}

# A run may be ended while a thread is being started, which is no leak of the program's, and where the search for leaks
# waits for ever for a lock of that thread.
SANITIZERS = {"TSAN_OPTIONS": os.environ.get("TSAN_OPTIONS", "") + ":report_thread_leaks=0",
              "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}
DIAG_LINE = re.compile(rb"(HIGH|ERROR) [\w.]+:\d+ .*\n")


def launch_on(demo, board, env=None):
    launch = demo.launch(scenario=BOARDS[board], env={**SANITIZERS, **(env or {})})
    launch.private = os.path.exists("/data/data_oxmap/lyn_auto_test.cfg")  # a thousand runs are quicker without
    if "drive" in board:
        (launch.folder / "drive.csv").write_text(LONG_DRIVE)
    return launch


def torn(launch):
    """What is no whole line in journal and diagnostic log, the last of each left out."""
    journal, diag = (path.read_bytes().splitlines(keepends=True)[:-1] if path.exists() else []
                     for path in (launch.journal_path, launch.diag_path))
    found = [line for line in diag if not DIAG_LINE.fullmatch(line)]
    for line in journal:
        try:
            json.loads(line)
        except ValueError:
            found.append(line)
    return found


class Run:
    """The program on pipes or, edited, in a terminal, which is the session's; read by who waits for it."""

    def __init__(self, launch, terminal=False, file_size=resource.RLIM_INFINITY):
        self.launch = launch
        self.terminal = terminal
        self.printed = bytearray()
        if terminal:
            self.keyboard, inside = lyn.open_terminal()
            self.screen = os.dup(self.keyboard)
            self.slave = os.dup(inside)
            self.found = termios.tcgetattr(inside)
            ends = (inside, os.dup(inside))
        else:
            (reads, self.keyboard), (self.screen, writes) = os.pipe(), os.pipe()
            ends = (reads, writes)

        def prepare():
            if terminal:
                fcntl.ioctl(0, termios.TIOCSCTTY, 0)
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)  # a write that does not fit then fails
            resource.setrlimit(resource.RLIMIT_FSIZE, (file_size, file_size))

        self.process = subprocess.Popen(launch.command, cwd=lyn.ROOT, env=launch.env, stdin=ends[0], stdout=ends[1],
                                        stderr=subprocess.PIPE, start_new_session=True, preexec_fn=prepare)
        for end in ends:
            os.close(end)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()
        for end in (self.keyboard, self.screen, *((self.slave,) if self.terminal else ())):
            if end is not None:
                os.close(end)

    def read(self, seconds, wanted=None):
        """Read for so long, or until a text has come or the program is gone."""
        deadline = time.monotonic() + seconds
        while wanted is None or wanted not in self.printed:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.screen], [], [], left)[0]:
                return
            try:
                piece = os.read(self.screen, 1 << 16)
            except OSError:  # the terminal's last user is gone
                return
            if not piece:
                return
            self.printed += piece

    def hang_up(self):
        """Close the other end: of the pipe that is printed into, or of the terminal."""
        os.close(self.screen)
        self.screen = None
        if self.terminal:
            os.close(self.keyboard)
            self.keyboard = None

    def wait(self):
        """The status, as a shell has it; what is printed meanwhile is read."""
        deadline = time.monotonic() + 30 * lyn.SCALE
        while self.process.poll() is None:
            assert time.monotonic() < deadline, "it does not end"
            if self.screen is None:
                time.sleep(0.001)
            else:
                self.read(0.005)
        return self.process.returncode if self.process.returncode >= 0 else 128 - self.process.returncode


# How a run is ended; the status that is stated for it.

def terminate(run):
    run.launch.signal(signal.SIGTERM)
    return 0


def stop_and_continue_and_terminate(run):
    run.launch.signal(signal.SIGSTOP)
    run.read(0.005)
    assert run.process.poll() is None
    run.launch.signal(signal.SIGCONT)
    run.read(0.005)
    return terminate(run)


def leave_without_a_reader(run):
    """On a pipe the next line that is printed kills it, in a terminal the hang-up of the session."""
    run.hang_up()
    if run.terminal:
        return 128 + signal.SIGHUP
    try:
        os.write(run.keyboard, b"?\n" * 300)
    except BrokenPipeError:
        pass
    return 128 + signal.SIGPIPE


def interrupt(run):
    run.launch.signal(signal.SIGINT)
    return 128 + signal.SIGINT


def hang_up_by_signal(run):
    run.launch.signal(signal.SIGHUP)
    return 128 + signal.SIGHUP


ENDINGS = [terminate, stop_and_continue_and_terminate, leave_without_a_reader, interrupt, hang_up_by_signal]


def wrong_about(demo, board, kind, ending, delay, terminal=False, file_size=None):
    """Start, wait for the banner, type, let `delay` seconds pass, and end it; what is not as stated, or nothing."""
    launch = launch_on(demo, board, {"TERM": "xterm"})
    with Run(launch, terminal, file_size or resource.RLIM_INFINITY) as run:
        run.read(30 * lyn.SCALE, b"Device Manager Client Application")
        os.write(run.keyboard, INPUTS[kind])
        run.read(delay)
        wanted = ending(run)
        status = run.wait()
        errors = run.process.stderr.read().decode().splitlines()
        settings = termios.tcgetattr(run.slave) == run.found if terminal and run.keyboard is not None else True
    files = {f"{path}: File too large, {what} ends here": path for path, what in (
        (launch.journal_path, "the journal"), (launch.diag_path, "the diagnostic log"))}
    full = {line: files.pop(line) for line in errors if line in files and file_size}
    wrong = [f"status {status}"] if status != wanted else []
    wrong += [line for line in errors if line not in full]
    wrong += ["the terminal is not as it was"] if not settings else []
    wrong += [repr(line) for line in torn(launch)]
    wrong += [f"{path.name} ends in {path.read_bytes()[-40:]!r}" for path in full.values()
              if path.read_bytes()[-1:] not in (b"\n", b"")]
    return [f"{board}, {kind}, {ending.__name__}, {delay * 1000:.2f} ms, terminal {terminal}, {file_size} octets: "
            + "; ".join(wrong)] if wrong else []


def hold(plan, demo):
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        wrong = sum(pool.map(lambda step: wrong_about(demo, *step), plan), [])
    assert not wrong, f"LYN_SEED={SEED}: {len(wrong)} of {len(plan)}:\n" + "\n".join(wrong[:10])


@pytest.mark.release_only
def test_thousand_runs_ended_at_random_moments_end_as_stated(demo):
    chance = random.Random(SEED)
    hold([(chance.choice(list(BOARDS)), chance.choice(list(INPUTS)), chance.choice(ENDINGS),
           chance.choice([0.002, 0.01, 0.04, 0.1]) * chance.random(), chance.random() < 0.4,
           chance.choice([None, None, chance.randrange(32, 30000)])) for _ in range(RUNS)], demo)


@pytest.mark.parametrize("board", BOARDS)
def test_each_ending_is_as_stated(demo, board):
    hold([(board, kind, ending, 0.05) for kind in INPUTS
          for ending in (ENDINGS if board == "timeline" else [terminate])], demo)


FULL_DISK = pytest.param(5000, id="on_a_full_disk", marks=pytest.mark.skipif(
    lyn.BUILD.name == "coverage", reason="the counters are files, too"))


@pytest.mark.parametrize("file_size", [pytest.param(None, id="with_room"), FULL_DISK])
def test_each_ending_in_a_terminal_is_as_stated(demo, file_size):
    hold([("timeline", kind, ending, 0.05, True, file_size) for kind in ("in_a_prompt", "in_the_callback")
          for ending in ENDINGS], demo)


@pytest.mark.parametrize("variable, name", [("LYN_SIM_JOURNAL", "the journal"), ("LYN_SIM_DIAG", "the diagnostic log")])
def test_full_device_under_the_files_of_the_board_is_said_once_and_stops_nothing(demo, variable, name):
    result = demo.auto(["1", "7 10", "2"], env={variable: "/dev/full"})
    assert result.status == 0 and result.console.endswith(lyn.AUTO_DONE)
    assert result.stderr == f"/dev/full: No space left on device, {name} ends here\n"


def test_sigterm_ends_a_registration_that_waits_for_the_service(demo):
    with demo.session(scenario="[nas]\navailable = false\n") as session:
        session.send("1")
        session.wait_journal(lambda row: row["name"] == "yrp_cci_os_signal_wait" and row["dir"] == "call")
        assert session.terminate() == 0
        result = session.finish()
    assert result.console.endswith("LYN DEMO APP : Register application.\n")
    assert result.stderr == ""
    assert not result.calls("call", "init_instance")


def test_registration_goes_on_once_the_service_is_offered(demo):
    with demo.session(scenario=f"[nas]\navailable_after_ms = {50 * lyn.SCALE}\n") as session:
        session.send("1")
        session.wait_for("LYN DEMO APP : Application registered successfully.\n")
        assert session.terminate() == 0
        assert session.finish().calls("call", "yrp_cci_os_signal_wait")
