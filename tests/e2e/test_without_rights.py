# SPDX-License-Identifier: Apache-2.0
"""Where the machine gives no right to mount, as most containers do not: bubblewrap is refused. And where the user has no
home, or may not write into the tree."""
import os
import shutil
import subprocess
import sys

import pytest

from lyn import BUILD, NO_PRIVATE_DATA, PRIVATE_DATA, REFUSALS, ROOT, without_rights


@pytest.mark.parametrize("text", REFUSALS)
@pytest.mark.parametrize("arguments", [["--check"], ["/dev/null", "echo", "started"]], ids=["check", "command"])
def test_private_data_says_in_one_line_that_it_is_without_rights(tmp_path, arguments, text):
    done = subprocess.run([str(PRIVATE_DATA), *arguments], env=without_rights(tmp_path, text), capture_output=True, text=True,
                          check=False)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr == f"private-data: no program can have a /data of its own here: {text}\n"


def test_only_tests_of_the_fixed_path_are_left_out(tmp_path):
    run = subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-rs", "tests/e2e/test_main_loop.py",
                          "-k", "automatic or usage_screen or hangs_up"], cwd=ROOT, text=True, capture_output=True, check=False,
                         env={**without_rights(tmp_path), "LYN_BUILD": str(BUILD)})
    assert run.returncode == 0, run.stdout
    skipped = [line for line in run.stdout.splitlines() if line.startswith("SKIPPED")]
    assert len(skipped) == 2 and all(REFUSALS[0] in line for line in skipped), run.stdout


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
@pytest.mark.parametrize("tool", ["test", "demo", "watch"])
def test_tree_that_cannot_be_written_is_named_in_one_line(tmp_path, tool, built):
    tree = tmp_path / "tree"
    shutil.copytree(ROOT / "tools", tree / "tools")
    if built:
        (tree / "build/results").mkdir(parents=True)
    done = subprocess.run(["bwrap", "--dev-bind", "/", "/", "--ro-bind", tree, tree, "--", tree / "tools" / tool],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr == f"{tool}: cannot write to {tree}/build\n"
