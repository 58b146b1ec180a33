# SPDX-License-Identifier: Apache-2.0
"""Every block of commands in the documents, marked `sh`, does what a reader would have it do.

The blocks of a page run one after the other in a copy of the tree, as a newcomer has it, who builds from scratch; names
that stand for the reader's own are replaced by ones that exist. A demo client that shows its menu gets SIGTERM, so does the
live picture, which has a terminal; one that only serves is ended after some seconds. A tool that takes minutes says only
that it knows its options. A block marked `sh long` takes minutes, too, and one marked `sh elsewhere` needs a root of its
own: test_packages.py has it.
"""
import os
import re
import shlex
import signal
import subprocess
import threading
import time
import urllib.request

import pytest

import watching
from builds import copy_tree, make_sdk
from lyn import AUTO_DONE, BUILD, PROMPT, ROOT, without_rights

# One worker has the tree, in which all is built once.
pytestmark = [pytest.mark.skipif(BUILD.name != "release", reason="the documents show the release build"),
              pytest.mark.xdist_group("newcomer")]

PAGES = sorted(path for path in [*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md")])
BLOCK = re.compile(r"(?ms)^```sh( long| elsewhere)?\n(.*?)^```$")
HELP_ONLY = re.compile(r"(?m)^((?:\w+=\S+ )*)(tools/(?:test|fleet|cross-test|bench|coverage|mutants|soak|package|release))\b(.*)$")
PICTURE = re.compile(r"(?m)^((?:\w+=\S+ )*(?:tools/watch|(?:build/release/)?lyn_watch)\b(?!.*(?:--json|--serve|--help))[^#\n]*)")
SERVER = re.compile(r"(?m)^(build/release/lyn_watch --serve [^&#\n]*)(#.*)?$")
PICTURE_BEGINS = b"\x1b[?1049h"
CALLER = (ROOT / "examples/signal.c").read_text(encoding="utf-8")


def blocks(page):
    wanted = ("", " long") if os.environ.get("LYN_LONG") else ("",)
    return [text for mark, text in BLOCK.findall(page.read_text(encoding="utf-8")) if mark in wanted]


def knows_its_options(match):
    """Instead of a command that takes minutes: does its help name the options?"""
    _, tool, rest = match.groups()
    options = re.findall(r"(?<!\S)--[\w-]+", rest.split("#")[0])
    tests = [f"{tool} --help | grep -e '{option}' >/dev/null" for option in options]
    return " && ".join([f"{tool} --help >/dev/null", *tests])


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """As a newcomer has it."""
    top = tmp_path_factory.mktemp("newcomer")
    copy_tree(top / "lyn")
    (top / "test.cfg").write_text("1\n7 1\n2\n", encoding="utf-8")
    (top / "lyn/caller.c").write_text(CALLER, encoding="utf-8")
    return top / "lyn"


def replaced(text, top):
    sdk = top / "sdk"
    if "/path/to/sdk" in text and not sdk.exists():
        make_sdk(sdk)
    for name, real in {"/opt/lyn": top / "opt", "/path/to/sdk": sdk, "FILE.cfg": top / "test.cfg", "NAME 600": "ind 5",
                       "--merge NAME": "--merge ind"}.items():
        text = text.replace(name, str(real))
    text = SERVER.sub(r"timeout --preserve-status 3 \1", text)
    text = PICTURE.sub(lambda command: f"script -qec {shlex.quote(command[1])} /dev/null ", text)
    return HELP_ONLY.sub(knows_its_options, text)


def end_clients(*which):
    """SIGTERM to clients, after they have shown what they have."""
    time.sleep(0.5)
    subprocess.run(["pkill", "-TERM", *which], check=False)


def run_block(text, tree):
    """Run a block as a newcomer's shell would; at each prompt of the menu, and when the picture is up, the client is ended."""
    env = {name: value for name, value in os.environ.items() if not name.startswith("LYN_")} | {"TERM": "xterm"}
    output = b""
    with subprocess.Popen(["bash", "-euo", "pipefail", "-c", text], cwd=tree, env=env, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True) as shell:
        late = threading.Timer(600, os.killpg, (shell.pid, signal.SIGKILL))
        late.start()
        try:
            while part := os.read(shell.stdout.fileno(), 65536):
                output += part
                if output.endswith(PROMPT.encode()):
                    end_clients("-s", str(shell.pid), "-x", "lyn_demo")
                if PICTURE_BEGINS in part:  # its terminal is a session of its own
                    end_clients("-f", f"^({tree}/)?build/release/lyn_watch")
            status = shell.wait(timeout=60)
        finally:
            late.cancel()
            if shell.poll() is None:
                os.killpg(shell.pid, signal.SIGKILL)
    assert status == 0, f"{text}\n{output.decode('utf-8', 'backslashreplace')[-8000:]}"
    return output


def test_every_command_of_the_documents_works(tree):
    """In one test, since they build in one folder."""
    ran = 0
    for page in PAGES:
        for text in blocks(page):
            run_block(replaced(text, tree.parent), tree)
            ran += 1
    assert ran >= 5


def test_demo_runs_a_file_where_bubblewrap_is_refused(tree, tmp_path):
    file = tmp_path / "test.cfg"
    file.write_text("1\n7 1\n2\n", encoding="utf-8")
    done = subprocess.run([tree / "tools/demo", file], env=without_rights(tmp_path), stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "bwrap" not in done.stderr, done.stderr
    assert "[Registration Status] - 6\n" in done.stdout and done.stdout.endswith(AUTO_DONE)


def test_watch_shows_a_drive_live(tree, tmp_path):
    """As a newcomer types it, in a terminal: what the first rows of the drive measure, one after the other."""
    watch = watching.Watch(tmp_path)
    watch.program = [tree / "tools/watch"]
    with watch.screen(env={"LYN_SIM_SCENARIO": None}, timeout=120) as screen:
        rows = (ROOT / "scenarios/motorway_drive.csv").read_text(encoding="utf-8").splitlines()[2:5]
        for row in rows:
            screen.wait_for(f"RSRP {float(row.split(',')[7]):9.0f} dBm")
        address = re.search(r"http://\S+/", screen.line(-1))[0]
        with urllib.request.urlopen(address, timeout=10) as page:
            assert "text/html" in page.headers["Content-Type"]
        screen.press("q")
        assert screen.wait() == 0
