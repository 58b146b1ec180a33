# SPDX-License-Identifier: Apache-2.0
"""The tests of the Python package. LYN_BUILD names the build to test, build/release by default.

There is one module in a process and one simulated board, so a test marked `board` runs in a process of its own, on the
scenario that the mark gives. Only the release build has the package: the machine's Python loads no sanitized libraries.

    @pytest.mark.board("[board]\\nnoise_db = 0\\n[lte]\\nrsrp = -95\\n")
    def test_reads(journal):
        with lyn.open() as modem:
            assert modem.get(lyn.Metric.LTE_SERV_RSRP) == -95
        assert [79, "get_sig_info"] in [[row.get("id"), row["name"]] for row in journal()]
"""
import gc
import json
import os
import pathlib
import select
import subprocess
import sys
import time
import traceback

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("LYN_BUILD", "build/release")
if BUILD.name == "release":
    sys.path.insert(0, str(BUILD / "python"))
    import lyn  # noqa: F401  # a build without the package fails here; elsewhere the tests are skipped

LIMIT_S = 120


def pytest_configure(config):
    config.addinivalue_line("markers", "board(scenario): runs in a process of its own, on this board")


@pytest.fixture(autouse=True)
def folder(tmp_path):
    """Where a test's board has its scenario and journal."""
    return tmp_path


@pytest.fixture
def journal(folder):
    """What crossed the platform's boundary up to now, a row each."""
    def rows():
        text = (folder / "journal").read_text(encoding="utf-8")
        return [json.loads(line) for line in text[:text.rfind("\n") + 1].splitlines()]
    return rows


@pytest.fixture
def get_when_ready():
    """Ask until the location service has told what it can, before which it refuses every request."""
    def ask(modem, metric, argument):
        for _ in range(1000):
            try:
                return modem.get(metric, argument)
            except lyn.Failure:
                time.sleep(0.01)
        raise AssertionError("the location service is not ready")
    return ask


@pytest.fixture
def script(folder):
    """Run a text as a program of its own."""
    def run(text, **environment):
        environment = {**os.environ, "PYTHONPATH": str(BUILD / "python"), **environment}
        return subprocess.run([sys.executable, "-c", text], env=environment, capture_output=True, text=True,
                              timeout=LIMIT_S, check=False)
    return run


def child(function, arguments, environment, output):
    """Run a test to its end in this, the forked process; what went wrong goes to the output."""
    status = 1
    try:
        os.environ.update(environment)
        function(**arguments)
        gc.collect()
        status = 0
    except BaseException:
        os.write(output, traceback.format_exc().encode())
    finally:
        sys.stdout.flush()
        os._exit(status)


@pytest.hookimpl(tryfirst=True)
def pytest_pyfunc_call(pyfuncitem):
    mark = pyfuncitem.get_closest_marker("board")
    if not mark:
        return None
    folder = pyfuncitem.funcargs["folder"]
    (folder / "board.toml").write_text("".join(mark.args), encoding="utf-8")
    environment = {"LYN_SIM_SCENARIO": str(folder / "board.toml"), "LYN_SIM_JOURNAL": str(folder / "journal")}
    arguments = {name: pyfuncitem.funcargs[name] for name in pyfuncitem._fixtureinfo.argnames}
    output = os.open(folder / "failure", os.O_RDWR | os.O_CREAT)
    pid = os.fork()
    if pid == 0:
        child(pyfuncitem.obj, arguments, environment, output)
    if not select.select([os.pidfd_open(pid)], [], [], LIMIT_S)[0]:
        os.kill(pid, 9)
    status = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    failure = (folder / "failure").read_text(encoding="utf-8")
    assert status == 0, failure or f"the process ended with {status}"
    return True
