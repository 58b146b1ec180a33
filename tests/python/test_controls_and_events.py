# SPDX-License-Identifier: Apache-2.0
"""What reaches the modem of every control, and every indication as it arrives."""
import pytest
from boards import BOTH_RADIOS, LTE_ALONE, NR5G_ALONE, NO_SERVICE

lyn = pytest.importorskip("lyn", reason="the package is built in the release preset only")

FREQUENCIES = [lyn.Nr5gFreq(2000000, 258, lyn.Scs.SCS_120_KHZ), lyn.Nr5gFreq(2000001, 260, lyn.Scs.SCS_60_KHZ)]
SENT = {"freq_list": [{"arfcn": 2000000, "band": 258, "scs": 3}, {"arfcn": 2000001, "band": 260, "scs": 2}]}


def requests(rows, number):
    """What the requests of one kind held, without the flags and lengths that the values tell by themselves."""
    found = [row["fields"] for row in rows if (row["lib"], row["dir"], row.get("id")) == ("nas", "request", number)]
    return [{name: value for name, value in fields.items() if not name.endswith(("_valid", "_len"))}
            for fields in found]


# Controls


@pytest.mark.board(LTE_ALONE)
def test_lte_lock_reaches_the_modem_and_is_read_back(journal):
    lock = lyn.LteCellLock([lyn.LteLockCell(1, 2), lyn.LteLockCell(503, 65535)], enforce=1)
    with lyn.open() as modem:
        modem.set(lyn.Control.LTE_CELL_LOCK_LIST, lock)
        assert modem.get(lyn.Metric.LTE_CELL_LOCK_LIST).cells == lock.cells
    assert requests(journal(), 216) == [
        {"lte_cell_list": [{"pci": 1, "freq": 2}, {"pci": 503, "freq": 65535}], "enforce": 1}]


@pytest.mark.board(NR5G_ALONE)
def test_nr5g_locks_reach_the_modem(journal):
    cell = lyn.Nr5gCellLock(lyn.LockType.CELL, pci=5, scs=lyn.Scs.SCS_30_KHZ, arfcn=636000, band_mask=[1, 0, 1 << 63])
    frequencies = [lyn.Nr5gLockArfcn(636000, lyn.Scs.SCS_15_KHZ), lyn.Nr5gLockArfcn(636001, lyn.Scs.SCS_30_KHZ)]
    with lyn.open() as modem:
        modem.set(lyn.Control.NR5G_CELL_LOCK_LIST, cell)
        modem.set(lyn.Control.NR5G_CELL_LOCK_LIST, lyn.Nr5gCellLock(lyn.LockType.ARFCN_LIST, arfcn_list=frequencies))
        modem.set(lyn.Control.NR5G_CELL_LOCK_LIST, lyn.Nr5gCellLock(lyn.LockType.UNLOCK))
    first, second, third = requests(journal(), 270)
    blocks = first["cell_identity"].pop("blocks")
    assert first["cell_identity"] == {"pci": 5, "scs": 1, "arfcn": 636000}
    assert sum(bin(int(octet)).count("1") for octet in flat(blocks)) == 2
    assert second["arfcn_list"] == [{"arfcn": 636000, "scs": 0}, {"arfcn": 636001, "scs": 1}]
    assert third == {"type": 2}


def flat(value):
    return [each for item in value for each in flat(item)] if isinstance(value, list) else [value]


@pytest.mark.board(BOTH_RADIOS)
def test_every_other_control_reaches_the_modem(journal):
    with lyn.open() as modem:
        modem.set(lyn.Control.NR5G_DEPRIORITIZE, 0)
        modem.set(lyn.Control.NR5G_DEPRIORITIZE, True)  # the board leaves NR 5G then, which the module may see first
        modem.set(lyn.Control.MMW_PPS_CONFIG, lyn.PpsConfig(3, 1, FREQUENCIES))
        modem.set(lyn.Control.MMW_PPS_CHANGE_STATUS, lyn.PpsChangeStatus(1, 3, lyn.PpsMode.MEASUREMENT))
        modem.set(lyn.Control.INSTALL_MODE, lyn.InstallMode(lyn.InstallAction.STOP, FREQUENCIES))
    rows = journal()
    assert requests(rows, 295) == [{"deprioritize": 0}, {"deprioritize": 1}]
    assert requests(rows, 277) == [{"position_index": 3, "pps_mode_enabled": 1} | SENT]
    assert len(requests(rows, 279)) == 1 and requests(rows, 279)[0]["pps_mode"] == 1
    assert requests(rows, 333) == [{"mode": requests(rows, 333)[0]["mode"]} | SENT]


@pytest.mark.board(BOTH_RADIOS.replace("fix_ms = 20", "fix_ms = -1"))
def test_location_requests_are_stopped(get_when_ready):
    with lyn.open() as modem:
        get_when_ready(modem, lyn.Metric.LOC_SINGLE_SHOT, lyn.LocSingleShotReq(60000, 5.0))
        modem.set(lyn.Control.LOC_SINGLE_SHOT_STOP)
        event = next(modem.events(timeout=20))
        assert (event.kind, event.value.kind) == (lyn.Async.LOC_SINGLE_SHOT, lyn.LocKind.STOP)
        modem.get(lyn.Metric.LOC_ROUTINE_BATCHING, lyn.LocBatchingReq(60000))
        modem.set(lyn.Control.LOC_ROUTINE_BATCHING_STOP)
        with pytest.raises(lyn.Failure):
            modem.set(lyn.Control.LOC_ROUTINE_BATCHING_STOP)


@pytest.mark.board(BOTH_RADIOS)
def test_control_outside_the_catalogue_is_not_supported():
    with lyn.open() as modem, pytest.raises(lyn.NotSupported, match="set INVALID"):
        modem.set(lyn.Control.INVALID)


# Indications

ALL_AT_ONCE = BOTH_RADIOS + """
[[at]]
after = "oxmap.ConfigureMTPE"
ms = 50
panel = { index = 9, changed = 1, mode = 1 }
install_status = 4
install_measurement = [{ arfcn = 2000000, band = 258, scs = 3, rsrp = -80, snr = 12 }, { scs = 99 }]
qos_flow = { bearer = 8, tx_5qi = 1, rx_5qi = 4 }
[[at]]
after = "oxmap.ConfigureMTPE"
ms = 100
sys_info = { lte = "service", nr5g_pci = -1 }
modem = "down"
[[at]]
after = "oxmap.ConfigureMTPE"
ms = 150
modem = "up"
"""
SUBSCRIBED = [lyn.Indication(number) for number in (1, 2, 3, 5, 7, 4, 6, 8)]


@pytest.mark.board(ALL_AT_ONCE)
def test_every_indication_arrives_as_what_it_is():
    expected = {
        lyn.Indication.MODEM_STATUS: lyn.ModemStatus.UP,
        lyn.Indication.REG_STATUS: lyn.RegStatus.LTE,
        lyn.Indication.LTE_RSRP: -95, lyn.Indication.LTE_RSRQ: -11, lyn.Indication.LTE_SINR: 130,
        lyn.Indication.NR5G_RSRP: -98, lyn.Indication.NR5G_RSRQ: -13, lyn.Indication.NR5G_SINR: -15,
        lyn.Indication.MTPE_STATUS: lyn.MtpeStatus(lyn.MtpeType.UPLINK, test_status=lyn.MtpeTestStatus.COMPLETED,
                                                   peak_rate=93001),
        lyn.Indication.QOS_FLOW: lyn.QosFlow(8, 1, 4),
        lyn.Indication.PPS_CHANGE: lyn.PpsInd(9, lyn.PpsMode.MEASUREMENT),
        lyn.Indication.INSTALL_MODE_STATUS: 4,
        lyn.Indication.INSTALL_MODE_FREQ_INFO: lyn.InstallFreqList(
            [lyn.InstallFreq(2000000, 258, lyn.Scs.SCS_120_KHZ, -80, 12), lyn.InstallFreq(scs=lyn.Scs.INVALID)]),
    }
    assert expected.keys() == set(lyn.Indication) - {lyn.Indication.INVALID}
    with lyn.open() as modem:
        for indication in SUBSCRIBED:
            modem.subscribe(indication)
        modem.get(lyn.Metric.MTPE_LTE_INFO, lyn.MtpeReq(test_type=lyn.MtpeType.UPLINK, duration=1))
        last = {}
        for event in modem.events(timeout=20):
            last[event.kind] = event.value
            if repr(last.get(lyn.Indication.MODEM_STATUS)) == repr(lyn.ModemStatus.UP) and len(last) == len(expected):
                break
    assert {kind: repr(last[kind]) for kind in expected} == {kind: repr(value) for kind, value in expected.items()}


@pytest.mark.board("[scan]\nstatus = 1\nanswer_ms = 1\n")
def test_failed_scan_is_an_event_without_a_block():
    with lyn.open() as modem:
        modem.get(lyn.Metric.LTE_NBR_PCI)
        assert next(modem.events(timeout=20)) == lyn.Event(lyn.Async.LTE_NBR_INFO, None)


@pytest.mark.board(BOTH_RADIOS)
def test_subscriptions_are_listed_in_the_modules_order(journal):
    with lyn.open() as modem:
        assert modem.subscriptions() == []
        for indication in reversed(SUBSCRIBED):
            modem.subscribe(indication, 7)
        assert modem.subscriptions() == SUBSCRIBED
        modem.unsubscribe(lyn.Indication.LTE_RSRP, lyn.Indication.NR5G_SINR, lyn.Indication.LTE_RSRP)
        assert modem.subscriptions() == [lyn.Indication(number) for number in (1, 2, 5, 7, 4, 6)]
        modem.unsubscribe(*SUBSCRIBED)
        assert modem.subscriptions() == []
    assert max(max(fields.values(), default=0) for fields in requests(journal(), 108)) == 7


@pytest.mark.board(BOTH_RADIOS)
def test_an_event_is_not_taken_for_one_of_the_same_number():
    assert lyn.Indication.MODEM_STATUS == 1 == lyn.Async.LTE_NBR_INFO
    assert lyn.Indication.MODEM_STATUS != lyn.Async.LTE_NBR_INFO
    with lyn.open() as modem:
        modem.get(lyn.Metric.LTE_NBR_PCI)
        match next(modem.events(timeout=20)):
            case lyn.Event(lyn.Indication.MODEM_STATUS, _):
                raise AssertionError("an indication")
            case lyn.Event(lyn.Async.LTE_NBR_INFO, found):
                assert [cell.pci for cell in found.cells] == [301, 302]


@pytest.mark.board(NO_SERVICE)
def test_events_end_when_none_comes_in_time():
    with lyn.open() as modem:
        assert list(modem.events(timeout=0.01)) == []
