# SPDX-License-Identifier: Apache-2.0
"""How the tree is configured against the board's SDK in place of the simulated board."""
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


@pytest.mark.parametrize("wanted", [True, False])
def test_line_editor_can_be_left_out(tmp_path, wanted):
    status, output = configure(tmp_path, *([] if wanted else ["-DLYN_LIBEDIT=OFF"]))
    assert status == 0, output
    for name in ("lyn_demo", "lyn_demo_shared"):
        link = (tmp_path / f"demo/CMakeFiles/{name}.dir/link.txt").read_text(encoding="utf-8")
        assert ("libedit" in link) == wanted


def test_complete_sdk_is_accepted(tmp_path, sdk):
    status, output = configure_sdk(tmp_path / "build", sdk)
    assert status == 0, output
