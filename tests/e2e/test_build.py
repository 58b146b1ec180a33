# SPDX-License-Identifier: Apache-2.0
"""How the tree is configured against the board's SDK in place of the simulated board."""
import os
import re
import subprocess

import pytest

from builds import configure, configure_sdk, make_sdk, run
from lyn import BUILD, ROOT

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="builds plain trees of its own, with the plain board")


def short_names(listed):
    """Of what nm -C lists, without parameters, qualification and what the compiler adds."""
    return {re.split(r"[(\[@]", name)[0].split("::")[-1] for name in re.findall(r"(?m)^[0-9a-f ]+ \w (.*)$", listed)}


def undefined(library):
    return short_names(run("nm", "-C", "--undefined-only", library))


def operations():
    """Those that docs/porting.md lists, by library."""
    text = (ROOT / "docs/porting.md").read_text(encoding="utf-8")
    parts = re.findall(r"(?ms)`lib/lib(\w+)\.so`\*\*$.*?^- operations: (.*?)^-", text)
    return {library: set(re.findall(r"`(\w+)`", names)) for library, names in parts}


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


def test_the_board_allocates_in_no_way_that_the_allocation_tests_take_over():
    """They make the allocations of the module and its clients fail, and have to leave the board's alone."""
    listed = run("nm", "--undefined-only", BUILD / "platform/sim/liblyn_sim.a").split()
    assert "_Znwm" in listed  # the plain operator new, which nothing takes over
    assert not {"malloc", "calloc", "_ZnwmRKSt9nothrow_t"} & set(listed)


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


def test_each_library_of_the_sdk_has_the_symbols_that_are_its_own(sdk):
    """What docs/porting.md lists, which is what the module needs."""
    needed = undefined(BUILD / "src/liblyn.a")
    declared = set(re.findall(r"\b(\w+)\(", "".join(path.read_text(encoding="utf-8") for path in sdk.glob("include/*.h"))))
    listed = operations()
    assert {name for names in listed.values() for name in names} == needed & declared
    for library, names in listed.items():
        defined = short_names(run("nm", "-DC", "--defined-only", sdk / f"lib/lib{library}.so"))
        assert names <= defined, library


def test_texts_that_porting_looks_for_are_those_of_the_program():
    page = (ROOT / "docs/porting.md").read_text(encoding="utf-8").split("| you see |")[1]
    sources = "".join(path.read_text(encoding="utf-8") for top in ("src", "demo") for path in (ROOT / top).glob("*.cpp"))
    quoted = [text for row in re.findall(r"(?m)^\| (.*?) \|", page) for text in re.findall(r"`([^`]+ [^`]+)`", row)]
    assert len(quoted) >= 8
    expected = [text.replace("lyn_gps_init: ", "%s: ").replace("is 0", "is %d") for text in quoted]
    assert [text for text in expected if text not in sources] == []
