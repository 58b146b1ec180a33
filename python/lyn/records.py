# SPDX-License-Identifier: Apache-2.0
"""How values cross between Python and C: blocks become dataclasses and back, and two tables say what each metric and
control takes and gives, and each event brings. What the header's comments say in words, and nothing of C's does, stands
in these tables only.
"""
import dataclasses
import functools
from collections.abc import Callable

from . import header
from ._ox_lyn import ffi, lib
from .header import Async, Control, Indication, Metric

# Blocks


def named(kind, number):
    """A number as a member of an enumeration, where C may hold a negative one in an unsigned word; else as it is."""
    for each in (number, number - (1 << 32)):
        try:
            return kind(each)
        except ValueError:
            pass
    return number


def read(kind, block):
    """The dataclass of a C block."""
    return kind(**{field.name: _member(kind, block, field.name) for field in dataclasses.fields(kind)})


def _member(kind, block, name):
    value, of, counter = getattr(block, name), kind._kinds.get(name), kind._lengths.get(name)
    if not isinstance(value, ffi.CData) or ffi.typeof(value).kind == "struct":
        return _single(value, of)
    item = ffi.typeof(value).item.cname
    if item == "char":
        return ffi.string(value).decode("utf-8", "backslashreplace")
    if counter:
        return [_single(each, of) for each in value[0:getattr(block, counter)]]
    if item == "uint8_t":
        return bytes(value)
    # A list that nothing counts is packed, and ends with the first member that is not there.
    return [each for each in (_single(each, of) for each in value) if getattr(each, "present", True)]


def _single(value, of):
    if isinstance(value, ffi.CData):
        return read(of, value)
    return named(of, value) if of else value


def write(kind, value):
    """A new C block with what a dataclass holds."""
    if not isinstance(value, kind):
        raise TypeError(f"a {kind.__name__} is needed, not {value!r}")
    try:
        return ffi.new(f"{kind._ctype} *", _plain(value))
    except (OverflowError, IndexError) as error:
        raise ValueError(f"{kind.__name__}: {error}") from None


def _plain(value):
    """What cffi initialises a member with."""
    if isinstance(value, str):
        return value.encode() + b"\0"
    if isinstance(value, (list, tuple)):
        return [_plain(each) for each in value]
    if not dataclasses.is_dataclass(value):
        return value
    members = {field.name: _plain(getattr(value, field.name)) for field in dataclasses.fields(value)}
    return members | {counter: len(members[name]) for name, counter in value._lengths.items()}


# Metrics and controls


def _number(kind, info):
    return named(kind, info.value.i64)


def _octets(_, info):
    return bytes(info.value.i64_array[0:info.count])


def _numbers(kind, info):
    return [named(kind, each) for each in info.value.i64_array[0:info.count]]


def _later(*_):
    """Answered through the events."""


def _pointed_at(kind, info):
    return ffi.cast(f"{kind._ctype} *", info.value.ptr)


def _block(kind, info):
    return read(kind, _pointed_at(kind, info)) if info.value.ptr else None


def _profiles(kind, info):
    """Of a lone profile the module gives the index, and counts 0 profiles."""
    found, lone = _block(kind, info), _pointed_at(kind, info).profiles[0].profile_index
    if not found.profiles and lone:
        found.profiles = [header.WwanProfile(profile_index=lone)]
    return found


@dataclasses.dataclass(frozen=True)
class Row:
    """How a metric's answer is read, and as what; what the metric takes; whose block the answer stands in."""

    reads: Callable = _number
    kind: type = int
    takes: type | None = None
    ours: bool = False  # handed in for the module to fill
    theirs: bool = False  # handed out by the module, and freed by us


_OURS = functools.partial(Row, _block, ours=True)
_THEIRS = functools.partial(Row, _block, theirs=True)

METRICS = dict.fromkeys(Metric, Row()) | {
    Metric.REG_STATUS: Row(kind=header.RegStatus),
    Metric.LTE_SERV_PLMN: Row(_octets),
    Metric.NR5G_SERV_PLMN: Row(_octets),
    Metric.LTE_SERV_CQI: _OURS(header.LteCqi),
    Metric.NR5G_SERV_CQI: _OURS(header.Nr5gCqi),
    Metric.NR5G_SERV_TAC: Row(_octets),
    **{metric: Row(_later) for metric in Metric if "_NBR_" in metric.name},
    Metric.LTE_CELL_LOCK_LIST: _OURS(header.LteCellLock),
    Metric.NR5G_CELL_LOCK_LIST: _OURS(header.Nr5gCellLock),
    Metric.LTE_MCS: _THEIRS(header.Mcs),
    Metric.NR5G_MCS: _THEIRS(header.Mcs),
    Metric.LTE_CA_STATS: Row(kind=header.CaBandwidth),
    Metric.LTE_ENDC_MODE: _THEIRS(header.EndcMode),
    Metric.LTE_RRC_STATE: Row(kind=header.RrcState),
    Metric.NR5G_RRC_STATE: Row(kind=header.RrcState),
    Metric.NR5G_SCS: Row(kind=header.Scs),
    Metric.LTE_RF_BANDWIDTH: Row(_numbers, header.RfBandwidth),
    Metric.NR5G_RF_BANDWIDTH: Row(_numbers, header.RfBandwidth),
    Metric.WWAN_PROFILE_INDEX: Row(_profiles, header.WwanProfileList, theirs=True),
    Metric.IPV4_STATS: _THEIRS(header.WwanStats, int),
    Metric.IPV6_STATS: _THEIRS(header.WwanStats, int),
    Metric.MTPE_SERVER_CONFIG: _THEIRS(header.MtpeServerConfig, header.MtpeNetParams),
    Metric.MTPE_LTE_INFO: Row(_later, takes=header.MtpeReq),
    Metric.MTPE_NR5G_INFO: Row(_later, takes=header.MtpeReq),
    Metric.LOC_SINGLE_SHOT: Row(_later, takes=header.LocSingleShotReq),
    Metric.LOC_ROUTINE_BATCHING: Row(_later, takes=header.LocBatchingReq),
    Metric.IPV4_QOS_TFT: Row(_later),
    Metric.IPV6_QOS_TFT: Row(_later),
}

CONTROLS = dict.fromkeys(Control) | {
    Control.LTE_CELL_LOCK_LIST: header.LteCellLock,
    Control.NR5G_CELL_LOCK_LIST: header.Nr5gCellLock,
    Control.NR5G_DEPRIORITIZE: int,
    Control.MMW_PPS_CONFIG: header.PpsConfig,
    Control.MMW_PPS_CHANGE_STATUS: header.PpsChangeStatus,
    Control.INSTALL_MODE: header.InstallMode,
}


def _hand_in(record, number, takes, value, what):
    """Put a value into a record, a number as the union's member of that name; returns the block that has to outlive the
    call.
    """
    block = None
    try:
        if takes is int:
            setattr(record.value, number, value)
        elif takes:
            block = record.value.ptr = write(takes, value)
        elif value is not None:
            raise TypeError(f"takes no value, not {value!r}")
    except TypeError as error:
        raise TypeError(f"{what}: {error}") from None
    except (OverflowError, ValueError) as error:
        raise ValueError(f"{what}: {error}") from None
    return block


class Question:
    """A metric in the record that asks for it and is answered in."""

    def __init__(self, info, metric, argument=None):
        self.info, self.row = info, METRICS[metric]
        info.record_type, info.metric = header.RecordType.GET, metric
        self.block = _hand_in(info, "u32", self.row.takes, argument, metric.name)
        if self.row.ours:
            self.block = info.value.ptr = ffi.new(f"{self.row.kind._ctype} *")
        self.handed_in = info.value.i64

    def answer(self):
        return self.row.reads(self.row.kind, self.info)

    def release(self):
        """Free the block that the module has handed out, which it may have in a failed call, too."""
        if self.row.theirs and self.info.value.i64 != self.handed_in:
            lib.free(self.info.value.ptr)


def order(control, value):
    """A control's record, and the block that has to outlive the call."""
    record = ffi.new("ox_lyn_dm_ctrl_info_t *", {"control": control})
    return record, _hand_in(record, "u8", CONTROLS[control], value, control.name)


# Events


@dataclasses.dataclass(frozen=True)
class Event:
    """Something that the module told: an indication, or the answer to a metric that is answered later. `value` is a
    number, a member of an enumeration, a block, or None where a scan failed.
    """

    kind: Indication | Async
    value: object


EVENTS = {
    Indication.MODEM_STATUS: header.ModemStatus,
    Indication.REG_STATUS: header.RegStatus,
    Indication.MTPE_STATUS: header.MtpeStatus,
    Indication.QOS_FLOW: header.QosFlow,
    Indication.PPS_CHANGE: header.PpsInd,
    Indication.INSTALL_MODE_FREQ_INFO: header.InstallFreqList,
    Async.LTE_NBR_INFO: header.LteNbrInfo,
    Async.NR5G_NBR_INFO: header.Nr5gNbrInfo,
    Async.LOC_SINGLE_SHOT: header.LocSingleShot,
    Async.LOC_BATCH: header.LocBatch,
}


def take_event(info):
    """The event of a delivered record. Record and blocks are ours, and freed with the names that hold them here."""
    info = ffi.gc(info, lib.free)
    kind = named(Indication if info.record_type == header.RecordType.IND else Async, info.metric)
    of = EVENTS.get(kind, int)
    if not dataclasses.is_dataclass(of):
        return Event(kind, named(of, info.value.i64))
    if not info.value.ptr:
        return Event(kind, None)
    block = ffi.gc(_pointed_at(of, info), lib.free)
    locations = ffi.gc(block.locations, lib.free) if of is header.LocBatch else None  # noqa: F841
    return Event(kind, read(of, block))
