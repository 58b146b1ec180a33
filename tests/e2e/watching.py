# SPDX-License-Identifier: Apache-2.0
"""Runs the live picture as a user would: for its records, its pages, or in a terminal.

    result = watch.run("--json", "--once", scenario="[board]\\nnoise_db = 0\\n")
    assert result.status == 0 and result.records[0]["lte"]["rsrp"] == -95

    with watch.session("--json", scenario=...) as session:
        session.wait_record(lambda record: record.get("event") == "reg_status")
        assert session.terminate() == 0
"""
import functools
import http.client
import json
import re
import time

import lyn


class Result(lyn.Result):
    @property
    def records(self):
        """What was printed: one JSON object a line, and nothing else."""
        return [json.loads(line) for line in self.console.splitlines()]


class Launch(lyn.Launch):
    """It looks for no automatic test file, and needs no /data of its own."""

    def __init__(self, folder, scenario, env, program):
        super().__init__(folder, scenario, env, program)
        self.private = False


class Session(lyn.Session):
    def __init__(self, launch, limit, timeout):
        super().__init__(launch, limit, timeout)
        self.seen = 0

    @property
    def records(self):
        """The records so far."""
        text = self.console
        return [json.loads(line) for line in text[: text.rfind("\n") + 1].splitlines()]

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

    def run(self, *options, scenario=None, env=None, timeout=20):
        """A run to its end."""
        with self.session(*options, scenario=scenario, env=env, timeout=timeout) as session:
            return session.finish()
