# SPDX-License-Identifier: Apache-2.0
"""Runs the live picture as a user would: for its records, its pages, or in a terminal.

    result = watch.run("--json", "--once", scenario="[board]\\nnoise_db = 0\\n")
    assert result.status == 0 and result.records[0]["lte"]["rsrp"] == -95

    with watch.session("--json", scenario=...) as session:
        session.wait_record(lambda record: record.get("event") == "reg_status")
        assert session.terminate() == 0

    with watch.screen(scenario=...) as screen:
        screen.wait_for("modem up")
        assert screen.line(2).startswith("RSRP       -95 dBm")
        screen.press("q")
        assert screen.wait() == 0
"""
import contextlib
import fcntl
import functools
import http.client
import json
import os
import re
import select
import signal
import struct
import subprocess
import termios
import threading
import time

import jsonschema

import emulator
import lyn

SCHEMA = json.loads((lyn.ROOT / "docs/lyn_watch.schema.json").read_text(encoding="utf-8"))
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)
HISTORY = jsonschema.Draft202012Validator({"$defs": SCHEMA["$defs"], "$ref": "#/$defs/history"})
BEHIND_ALL = b"\0\0\0\0"  # no program sends it, and a terminal shows nothing of it


def no_number(text):
    raise AssertionError(f"{text} is no JSON")


def parse(text):
    """Records, one JSON object a line and nothing else, each as the schema has it."""
    records = [json.loads(line, parse_constant=no_number) for line in text.split("\n")[:-1]]
    for record in records:
        if not VALIDATOR.is_valid(record):
            error = jsonschema.exceptions.best_match(VALIDATOR.iter_errors(record))
            raise AssertionError(f"{error.message}\nin {record}")
    return records


class Result(lyn.Result):
    @functools.cached_property
    def records(self):
        """What was printed, to the last octet."""
        assert self.console.endswith("\n") or not self.console, self.console[-200:]
        return parse(self.console)

    @property
    def snapshots(self):
        return [record for record in self.records if record["type"] == "snapshot"]

    @property
    def events(self):
        return [record for record in self.records if record["type"] == "event"]


class Launch(lyn.Launch):
    """It looks for no automatic test file, and needs no /data of its own."""

    def __init__(self, folder, scenario, env, program):
        super().__init__(folder, scenario, env, program)
        self.private = False


class Session(lyn.Session):
    def __init__(self, launch, limit, timeout):
        super().__init__(launch, limit, timeout)
        self.seen = 0
        self.parsed = []
        self.parsed_to = 0  # in octets of what was printed

    def __exit__(self, kind, *rest):
        super().__exit__(kind, *rest)
        if kind is None and "--json" in self.launch.program:
            assert self.records is not None  # they are as the schema has them, whether or not the test has looked

    @property
    def records(self):
        """The records so far."""
        with self.output.changed:
            end = self.output.data.rfind(b"\n") + 1
            text = bytes(self.output.data[self.parsed_to : end]).decode("utf-8")
        self.parsed += parse(text)
        self.parsed_to = max(end, self.parsed_to)
        return self.parsed

    def wait_record(self, matches, timeout=None):
        """Wait for a record for which `matches` holds, behind the one that was waited for before; returns it."""
        deadline = time.monotonic() + (timeout * lyn.SCALE if timeout else self.timeout)
        while time.monotonic() < deadline:
            records = self.records
            for number in range(self.seen, len(records)):
                if matches(records[number]):
                    self.seen = number + 1
                    return records[number]
            self.seen = len(records)
            time.sleep(0.01)
        raise AssertionError(f"no such record; the last ones:\n{self.console[-3000:]}\n{self.errors.text()}")

    @functools.cached_property
    def address(self):
        """Where it serves: host and port."""
        begin = self.errors.find(b"serving http://", 0, self.timeout)
        assert begin and self.errors.find(b"\n", begin, self.timeout), self.errors.text()
        host, port = re.search(r"serving http://\[?(.*?)\]?:(\d+)/\n", self.errors.text()).groups()
        return host, int(port)

    def connection(self):
        return http.client.HTTPConnection(*self.address, timeout=self.timeout)

    def get(self, path, method="GET", **headers):
        """The answer to one request, with its text in `body`."""
        connection = self.connection()
        connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
        answer = connection.getresponse()
        answer.body = answer.read().decode()
        connection.close()
        return answer

    def metrics(self):
        """One scrape: the value of each series, as text."""
        lines = self.get("/metrics").body.splitlines()
        return dict(line.rsplit(" ", 1) for line in lines if not line.startswith("#"))

    def wait_metrics(self, matches):
        """Scrape until `matches` holds for what came; returns that."""
        deadline = time.monotonic() + self.timeout
        while not matches(found := self.metrics()):
            assert time.monotonic() < deadline, found
            time.sleep(0.05)
        return found

    def finish(self):
        return Result(**vars(super().finish()))


# It has an alternate screen and marks what is pasted.
TERMINAL = "tmux-256color"
ALTERNATE_ON, ALTERNATE_OFF = b"\x1b[?1049h", b"\x1b[?1049l"


class Screen:
    """A run in a pseudo-terminal, and what a terminal shows of it. Lines are counted from 0."""

    def __init__(self, launch, size, timeout, stdin=None, stderr=None):
        self.launch = launch
        self.timeout = timeout * lyn.SCALE
        self.master, self.slave = lyn.open_terminal()
        self.screen = emulator.Screen(*size)
        self.stream = emulator.Stream(self.screen)
        self.changed = threading.Condition()
        self.raw = bytearray()
        self.stopped = threading.Event()
        self.set_size(size)
        self.found = termios.tcgetattr(self.slave)
        self.process = subprocess.Popen(launch.command, cwd=lyn.ROOT, env=launch.env, stdin=stdin or self.slave,
                                        stdout=self.slave, stderr=stderr or self.slave, start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(1, termios.TIOCSCTTY, 0))
        self.thread = threading.Thread(target=self._read, daemon=True)
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            lyn.let_end(self.launch, self.process.wait)
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.hang_up()

    def _read(self):
        while not self.stopped.is_set():
            if not select.select([self.master], [], [], 0.05)[0]:
                continue
            try:
                data = os.read(self.master, 1 << 16)
            except OSError:  # everybody has closed it
                return
            with self.changed:
                self.raw += data
                self.stream.feed(data)
                self.changed.notify_all()

    @property
    def lines(self):
        with self.changed:
            return list(self.screen.display)

    @property
    def text(self):
        return "\n".join(self.lines)

    def line(self, number):
        return self.lines[number].rstrip()

    def wait_for(self, wanted, timeout=None):
        """Wait until the screen shows a text, or until it is as a predicate wants it; returns its lines."""
        matches = wanted if callable(wanted) else lambda screen: wanted in "\n".join(screen.screen.display)
        deadline = time.monotonic() + (timeout * lyn.SCALE if timeout else self.timeout)
        with self.changed:
            while not matches(self):
                left = deadline - time.monotonic()
                if left <= 0:
                    raise AssertionError(f"the screen does not show {wanted!r}:\n" + "\n".join(self.screen.display))
                self.changed.wait(min(left, 0.1))
            return list(self.screen.display)

    def wait_raw(self, wanted):
        """Wait until the terminal was sent these bytes."""
        self.wait_for(lambda _: wanted in self.raw)

    def settle(self):
        """A frame behind the one that is shown has been drawn, whole."""
        title = self.lines[0]
        self.wait_for(lambda screen: screen.screen.display[0] != title)
        self.wait_quiet()

    def wait_quiet(self, seconds=0.1):
        """Nothing has come for a while; while the picture moves that is less than a second."""
        seen = -1
        while seen != len(self.raw):
            seen = len(self.raw)
            time.sleep(seconds)

    def press(self, keys):
        os.write(self.master, keys.encode() if isinstance(keys, str) else keys)

    def set_size(self, size):
        """What the terminal says of itself."""
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", size[1], size[0], 0, 0))

    def resize(self, columns, lines):
        with self.changed:
            self.screen.resize(lines, columns)
            self.set_size((columns, lines))

    def settings(self):
        return termios.tcgetattr(self.slave)

    def terminate(self, number=signal.SIGTERM):
        self.launch.signal(number)
        return self.wait()

    def wait(self):
        """The status at the end, and all that was sent has been read."""
        status = self.process.wait(self.timeout)
        os.write(self.slave, BEHIND_ALL)
        self.wait_raw(BEHIND_ALL)
        with self.changed:
            self.raw = self.raw.replace(BEHIND_ALL, b"")
        self.wait_quiet()  # who looks after a process that was killed prints behind it
        return status if status >= 0 else 128 - status

    def hang_up(self):
        """The terminal goes away."""
        self.stopped.set()
        self.thread.join()
        for end in (self.slave, self.master):
            with contextlib.suppress(OSError):
                os.close(end)

    def leftovers(self):
        """What of the picture is left on the terminal: names of what is not as it was found."""
        left = [] if self.settings() == self.found else ["settings"]
        left += [] if self.raw.count(ALTERNATE_ON) == self.raw.count(ALTERNATE_OFF) else ["alternate screen"]
        left += [] if self.raw.rfind(b"\x1b[?25h") > self.raw.rfind(b"\x1b[?25l") else ["no cursor"]
        left += [] if self.raw.rfind(b"\x1b[?2004l") > self.raw.rfind(b"\x1b[?2004h") else ["brackets"]
        return left

    def after_picture(self):
        """What was printed once the picture was gone."""
        text = bytes(self.raw).rpartition(ALTERNATE_OFF)[2].decode()
        return re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]|\x1b[=>]|\x0f|\r", "", text)


class Watch(lyn.Demo):
    """Starts runs of lyn_watch in numbered folders below one folder of the test's."""

    def __init__(self, folder):
        super().__init__(folder, lyn.BUILD / "lyn_watch")

    def launch(self, *options, scenario=None, env=None):
        self.runs += 1
        folder = self.folder / f"run{self.runs}"
        folder.mkdir()
        return Launch(folder, scenario, env, [*self.program, *options])

    def session(self, *options, scenario=None, env=None, timeout=20, limit=64 << 20):
        """A run whose standard input is empty."""
        session = Session(self.launch(*options, scenario=scenario, env=env), limit, timeout)
        session.close_stdin()
        return session

    def screen(self, *options, scenario=None, env=None, size=(80, 24), timeout=20, **files):
        """A run in a terminal."""
        launch = self.launch(*options, scenario=scenario, env={"TERM": TERMINAL, "TZ": "UTC", **(env or {})})
        return Screen(launch, size, timeout, **files)

    def shell(self, scenario=None, size=(80, 24), timeout=20):
        """A shell in a terminal, which runs `lyn_watch` where it is told to."""
        launch = self.launch(scenario=scenario, env={"TERM": TERMINAL, "TZ": "UTC", "PS1": "prompt> ", "ENV": None})
        folder = launch.folder / "bin"
        folder.mkdir()
        (folder / "lyn_watch").symlink_to(self.program[0])
        launch.env["PATH"] = f"{folder}:{launch.env['PATH']}"
        launch.program = ["/bin/sh", "-i"]
        return Screen(launch, size, timeout)

    def run(self, *options, scenario=None, env=None, timeout=20):
        """A run to its end."""
        with self.session(*options, scenario=scenario, env=env, timeout=timeout) as session:
            return session.finish()
