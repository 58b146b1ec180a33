# SPDX-License-Identifier: Apache-2.0
"""How the tree is configured against the board's SDK in place of the simulated board."""
import os
import subprocess

import pytest

from builds import configure, configure_sdk, make_sdk
from lyn import BUILD

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="builds plain trees of its own, with the plain board")


@pytest.fixture
def sdk(tmp_path):
    return make_sdk(tmp_path / "sdk")


def test_the_module_waits_on_no_clock_and_never_polls():
    """A clock that is set does not matter, and a caller of the highest priority keeps nobody from running."""
    listed = subprocess.run(["nm", "--undefined-only", str(BUILD / "src/liblyn.a")], check=True, capture_output=True,
                            text=True)
    called = {line.split()[-1].split("@")[0] for line in listed.stdout.splitlines() if " U " in line}
    assert "pthread_cond_wait" in called
    assert not {name for name in called if any(word in name for word in ("timed", "clock", "sleep", "yield", "poll"))}


def test_sdk_build_asks_for_the_sdk(tmp_path):
    status, output = configure(tmp_path / "build", "-DLYN_PLATFORM=sdk")
    assert status != 0
    assert "LYN_PLATFORM=sdk needs -DLYN_SDK_DIR=DIR" in " ".join(output.split())


def test_sdk_that_is_no_folder_is_named(tmp_path):
    status, output = configure_sdk(tmp_path / "build", tmp_path / "nowhere")
    assert status != 0
    assert f"LYN_SDK_DIR={tmp_path}/nowhere is no folder" in " ".join(output.split())


def test_sdk_build_names_every_piece_that_is_missing(tmp_path, sdk):
    (sdk / "include/yrp_client.h").unlink()
    (sdk / "lib/libyrp_nas.so").unlink()
    (sdk / "lib/libdiag.so").unlink()
    status, output = configure_sdk(tmp_path / "build", sdk)
    assert status != 0
    assert f"The board's SDK in '{sdk}' lacks:" in " ".join(output.split())
    missing = [word for word in output.split() if word.startswith(("include/", "lib/"))]
    assert missing == ["include/yrp_client.h", "lib/libdiag.so", "lib/libyrp_nas.so"]


def test_platform_that_is_neither_is_refused(tmp_path):
    status, output = configure(tmp_path / "build", "-DLYN_PLATFORM=board")
    assert status != 0
    assert "LYN_PLATFORM is 'sim' or 'sdk', not 'board'" in " ".join(output.split())


def test_complete_sdk_is_accepted(tmp_path, sdk):
    status, output = configure_sdk(tmp_path / "build", sdk)
    assert status == 0, output


def test_another_sdk_takes_the_place_of_the_first(tmp_path, sdk):
    assert configure_sdk(tmp_path / "build", sdk)[0] == 0
    (tmp_path / "newer").mkdir()
    newer = sdk.rename(tmp_path / "newer/sdk")
    assert configure_sdk(tmp_path / "build", newer)[0] == 0
    link = (tmp_path / "build/demo/CMakeFiles/lyn_demo.dir/link.txt").read_text(encoding="utf-8")
    assert f"{newer}/lib/libyrp_cci.so" in link and f"{sdk}/lib" not in link


def test_declaration_that_the_sdk_lacks_is_named_where_it_is_used(tmp_path, sdk):
    header = sdk / "include/oxmap_client.h"
    text = header.read_text(encoding="utf-8")
    header.write_text(text.replace("bool GetWWANPolicyListEx(", "bool GetWWANPolicyList("), encoding="utf-8")
    assert configure_sdk(tmp_path / "build", sdk)[0] == 0
    source = "lyn_oxmap_interface.cpp"
    made = subprocess.run(["make", "-C", str(tmp_path / "build/src"), f"{source}.o"], capture_output=True, text=True,
                          check=False, env={**os.environ, "LC_ALL": "C"})
    assert made.returncode != 0
    errors = [line for line in made.stderr.splitlines() if " error: " in line]
    assert len(errors) == 1 and f"src/{source}:" in errors[0] and "GetWWANPolicyListEx" in errors[0]
