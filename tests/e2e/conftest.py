# SPDX-License-Identifier: Apache-2.0
"""Fixtures of the end-to-end tests. LYN_BUILD names the build to test, build/release by default."""
import os
import pathlib
import signal

import pytest

import lyn
import watching

LONG = bool(os.environ.get("LYN_LONG"))


# A run in the background of a script, or under nohup, is handed these ignored and would hand them down; a terminal does
# not.
for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTERM, signal.SIGTSTP):
    if signal.getsignal(number) == signal.SIG_IGN:
        signal.signal(number, signal.SIG_DFL)


def pytest_configure(config):
    config.addinivalue_line("markers", "release_only: too slow for sanitizer builds unless LYN_LONG is set")
    config.addinivalue_line("markers", "xdist_group: tests that one worker runs, because they share what takes long")
    config.addinivalue_line("markers", "fixed_path: needs a /data of its own, which takes the right to mount")
    config.addinivalue_line("markers", "long: takes minutes; runs with LYN_LONG set")


def pytest_collection_modifyitems(config, items):
    def leave_out(item):
        if LONG:
            return False
        return bool(item.get_closest_marker("long")
                    or (item.get_closest_marker("release_only") and lyn.BUILD.name != "release"))

    gone = [item for item in items if leave_out(item)]
    if gone:
        config.hook.pytest_deselected(items=gone)
        items[:] = [item for item in items if item not in gone]


@pytest.fixture
def demo(request, tmp_path):
    if lyn.NO_PRIVATE_DATA and request.node.get_closest_marker("fixed_path"):
        pytest.skip(lyn.NO_PRIVATE_DATA)
    return lyn.Demo(tmp_path)


@pytest.fixture
def watch(tmp_path):
    if not (lyn.BUILD / "lyn_watch").exists():
        pytest.skip("lyn_watch is not built: its libraries are not installed for this processor")
    return watching.Watch(tmp_path)


@pytest.fixture(scope="session")
def goldens():
    return lyn.Goldens(update=bool(os.environ.get("LYN_GOLDEN_UPDATE")))


@pytest.fixture(scope="session")
def drives():
    """The folder of recorded drives."""
    folder = os.environ.get("LYN_DRIVES")
    if not folder:
        pytest.skip("LYN_DRIVES names no folder of recorded drives")
    return pathlib.Path(folder)
