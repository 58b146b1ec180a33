# SPDX-License-Identifier: Apache-2.0
"""Runs the live picture as a user would: for its records, its pages, or in a terminal.

    result = watch.run("--json", "--once", scenario="[board]\\nnoise_db = 0\\n")
    assert result.status == 0 and result.records[0]["lte"]["rsrp"] == -95

    with watch.session("--json", scenario=...) as session:
        session.wait_record(lambda record: record.get("event") == "reg_status")
        assert session.terminate() == 0
"""
import functools
import json
import time

import jsonschema

import lyn

SCHEMA = json.loads((lyn.ROOT / "docs/lyn_watch.schema.json").read_text(encoding="utf-8"))
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)


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
