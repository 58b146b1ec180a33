# SPDX-License-Identifier: Apache-2.0
"""Runs the demo client as a user would: with an automatic test file, through a pipe, or in a terminal.

Every run starts in the tree's root with a /data of its own (tools/private-data), or, where the machine gives no right to
that, with its automatic test file as argument. Its scenario, journal and diagnostic log are in the test's folder; it has a
time-out that is longer in sanitizer builds. What it prints is read by a thread up to a
limit, because the interactive menu repeats without end once standard input is closed.

    result = demo.auto(["1", "7 10", "2"], scenario="[board]\\nnoise_db = 0\\n")
    assert result.status == 0 and "LTE Serving Cell RSRP" in result.console

    with demo.session(scenario="...") as session:
        session.send("1")
        session.wait_for("registered successfully")
        session.wait_journal(lambda row: row["name"] == "trace_end")
        assert session.terminate() == 0
"""
import contextlib
import dataclasses
import json
import os
import pathlib
import re
import signal
import subprocess
import threading
import time

import pexpect
import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DATA = ROOT / "tests" / "data"
DRIVES = [DATA / "drive.csv", ROOT / "scenarios" / "motorway_drive.csv"]  # the tree's own
BUILD = ROOT / os.environ.get("LYN_BUILD", "build/release")
PRIVATE_DATA = ROOT / "tools" / "private-data"
AUTO_FILE = "data_oxmap/lyn_auto_test.cfg"  # below /data


def reason_against_private_data():
    """Why runs cannot have a /data of their own here; empty: they can."""
    return subprocess.run([str(PRIVATE_DATA), "--check"], stderr=subprocess.PIPE, text=True, check=False).stderr.strip()


NO_PRIVATE_DATA = reason_against_private_data()

SLOWER = {"release": 1, "asan": 4, "tsan": 8, "coverage": 2, "quick": 1, "arm64": 8}
SCALE = SLOWER.get(BUILD.name, 4)


def configured(name):
    """A list in the configuration of the tested build; empty without."""
    cache = BUILD / "CMakeCache.txt"
    found = re.search(rf"(?m)^{name}:\w+=(.+)$", cache.read_text(encoding="utf-8")) if cache.exists() else None
    return found[1].split(";") if found else []


# What runs the build's programs where they are another processor's.
EMULATOR = configured("CMAKE_CROSSCOMPILING_EMULATOR")

BANNER = "\n\n################### Device Manager Client Application #########################\n\n"
AUTO_ENABLED = "LYN DEMO APP : Auto test configuration file enabled.\n"
AUTO_DONE = "LYN DEMO APP : Auto test configuration file successfully processed.\n"
PARSE_FAILED = "LYN DEMO APP : Parsing the entered options failed - invalid options passed!!"
OPTION_FAILED = "LYN DEMO APP : Processing diagnostic metric information failed!!"
INVALID_OPTION = "LYN DEMO APP : Invalid option is passed."
PROMPT = "Option > "


# How bubblewrap is refused where there is no right to mount.
REFUSALS = [
    "bwrap: Creating new namespace failed: Operation not permitted",
    "bwrap: No permissions to create new namespace, likely because the kernel does not allow non-privileged user namespaces."
]


def without_rights(folder, text=REFUSALS[0]):
    """The environment of a machine where bubblewrap fails so."""
    program = folder / "bin/bwrap"
    program.parent.mkdir()
    program.write_text(f"#!/bin/sh\necho '{text}' >&2\necho 'and more of it' >&2\nexit 1\n", encoding="utf-8")
    program.chmod(0o755)
    return {**os.environ, "PATH": f"{program.parent}:{os.environ['PATH']}"}


def open_terminal():
    """The two ends of a pseudo-terminal; a machine without /dev/pts has none, and skips the test."""
    try:
        return os.openpty()
    except OSError as error:
        pytest.skip(f"no pseudo-terminal: {error}")


class TooMuchOutput(AssertionError):
    """The program printed more than the run allows."""


def parse_journal(text):
    """The journal's complete lines as dicts."""
    return [json.loads(line) for line in text.splitlines(keepends=True) if line.endswith("\n")]


def read_text(path):
    return path.read_bytes().decode("utf-8", "backslashreplace") if path.exists() else ""


@dataclasses.dataclass
class Result:
    """What one finished run left behind."""

    console: str
    stderr: str
    journal_text: str
    diag_text: str
    status: int

    @property
    def journal(self):
        return parse_journal(self.journal_text)

    @property
    def diag(self):
        return self.diag_text.splitlines()

    def calls(self, direction, name=None):
        """The journal's rows of one direction, of one name if given."""
        return [row for row in self.journal if row["dir"] == direction and name in (None, row["name"])]


class Output:
    """Collects what a pipe delivers, up to a limit; beyond it the process is killed."""

    def __init__(self, process, pipe, limit):
        self.process = process
        self.pipe = pipe
        self.limit = limit
        self.data = bytearray()
        self.overflow = False
        self.closed = False
        self.changed = threading.Condition()
        self.thread = threading.Thread(target=self._read, daemon=True)
        self.thread.start()

    def _read(self):
        while chunk := os.read(self.pipe.fileno(), 1 << 16):
            with self.changed:
                self.data += chunk[: max(0, self.limit - len(self.data))]
                self.overflow = self.overflow or len(self.data) >= self.limit
                self.changed.notify_all()
            if self.overflow:
                self.process.kill()
        with self.changed:
            self.closed = True
            self.changed.notify_all()

    def text(self):
        with self.changed:
            return self.data.decode("utf-8", "backslashreplace")

    def find(self, wanted, start, timeout):
        """Wait for bytes at or after an offset; the offset behind them, or None if they do not come."""
        deadline = time.monotonic() + timeout
        with self.changed:
            while (at := self.data.find(wanted, start)) < 0:
                left = deadline - time.monotonic()
                if left <= 0 or self.closed:
                    return None
                self.changed.wait(left)
            return at + len(wanted)


class Launch:
    """What every kind of run shares: the folders and variables of one start of the program."""

    def __init__(self, folder, scenario, env, program):
        self.folder = folder
        self.data = folder / "data"
        self.auto_file = self.data / AUTO_FILE
        self.auto_file.parent.mkdir(parents=True)
        self.journal_path = folder / "journal"
        self.diag_path = folder / "diag"
        self.pid_path = folder / "pid"
        self.private = not NO_PRIVATE_DATA  # False: the machine's own /data, where that has no automatic test file
        self.program = [str(word) for word in program]
        self.env = {key: value for key, value in os.environ.items() if not key.startswith("LYN_SIM_")}
        self.env.update(TERM="dumb", LC_ALL="C.UTF-8", LYN_SIM_JOURNAL=str(self.journal_path),
                        LYN_SIM_DIAG=str(self.diag_path))
        if scenario is not None:
            scenario_path = folder / "scenario.toml"
            scenario_path.write_text(scenario, encoding="utf-8")
            self.env["LYN_SIM_SCENARIO"] = str(scenario_path)
        for key, value in (env or {}).items():
            if value is None:
                self.env.pop(key, None)
            else:
                self.env[key] = value

    @property
    def command(self):
        """The command line; the shell in between notes the program's own process id."""
        private = [str(PRIVATE_DATA), str(self.data)] if self.private else []
        named = [str(self.auto_file)] if self.auto_file.exists() and not self.private else []
        return [*private, "/bin/sh", "-c", 'echo $$ >"$0"; exec "$@"', str(self.pid_path), *EMULATOR, *self.program, *named]

    def pid(self):
        return int(self.pid_path.read_text())

    def signal(self, number):
        os.kill(self.pid(), number)


def signals_of(pid, kind):
    """The signals of a process that are SigBlk, SigIgn or SigCgt: blocked, ignored or caught."""
    mask = int(re.search(rf"^{kind}:\t(\w+)$", pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii"), re.M)[1], 16)
    return {number for number in signal.Signals if mask & 1 << number - 1}


def let_end(launch, wait):
    """A program that a test leaves running is killed; one that counts what it runs writes that at its end."""
    if BUILD.name != "coverage":
        return
    try:
        launch.signal(signal.SIGTERM)
        launch.signal(signal.SIGCONT)
        wait(5)
    except (OSError, ValueError, subprocess.TimeoutExpired, pexpect.TIMEOUT):
        pass  # it has ended, or has not come as far, or does not come to its end


class Session:
    """An interactive run through pipes. Texts are waited for in order: each search starts behind the last match.

    Standard input may be a file of the test's own, into which it writes by itself."""

    def __init__(self, launch, limit, timeout, stdin=subprocess.PIPE):
        self.launch = launch
        self.timeout = timeout * SCALE
        self.process = subprocess.Popen(launch.command, cwd=ROOT, env=launch.env, stdin=stdin,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.output = Output(self.process, self.process.stdout, limit)
        self.errors = Output(self.process, self.process.stderr, limit)
        self.mark = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()

    @property
    def console(self):
        return self.output.text()

    def send(self, line):
        self.send_raw(line.encode() + b"\n")

    def send_raw(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def close_stdin(self):
        self.process.stdin.close()

    def wait_for(self, text, timeout=None):
        """Wait until the program has printed a text; returns everything printed up to its end."""
        end = self.output.find(text.encode(), self.mark, timeout * SCALE if timeout else self.timeout)
        if end is None:
            tail = self.console[-2000:]
            raise AssertionError(f"the program did not print {text!r}; last printed:\n{tail}\n{self.errors.text()}")
        self.mark = end
        return self.output.data[:end].decode("utf-8", "backslashreplace")

    def wait_journal(self, matches, timeout=None):
        """Wait for a row of the journal for which `matches` holds; returns it."""
        deadline = time.monotonic() + (timeout * SCALE if timeout else self.timeout)
        seen = 0
        while time.monotonic() < deadline:
            text = read_text(self.launch.journal_path)[seen:]
            text = text[: text.rfind("\n") + 1]
            for row in parse_journal(text):
                if matches(row):
                    return row
            seen += len(text)
            time.sleep(0.01)
        raise AssertionError("the journal did not show the awaited row")

    def terminate(self, number=signal.SIGTERM):
        """Send the program a signal; returns its exit status."""
        self.launch.signal(number)
        return self.wait()

    def wait(self, timeout=None):
        status = self.process.wait(timeout * SCALE if timeout else self.timeout)
        self.output.thread.join(self.timeout)
        self.errors.thread.join(self.timeout)
        if self.output.overflow or self.errors.overflow:
            raise TooMuchOutput(f"more than {self.output.limit} bytes")
        return status if status >= 0 else 128 - status  # killed by a signal: as bubblewrap reports it

    def finish(self):
        """Wait for the end and return the whole result."""
        status = self.wait()
        return Result(self.console, self.errors.text(), read_text(self.launch.journal_path),
                      read_text(self.launch.diag_path), status)

    def kill(self):
        """End the run whatever state it is in; harmless after its end."""
        if self.process.poll() is None:
            let_end(self.launch, self.process.wait)
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.output.thread.join(self.timeout)
        self.errors.thread.join(self.timeout)
        for pipe in filter(None, (self.process.stdin, self.process.stdout, self.process.stderr)):
            try:
                pipe.close()
            except BrokenPipeError:
                pass


class Terminal:
    """An interactive run in a pseudo-terminal, TERM=dumb. `expect` and `sendline` are pexpect's."""

    def __init__(self, launch, timeout):
        self.launch = launch
        command = launch.command
        self.child = pexpect.spawn(command[0], command[1:], cwd=str(ROOT), env=launch.env, timeout=timeout * SCALE,
                                   encoding="utf-8", codec_errors="backslashreplace", dimensions=(50, 200),
                                   maxread=1 << 16)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if not self.child.closed and self.child.isalive():
            let_end(self.launch, lambda seconds: self.child.expect(pexpect.EOF, timeout=seconds))
        self.child.close(force=True)

    def sendline(self, line):
        self.child.sendline(line)

    def expect(self, text):
        """Wait for a literal text; returns what came before it. Line ends are the terminal's, CR LF."""
        self.child.expect_exact(text)
        return self.child.before

    def terminate(self):
        """Send SIGTERM; returns the exit status."""
        self.launch.signal(signal.SIGTERM)
        self.child.expect(pexpect.EOF)
        self.child.close()
        return self.child.exitstatus


class Demo:
    """Starts runs in numbered folders below one folder of the test's."""

    def __init__(self, folder, program=None, *arguments):
        self.folder = folder
        self.program = [program or BUILD / "lyn_demo", *arguments]
        self.runs = 0

    def launch(self, scenario=None, env=None):
        self.runs += 1
        folder = self.folder / f"run{self.runs}"
        folder.mkdir()
        return Launch(folder, scenario, env, self.program)

    def auto(self, lines, scenario=None, env=None, stdin=b"", timeout=20, limit=8 << 20):
        """Run an automatic test file to its end. `lines` are option lines, or the file's very bytes."""
        launch = self.launch(scenario, env)
        launch.auto_file.write_bytes(lines if isinstance(lines, bytes) else "".join(f"{x}\n" for x in lines).encode())
        return self.auto_prepared(launch, stdin, timeout, limit)

    def auto_prepared(self, launch, stdin=b"", timeout=20, limit=8 << 20):
        """The same with whatever stands in the automatic test file's place already."""
        with Session(launch, limit, timeout) as session:
            for give in (lambda: session.send_raw(stdin), session.close_stdin):
                with contextlib.suppress(BrokenPipeError):  # it has ended without reading it
                    give()
            return session.finish()

    def session(self, scenario=None, env=None, timeout=20, limit=8 << 20, stdin=subprocess.PIPE):
        return Session(self.launch(scenario, env), limit, timeout, stdin)

    def terminal(self, scenario=None, env=None, timeout=20):
        for end in open_terminal():
            os.close(end)
        return Terminal(self.launch(scenario, env), timeout)


def mask_console(text):
    return re.sub(r"0x[0-9a-fA-F]+", "0x*", text)


def mask_journal(text):
    return re.sub(r'"t": ?[0-9.e+-]+', '"t": *', mask_console(text))


def mask_diag(text):
    return re.sub(r"(\w+\.(?:cpp|h)):\d+", r"\1:*", mask_console(text))


class Goldens:
    """Recorded transcripts: NAME.console, NAME.journal and NAME.diag in one folder, masked where runs differ."""

    MASKS = {"console": mask_console, "journal": mask_journal, "diag": mask_diag}

    def __init__(self, folder=DATA / "golden", update=False):
        self.folder = folder
        self.update = update

    def check(self, name, **texts):
        """Compare texts by kind (console, journal, diag) with the recorded ones; re-record them when updating."""
        for kind, text in texts.items():
            path = self.folder / f"{name}.{kind}"
            masked = self.MASKS[kind](text)
            if self.update:
                path.write_bytes(masked.encode())
                continue
            assert path.exists(), f"{path.name} is not recorded yet: tools/test --goldens"
            assert masked.split("\n") == path.read_bytes().decode().split("\n"), f"{path.name} differs"

    def check_result(self, name, result, kinds=("console", "journal", "diag")):
        texts = {"console": result.console, "journal": result.journal_text, "diag": result.diag_text}
        self.check(name, **{kind: texts[kind] for kind in kinds})
