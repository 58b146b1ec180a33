# SPDX-License-Identifier: Apache-2.0
"""Where the machine gives no right to mount, as most containers do not: bubblewrap is refused. And where the user has no
home, or may not write into the tree."""
import os
import shutil
import subprocess

import pytest

from lyn import NO_PRIVATE_DATA, PRIVATE_DATA, ROOT

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


def cache_folder(**env):
    """Where compilers and linter keep what they remember, as far as the tools say."""
    told = subprocess.run(["bash", "-c", '. tools/common.sh; echo "${XDG_CACHE_HOME-}"'], cwd=ROOT, check=True, text=True,
                          capture_output=True, env={"PATH": os.environ["PATH"], **env})
    return told.stdout.strip()


def test_who_has_no_home_keeps_the_caches_in_the_tree(tmp_path):
    assert cache_folder(HOME=str(tmp_path / "none")) == f"{ROOT}/build/cache"
    assert cache_folder(HOME=str(tmp_path)) == ""
    assert cache_folder(HOME=str(tmp_path / "none"), XDG_CACHE_HOME=str(tmp_path)) == str(tmp_path)


@pytest.mark.skipif(bool(NO_PRIVATE_DATA), reason=NO_PRIVATE_DATA)
@pytest.mark.parametrize("built", [False, True], ids=["new", "built"])
@pytest.mark.parametrize("tool", ["test", "demo"])
def test_tree_that_cannot_be_written_is_named_in_one_line(tmp_path, tool, built):
    tree = tmp_path / "tree"
    shutil.copytree(ROOT / "tools", tree / "tools")
    if built:
        (tree / "build/results").mkdir(parents=True)
    done = subprocess.run(["bwrap", "--dev-bind", "/", "/", "--ro-bind", tree, tree, "--", tree / "tools" / tool],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr == f"{tool}: cannot write to {tree}/build\n"
