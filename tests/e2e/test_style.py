# SPDX-License-Identifier: Apache-2.0
"""tools/check-style, on a small tree: which files have to name the licence, and where."""
import shutil
import subprocess

import pytest

from lyn import BUILD, ROOT

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="has nothing to do with a build")

LICENCE = "SPDX-License-Identifier: Apache-2.0"
GOOD = {
    "inc/a.h": f"/* {LICENCE} */\n/*\n * What it is for.\n */\n",
    "src/CMakeLists.txt": f"# {LICENCE}\n",
    "src/a.map": f"/* {LICENCE} */\n",
    "scenarios/a.toml": f"# {LICENCE}\n[board]\n",
    "docs/man/a.1": f'.\\" {LICENCE}\n.Dt A 1\n',
    "tests/e2e/a.py": f'# {LICENCE}\n"""What it is for."""\n',
    "tools/a": f"#!/usr/bin/env bash\n# {LICENCE}\n# usage: tools/a\n",
}
NONE_NEEDED = {"README.md": "# A\n", "tests/data/a.csv": "1\n", "tests/fuzz/corpus/a": "\1\2\n", "build/src/a.cpp": "\n"}


@pytest.fixture
def tree(tmp_path):
    for name, text in {**GOOD, **NONE_NEEDED}.items():
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(text, encoding="utf-8")
    shutil.copy(ROOT / "tools/check-style", tmp_path / "tools")
    return tmp_path


def check(tree):
    done = subprocess.run([str(tree / "tools/check-style")], stdout=subprocess.PIPE, text=True, check=False)
    return done.returncode, done.stdout


def test_files_with_the_licence_and_those_that_cannot_have_it_pass(tree):
    assert check(tree)[0] == 0


@pytest.mark.parametrize("name", GOOD)
def test_file_without_the_licence_is_named(tree, name):
    line = next(line for line in GOOD[name].splitlines() if LICENCE in line)
    (tree / name).write_text(GOOD[name].replace(f"{line}\n", ""), encoding="utf-8")
    assert check(tree) == (1, f"{name}:1: no line `{line}`\n")


def test_licence_further_down_is_not_seen(tree):
    (tree / "tests/e2e/a.py").write_text(f'"""What it is for."""\n# {LICENCE}\n', encoding="utf-8")
    assert check(tree)[0] == 1


def test_type_that_two_files_of_a_program_define_is_named(tree):
    text = f"/* {LICENCE} */\nstruct {{name}} {{{{\n  int member;\n}}}};\n"
    for folder, name in (("demo", "one"), ("src", "two"), ("watch", "one")):
        (tree / folder).mkdir(exist_ok=True)
        (tree / folder / "b.cpp").write_text(text.format(name=name), encoding="utf-8")
    assert check(tree) == (1, "watch/b.cpp:2: one is a type of demo/b.cpp, too\n")
