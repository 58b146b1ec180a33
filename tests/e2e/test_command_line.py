# SPDX-License-Identifier: Apache-2.0
"""The demo client's command line: help, version, and a file that is named in the automatic test file's place."""
import os
import socket
import subprocess

import pytest

from builds import VERSION
from lyn import AUTO_DONE, BANNER, BUILD, DATA, EMULATOR, ROOT, SCALE, Session

DEMO = BUILD / "lyn_demo"


def run(*words, stdin=b""):
    """Status, output and errors."""
    env = {**os.environ, "LYN_SIM_SCENARIO": str(DATA / "drive.toml")}
    done = subprocess.run([*EMULATOR, DEMO, *words], cwd=ROOT, env=env, input=stdin, capture_output=True, check=False,
                          timeout=20 * SCALE)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


@pytest.fixture
def lines(tmp_path):
    path = tmp_path / "lines.cfg"
    path.write_text("# register and read\n1\n7 47\n11\n2\n", encoding="utf-8")
    return path


def test_help_and_version_go_to_standard_output():
    status, text, errors = run("--help")
    assert (status, errors) == (0, "")
    assert text.startswith("usage: lyn_demo [--help | --version] [--] [FILE]\n")
    assert run("--version") == (0, f"lyn_demo {VERSION}\n", "")


@pytest.mark.parametrize("words, named", [
    (["--no-such-option"], "--no-such-option"), (["-x"], "x"), (["--help=me"], "--help"), (["one", "two"], "two"),
    (["no-such-file"], "no-such-file: No such file or directory"), (["--", "--help"], "--help: No such file or directory"),
    ([str(DATA)], f"{DATA}: Is a directory"),
], ids=["unknown", "unknown_letter", "value", "two_files", "missing_file", "missing_file_behind_dashes", "folder"])
def test_unusable_command_line_is_one_line_on_standard_error_and_status_2(words, named):
    status, text, errors = run(*words)
    assert (status, text) == (2, "")
    assert named in errors
    assert errors.count("\n") == 1 and errors.endswith("\n")


def test_file_that_cannot_be_opened_is_one_line_on_standard_error_and_status_2(tmp_path):
    path = tmp_path / "socket"
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(path))
        assert run(path) == (2, "", f"lyn_demo: {path}: No such device or address\n")


@pytest.mark.parametrize("dashes", [[], ["--"]], ids=["", "behind_dashes"])
def test_named_file_prints_what_the_automatic_test_file_prints(demo, lines, dashes):
    """Its questions are answered from standard input, too."""
    answers = b"4\n192.0.2.1\n"
    scenario = (DATA / "drive.toml").read_text(encoding="utf-8").replace("drive.csv", str(DATA / "drive.csv"))
    wanted = demo.auto(lines.read_bytes(), scenario=scenario, stdin=answers)
    assert wanted.console.endswith(AUTO_DONE) and "Please Enter V4 Address Value =>" in wanted.console
    assert run(*dashes, lines, stdin=answers) == (0, wanted.console, "")


@pytest.mark.fixed_path
def test_named_file_goes_before_the_automatic_test_file(demo, lines):
    lines.write_text("12\n", encoding="utf-8")
    demo.program = [DEMO, lines]
    console = demo.auto(["13"]).console
    assert "Option ID[12]" in console and "Option ID[13]" not in console


def test_without_arguments_the_fixed_file_is_looked_for(demo):
    with Session(demo.launch(), 1 << 20, 20) as session:
        session.wait_for(BANNER)
        session.wait_for("Option > ")
        assert session.terminate() == 0


@pytest.mark.skipif(BUILD.name != "release", reason="tools/demo builds the release")
def test_tools_demo_runs_a_named_file_without_bubblewrap(lines, tmp_path):
    lines.write_text("12\n", encoding="utf-8")
    refused = tmp_path / "bin" / "bwrap"
    refused.parent.mkdir()
    refused.write_text("#!/bin/sh\necho 'bwrap: No permissions to create new namespace' >&2\nexit 1\n", encoding="utf-8")
    refused.chmod(0o755)
    env = {**os.environ, "PATH": f"{refused.parent}:{os.environ['PATH']}"}
    done = subprocess.run([ROOT / "tools/demo", lines.name], cwd=tmp_path, env=env, capture_output=True, text=True,
                          check=False, timeout=600)
    assert (done.returncode, done.stderr) == (0, "")
    assert "Option ID[12] NOT SUPPORTED." in done.stdout and done.stdout.endswith(AUTO_DONE)
