# SPDX-License-Identifier: Apache-2.0
"""What is made from ox_lyn.h is what the header says: every name, number, member and status."""
import dataclasses
import enum
import inspect
import re

import pytest
from conftest import ROOT

lyn = pytest.importorskip("lyn", reason="the package is built in the release preset only")
ffi = lyn.records.ffi

HEADER = (ROOT / "inc/ox_lyn.h").read_text(encoding="utf-8")
TYPES = ffi.list_types()[0]
ENUMS = [kind for _, kind in inspect.getmembers(lyn.header, inspect.isclass)
         if issubclass(kind, enum.IntEnum | enum.IntFlag) and kind.__module__ == "lyn.header"]
BLOCKS = [kind for _, kind in inspect.getmembers(lyn.header, dataclasses.is_dataclass)]
ANONYMOUS = {lyn.LteNbrInfoServing: (lyn.LteNbrInfo, "serving")}
# The blocks that Python could write: not the delivered one that leads to another.
WRITTEN = [kind for kind in BLOCKS if kind not in ANONYMOUS and kind is not lyn.LocBatch]


def ctype_of(kind):
    if kind in ANONYMOUS:
        parent, member = ANONYMOUS[kind]
        return dict(ctype_of(parent).fields)[member].type
    return ffi.typeof(kind._ctype)


def test_every_type_of_the_header_has_its_class():
    declared = set(re.findall(r"^\}? ?(?:typedef enum .*\} )?(ox_lyn_\w+_[et]);", HEADER, re.M))
    assert declared - {"ox_lyn_hndl_t"} == {name for name in TYPES if name.endswith(("_e", "_t"))} - {"ox_lyn_hndl_t"}
    assert len(ENUMS) == sum(name.endswith("_e") for name in declared)
    records = {"ox_lyn_dm_info_t", "ox_lyn_dm_ctrl_info_t", "ox_lyn_dm_ind_info_t"}
    assert {kind._ctype for kind in BLOCKS if kind not in ANONYMOUS} == {
        name for name in declared if name.endswith("_t")} - records


def test_every_enumerator_is_a_member_by_the_end_of_its_name():
    numbers = {name: int(number, 0) for name, number in re.findall(r"(OX_LYN_\w+) = (-?\w+)[,\s]", HEADER)
               if re.fullmatch(r"-?(0x)?[0-9A-F]+", number) and not name.endswith(("_LEN", "_COUNT"))}
    members = [(member, kind) for kind in ENUMS for member in kind]
    assert len(members) == len(numbers)
    for member, kind in members:
        fitting = [name for name, number in numbers.items() if number == member
                   and name.removesuffix("_E").endswith(member.name)]
        assert fitting, (kind, member)


@pytest.mark.parametrize("name, member", [
    ("OX_LYN_GET_LTE_SERV_RSRP_E", lyn.Metric.LTE_SERV_RSRP), ("OX_LYN_SET_INSTALL_MODE_E", lyn.Control.INSTALL_MODE),
    ("OX_LYN_IND_QOS_FLOW_E", lyn.Indication.QOS_FLOW), ("OX_LYN_ASYNC_LOC_BATCH_E", lyn.Async.LOC_BATCH),
    ("OX_LYN_ERR_BUSY", lyn.Status.ERR_BUSY), ("OX_LYN_SCS_15_KHZ_E", lyn.Scs.SCS_15_KHZ),
    ("OX_LYN_LOC_FLAG_SPEED_E", lyn.LocFlag.SPEED), ("OX_LYN_INSTALL_MODE_STOP_E", lyn.InstallAction.STOP),
], ids=str)
def test_names_follow_the_rule(name, member):
    assert int(member) == getattr(lyn.records.lib, name)


@pytest.mark.parametrize("kind", BLOCKS, ids=lambda kind: kind.__name__)
def test_dataclass_has_the_members_of_its_block_in_their_order(kind):
    ctype = ctype_of(kind)
    fields = [field.name for field in dataclasses.fields(kind)]
    counters = set(kind._lengths.values())
    expected = [(field.offset, name) for name, field in ctype.fields
                if name not in counters and not name.startswith("reserved")]
    assert fields == [name for _, name in expected] == [name for _, name in sorted(expected)]
    assert set(kind._lengths) <= set(fields) and counters <= dict(ctype.fields).keys()


def example(kind, ctype):
    """A block with a value other than its default in every member; lists have two elements, or as many as they must."""
    return kind(**{name: example_member(kind, name, field.type) for name, field in ctype.fields
                   if name in {field.name for field in dataclasses.fields(kind)}})


def example_member(kind, name, ctype):
    of = kind._kinds.get(name)
    if ctype.kind == "array" and ctype.item.cname == "char":
        return "abc"
    if ctype.kind == "array":
        each = example_member(kind, name, ctype.item)
        if ctype.item.cname == "uint8_t" and name not in kind._lengths:
            return bytes([each]) * ctype.length
        return [each] * (2 if name in kind._lengths else ctype.length)
    if ctype.kind == "struct":
        return example(of, ctype)
    return list(of)[-1] if of else 1


@pytest.mark.parametrize("kind", WRITTEN, ids=lambda kind: kind.__name__)
def test_block_comes_back_from_c_as_it_was_written(kind):
    written = example(kind, ctype_of(kind))
    block = lyn.records.write(kind, written)
    assert lyn.records.read(kind, block) == written


@pytest.mark.parametrize("kind", WRITTEN, ids=lambda kind: kind.__name__)
def test_members_that_are_left_out_are_zero_in_c(kind):
    block = lyn.records.write(kind, kind())
    assert bytes(ffi.buffer(block)) == bytes(ffi.sizeof(kind._ctype))


def test_layout_is_the_one_that_the_header_asserts():
    sizes = re.findall(r"OX_LYN_ASSERT_SIZE\((ox_lyn_\w+), (\d+)\)", HEADER)
    offsets = re.findall(r"OX_LYN_ASSERT_OFFSET\((ox_lyn_\w+), (\w+), (\d+)\)", HEADER)
    assert {name for name, _ in sizes} == {name for name in TYPES if ffi.typeof(name).kind == "struct"} and offsets
    assert [(name, str(ffi.sizeof(name))) for name, _ in sizes] == sizes
    assert [(name, member, str(ffi.offsetof(name, member))) for name, member, _ in offsets] == offsets


def test_version_is_the_headers():
    assert lyn.__version__ == ".".join(re.findall(r"#define OX_LYN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", HEADER))


def test_what_the_header_says_is_documentation():
    assert lyn.LteCellLock.__doc__.startswith("LTE cell lock list, control 3 and metric 33.")
    assert lyn.Busy.__doc__ == "a request of the same kind is still ongoing"
    for kind in ENUMS + BLOCKS:
        assert kind.__doc__ and "*/" not in kind.__doc__


def test_member_equals_its_number_and_no_member_of_another_enumeration():
    assert lyn.Metric.LTE_SERV_RSRP == 10 and hash(lyn.Metric.LTE_SERV_RSRP) == hash(10)
    assert lyn.Control.LOC_SINGLE_SHOT_STOP != lyn.Async.LTE_NBR_INFO
    assert not lyn.Control.LOC_SINGLE_SHOT_STOP == lyn.Async.LTE_NBR_INFO
