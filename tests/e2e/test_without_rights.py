# SPDX-License-Identifier: Apache-2.0
"""Where the machine gives no right to mount, as most containers do not: bubblewrap is refused."""
import os
import subprocess

import pytest

from lyn import PRIVATE_DATA

REFUSALS = [
    "bwrap: Creating new namespace failed: Operation not permitted",
    "bwrap: No permissions to create new namespace, likely because the kernel does not allow non-privileged user namespaces."
]


def refused(folder, text=REFUSALS[0]):
    """The environment of a machine where bubblewrap fails so."""
    program = folder / "bin/bwrap"
    program.parent.mkdir()
    program.write_text(f"#!/bin/sh\necho '{text}' >&2\necho 'and more of it' >&2\nexit 1\n", encoding="utf-8")
    program.chmod(0o755)
    return {**os.environ, "PATH": f"{program.parent}:{os.environ['PATH']}"}


@pytest.mark.parametrize("text", REFUSALS)
@pytest.mark.parametrize("arguments", [["--check"], ["/dev/null", "echo", "started"]], ids=["check", "command"])
def test_private_data_says_in_one_line_that_it_is_refused(tmp_path, arguments, text):
    done = subprocess.run([str(PRIVATE_DATA), *arguments], env=refused(tmp_path, text), capture_output=True, text=True,
                          check=False)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr == f"private-data: no program can have a /data of its own here: {text}\n"
