# SPDX-License-Identifier: Apache-2.0
"""tools/abi, on a copy of what it looks at whose public header is changed, with the compiler for each processor."""
import os
import shutil
import subprocess

import pytest

from lyn import BUILD, ROOT

COMPILERS = {"release": "cc", "arm64": "aarch64-linux-gnu-gcc"}
pytestmark = pytest.mark.skipif(BUILD.name not in COMPILERS, reason="once for each processor is enough")

CHANGES = {
    "operation_added": ("int32_t ox_lyn_deinit(", "int32_t ox_lyn_more(void);\nint32_t ox_lyn_deinit(", "ox_lyn_more"),
    "operation_renamed": ("int32_t ox_lyn_deinit(", "int32_t ox_lyn_end(", "ox_lyn_deinit"),
    "parameter_widened": ("uint32_t user_data, ox_lyn_user_cb_fn", "uint64_t user_data, ox_lyn_user_cb_fn", "uint64_t"),
    "members_swapped_in_a_block_behind_a_pointer": ("uint32_t pkts_rx; ", "uint32_t pkts_lost; ",
                                                    "ox_lyn_wwan_stats_t"),
    "value_of_an_enumeration": ("OX_LYN_MODEM_DOWN_E = 8", "OX_LYN_MODEM_DOWN_E = 7", "OX_LYN_MODEM_DOWN_E"),
}


@pytest.fixture
def tree(tmp_path):
    for name in ("abi", "inc/ox_lyn.h", "src/liblyn.map", "tools/abi"):
        target = tmp_path / name
        target.parent.mkdir(exist_ok=True)
        (shutil.copytree if (ROOT / name).is_dir() else shutil.copy)(ROOT / name, target)
    return tmp_path


def abi(tree, *arguments):
    return subprocess.run([str(tree / "tools/abi"), *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, env=os.environ | {"CC": COMPILERS[BUILD.name]})


def test_interface_is_the_recorded_one_wherever_the_tree_lies(tree):
    assert abi(tree).returncode == 0


@pytest.mark.skipif(BUILD.name != "release", reason="the record also has the system's own types, as wchar_t")
def test_recording_the_same_interface_again_changes_nothing(tree):
    recorded = (tree / "abi/liblyn.so.0.abi").read_bytes()
    assert abi(tree, "--update").returncode == 0
    assert (tree / "abi/liblyn.so.0.abi").read_bytes() == recorded


@pytest.mark.parametrize("change", CHANGES)
def test_change_of_the_interface_is_refused_until_it_is_recorded(tree, change):
    before, after, named = CHANGES[change]
    header = tree / "inc/ox_lyn.h"
    text = header.read_text(encoding="utf-8")
    assert text.count(before) == 1
    header.write_text(text.replace(before, after), encoding="utf-8")
    refused = abi(tree)
    assert refused.returncode != 0 and named in refused.stdout
    assert "run tools/abi --update and commit the record" in refused.stdout
    assert abi(tree, "--update").returncode == 0
    assert abi(tree).returncode == 0


def test_interface_without_a_record_is_refused(tree):
    (tree / "abi/liblyn.so.0.abi").unlink()
    refused = abi(tree)
    assert refused.returncode == 1 and "abi/liblyn.so.0.abi is missing" in refused.stdout
