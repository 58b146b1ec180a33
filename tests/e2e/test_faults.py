# SPDX-License-Identifier: Apache-2.0
"""What tools/faults takes; that it does what it says is for the block of docs/testing.md (test_commands.py)."""
import subprocess

import pytest

from lyn import BUILD, ROOT

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="a tool needs no other build")


def faults(*options):
    return subprocess.run([ROOT / "tools/faults", *options], capture_output=True, text=True, check=False)


def test_help_names_every_option():
    done = faults("--help")
    assert done.returncode == 0 and done.stdout.startswith("usage: tools/faults")
    assert all(option in done.stdout for option in ("--list", "--only", "--preset"))


@pytest.mark.parametrize("options, said", [
    (("--everything",), "faults: unknown option --everything; see tools/faults --help\n"),
    (("--preset", "debug"), "faults: --preset takes release, asan or tsan\n"),
])
def test_options_that_are_none_are_named(options, said):
    done = faults(*options)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", said)
