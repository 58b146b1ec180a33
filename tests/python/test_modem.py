# SPDX-License-Identifier: Apache-2.0
"""The life of a module in Python: opening and closing, statuses, threads, what is done wrong, and what is freed."""
import ctypes
import gc
import sys
import threading

import pytest
from boards import BOTH_RADIOS, LTE_ALONE, NO_SERVICE

lyn = pytest.importorskip("lyn", reason="the package is built in the release preset only")
QUIET = "[board]\nnoise_db = 0\n"


class Mallinfo(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in
                "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost".split()]


def allocated():
    """Octets that malloc has given out."""
    mallinfo = ctypes.CDLL(None).mallinfo2
    mallinfo.restype = Mallinfo
    gc.collect()
    return mallinfo().uordblks


# Statuses


@pytest.mark.parametrize("status", [status for status in lyn.Status if status], ids=lambda status: status.name)
def test_status_is_the_exception_of_its_name(status):
    title = "".join(word.capitalize() for word in status.name.removeprefix("ERR_").split("_"))
    with pytest.raises(getattr(lyn, title)) as caught:
        lyn.modem._check(int(status), "get X")
    assert caught.type.__name__ == title and issubclass(caught.type, lyn.Error)
    assert caught.value.status is status
    assert str(caught.value).startswith(f"get X: {status.name} ({int(status)}), ")


def test_status_of_a_client_of_the_modem_is_a_plain_error():
    with pytest.raises(lyn.Error, match="get X: status -42") as caught:
        lyn.modem._check(-42, "get X")
    assert caught.type is lyn.Error and caught.value.status == -42


def test_success_is_no_exception():
    lyn.modem._check(0, "get X")


@pytest.mark.board(QUIET, '[[fault]]\non = "nas.79"\ntransport = -1\n')
def test_refused_request_is_a_failure_that_says_what_failed():
    with lyn.open() as modem:
        with pytest.raises(lyn.Failure, match="get LTE_SERV_RSRP: ERR_FAILURE") as caught:
            modem.get(lyn.Metric.LTE_SERV_RSRP)
        assert caught.value.status is lyn.Status.ERR_FAILURE
        assert modem.get(lyn.Metric.LTE_SERV_RSRP) == -95


@pytest.mark.board(NO_SERVICE)
def test_without_service_metrics_are_unavailable():
    with lyn.open() as modem:
        with pytest.raises(lyn.ServiceUnavailable):
            modem.get(lyn.Metric.LTE_SERV_RSRP)


@pytest.mark.board(QUIET, '[lte]\nrsrp = "absent"\n[scan]\nanswer_ms = -1\n')
def test_the_other_statuses_of_the_module():
    with lyn.open() as modem:
        with pytest.raises(lyn.InfoUnavailable):
            modem.get(lyn.Metric.LTE_SERV_RSRP)
        with pytest.raises(lyn.NotSupported):
            modem.get(lyn.Metric.INVALID)
        with pytest.raises(lyn.NotSupported):
            modem.subscribe(lyn.Indication.QOS_FLOW)
        with pytest.raises(lyn.InvalidParam):
            modem.set(lyn.Control.MMW_PPS_CONFIG, lyn.PpsConfig(freqs=[lyn.Nr5gFreq(scs=6)]))
        with pytest.raises(lyn.InvalidParam):
            modem.get_list([])
        with pytest.raises(lyn.InvalidParam):
            modem.unsubscribe()
        modem.get(lyn.Metric.LTE_NBR_PCI)
        with pytest.raises(lyn.Busy):
            modem.get(lyn.Metric.LTE_NBR_PCI)


# Opening and closing


@pytest.mark.board(QUIET)
def test_second_open_is_refused_and_harms_nothing():
    with lyn.open() as modem:
        with pytest.raises(lyn.AlreadyInitialized, match="open: ERR_ALREADY_INITIALIZED"):
            lyn.open()
        modem.subscribe(lyn.Indication.LTE_RSRP)
        assert next(modem.events(timeout=20)).value == -95


@pytest.mark.board(QUIET)
def test_module_opens_again_after_its_close():
    for _ in range(20):
        with lyn.open() as modem:
            modem.subscribe(lyn.Indication.LTE_RSRP)
            assert next(modem.events(timeout=20)).value == -95


@pytest.mark.board(QUIET, '[[fault]]\non = "yrp.init_instance"\n')
def test_open_that_fails_may_be_repeated():
    with pytest.raises(lyn.Failure):
        lyn.open()
    assert not lyn.modem._queues
    with lyn.open() as modem:
        assert modem.get(lyn.Metric.LTE_SERV_RSRP) == -95


@pytest.mark.board(QUIET)
def test_use_after_close_says_so():
    modem = lyn.open()
    modem.close()
    modem.close()
    for use in (lambda: modem.get(lyn.Metric.REG_STATUS), lambda: modem.get_list([lyn.Metric.REG_STATUS]),
                lambda: modem.set(lyn.Control.LOC_SINGLE_SHOT_STOP), lambda: modem.subscribe(lyn.Indication.LTE_RSRP),
                lambda: modem.unsubscribe(lyn.Indication.LTE_RSRP), modem.subscriptions, modem.events):
        with pytest.raises(lyn.NotInitialized, match="after close"):
            use()


@pytest.mark.board(QUIET)
def test_exception_in_the_with_block_closes_the_module():
    with pytest.raises(ZeroDivisionError):
        with lyn.open():
            raise ZeroDivisionError
    lyn.open().close()


@pytest.mark.board(QUIET, '[[fault]]\non = "yrp.release"\n')
def test_close_that_fails_says_so_and_closes_all_the_same():
    modem = lyn.open()
    with pytest.raises(lyn.Failure, match="close"):
        modem.close()
    modem.close()
    lyn.open().close()


@pytest.mark.parametrize("use", ["pass", "modem.subscribe(lyn.Indication.LTE_RSRP)", "raise SystemExit(0)",
                                 "threading.Thread(target=lambda: list(modem.events()), daemon=True).start()",
                                 "events = modem.events(); modem.subscribe(lyn.Indication.LTE_RSRP); next(events)"])
def test_interpreter_that_ends_with_the_module_open_takes_it_down(script, folder, use):
    board = "[board]\ntick_ms = 1\nnoise_db = 1000\n"  # events all the time
    (folder / "board.toml").write_text(board, encoding="utf-8")
    done = script(f"import lyn, threading\nmodem = lyn.open()\n{use}\n", LYN_SIM_SCENARIO=str(folder / "board.toml"),
                  LYN_SIM_JOURNAL=str(folder / "journal"))
    assert (done.returncode, done.stderr) == (0, "")
    assert '"yrp", "dir": "return", "name": "release"' in (folder / "journal").read_text(encoding="utf-8")


# Threads


@pytest.mark.board(QUIET, '[[fault]]\non = "nas.79"\ndelay_ms = 300\n')
def test_events_and_other_threads_go_on_while_a_call_waits_for_the_modem():
    ticks, done = [], threading.Event()

    def count():
        while not done.is_set():
            ticks.append(None)
            done.wait(0.001)

    with lyn.open() as modem:
        other = threading.Thread(target=count)
        other.start()
        assert modem.get(lyn.Metric.LTE_SERV_RSRP) == -95
        done.set()
        other.join()
    assert len(ticks) > 20


@pytest.mark.board("[board]\nnoise_db = 1000\ntick_ms = 1\n")
def test_many_threads_call_while_events_arrive():
    failures = []

    def work(modem):
        try:
            for _ in range(200):
                assert -160 < modem.get(lyn.Metric.LTE_SERV_EARFCN) == 1300
        except BaseException as error:
            failures.append(error)

    with lyn.open() as modem:
        modem.subscribe(lyn.Indication.LTE_RSRP)
        workers = [threading.Thread(target=work, args=(modem,)) for _ in range(4)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        assert next(modem.events(timeout=20)).kind is lyn.Indication.LTE_RSRP
    assert failures == []


@pytest.mark.board(QUIET)
def test_close_ends_every_iteration_over_the_events():
    modem = lyn.open()
    seen = []
    readers = [threading.Thread(target=lambda: seen.append(list(modem.events()))) for _ in range(3)]
    for reader in readers:
        reader.start()
    modem.close()
    for reader in readers:
        reader.join(60)
    # One that came late was told that the module is closed.
    assert seen == [[]] * len(seen)
    assert not any(reader.is_alive() for reader in readers)


@pytest.mark.board(QUIET)
def test_failure_to_take_an_event_reaches_its_reader_and_no_later_one():
    take = lyn.modem.take_event

    def fail(info):
        lyn.modem.take_event = take
        take(info)
        raise MemoryError("no room for an event")

    lyn.modem.take_event = fail
    with lyn.open() as modem:
        modem.subscribe(lyn.Indication.LTE_RSRP)
        with pytest.raises(MemoryError, match="no room for an event"):
            next(modem.events(timeout=20))
        modem.subscribe(lyn.Indication.NR5G_RSRP)
        assert next(modem.events(timeout=20)) == lyn.Event(lyn.Indication.NR5G_RSRP, -98)


@pytest.mark.board(QUIET)
def test_what_python_runs_on_the_modules_thread_cannot_call_it():
    """A finalizer may run wherever memory is collected; it would wait for the lock that its own thread holds."""
    take, caught = lyn.modem.take_event, []

    def take_and_call(info):
        for use in (modem.subscriptions, modem.events, modem.close):
            try:
                use()
            except RuntimeError as error:
                caught.append(str(error))
        return take(info)

    lyn.modem.take_event = take_and_call
    with lyn.open() as modem:
        modem.subscribe(lyn.Indication.LTE_RSRP)
        assert next(modem.events(timeout=20)).value == -95
    assert caught == ["the module cannot be called from the thread of its events"] * 3


# What is done wrong


WRONG_TYPES = {
    "a number for a metric": lambda modem: modem.get(10),
    "an indication for a metric": lambda modem: modem.get(lyn.Indication.LTE_RSRP),
    "a metric for a control": lambda modem: modem.set(lyn.Metric.LTE_SERV_RSRP),
    "a metric for an indication": lambda modem: modem.subscribe(lyn.Metric.LTE_SERV_RSRP),
    "a number to unsubscribe": lambda modem: modem.unsubscribe(3),
    "an argument too many": lambda modem: modem.get(lyn.Metric.LTE_SERV_RSRP, 1),
    "an argument too few": lambda modem: modem.get(lyn.Metric.IPV4_STATS),
    "no block": lambda modem: modem.get(lyn.Metric.MTPE_LTE_INFO),
    "another block": lambda modem: modem.set(lyn.Control.LTE_CELL_LOCK_LIST, lyn.Nr5gCellLock()),
    "a text for a number": lambda modem: modem.set(lyn.Control.NR5G_DEPRIORITIZE, "1"),
    "a text in a block": lambda modem: modem.set(lyn.Control.MMW_PPS_CONFIG, lyn.PpsConfig(position_index="1")),
    "a text for a threshold": lambda modem: modem.subscribe(lyn.Indication.LTE_RSRP, "1"),
}
LOCK = lyn.LteCellLock
OUT_OF_RANGE = {
    "255": lambda modem: modem.set(lyn.Control.NR5G_DEPRIORITIZE, 256),
    "uint16_t": lambda modem: modem.set(lyn.Control.LTE_CELL_LOCK_LIST, LOCK([lyn.LteLockCell(65536, 0)])),
    "60": lambda modem: modem.set(lyn.Control.LTE_CELL_LOCK_LIST, LOCK([lyn.LteLockCell()] * 61)),
    "16": lambda modem: modem.set(lyn.Control.INSTALL_MODE, lyn.InstallMode(freqs=[lyn.Nr5gFreq()] * 17)),
    "300": lambda modem: modem.get(lyn.Metric.MTPE_LTE_INFO, lyn.MtpeReq(server_url="x" * 300)),
    "uint32_t": lambda modem: modem.get(lyn.Metric.IPV4_STATS, 1 << 32),
    "not 0": lambda modem: modem.subscribe(lyn.Indication.LTE_RSRP, 0),
    "not 65536": lambda modem: modem.subscribe(lyn.Indication.LTE_RSRP, 65536),
}


def asked(rows):
    """How much the modem and the mobile AP were asked."""
    return sum((row["lib"], row["dir"]) in (("nas", "request"), ("oxmap", "call")) for row in rows)


@pytest.mark.parametrize("use", WRONG_TYPES.values(), ids=WRONG_TYPES)
@pytest.mark.board(LTE_ALONE)
def test_wrong_type_is_refused_before_the_module_is_called(use, journal):
    with lyn.open() as modem:
        before = asked(journal())
        with pytest.raises(TypeError):
            use(modem)
        assert asked(journal()) == before


@pytest.mark.parametrize("limit", OUT_OF_RANGE)
@pytest.mark.board(LTE_ALONE)
def test_value_out_of_range_is_refused_before_the_module_is_called(limit, journal):
    with lyn.open() as modem:
        before = asked(journal())
        with pytest.raises(ValueError, match=limit if limit != "255" else "NR5G_DEPRIORITIZE"):
            OUT_OF_RANGE[limit](modem)
        assert asked(journal()) == before


@pytest.mark.board(QUIET)
def test_longest_texts_and_lists_are_accepted():
    with lyn.open() as modem:
        modem.get(lyn.Metric.MTPE_LTE_INFO, lyn.MtpeReq(test_type=lyn.MtpeType.UPLINK, server_url="x" * 299))
        modem.set(lyn.Control.INSTALL_MODE, lyn.InstallMode(lyn.InstallAction.START, [lyn.Nr5gFreq()] * 16))


# What is freed


FLOOD = 10000


@pytest.mark.board(QUIET, '[[at]]\nafter = "nas.108"\nms = 50\nrepeat = %d\n' % FLOOD,
                   "panel = { index = 7, changed = 1, mode = 2 }\n")
def test_ten_thousand_events_arrive_and_are_freed():
    with lyn.open() as modem:
        before = allocated()
        modem.subscribe(lyn.Indication.MODEM_STATUS)
        expected = lyn.Event(lyn.Indication.PPS_CHANGE, lyn.PpsInd(7, lyn.PpsMode.MODE_3))
        count = 0
        for event in modem.events(timeout=20):
            assert event == expected
            count += 1
            if count == FLOOD:
                break
        assert list(modem.events(timeout=0.05)) == []
        del event
        assert allocated() - before < 10 * FLOOD
    assert sys.getrefcount(expected) == 2


REPEATED = 3000


@pytest.mark.parametrize("metric, argument", [
    (lyn.Metric.LTE_MCS, None), (lyn.Metric.WWAN_PROFILE_INDEX, None), (lyn.Metric.IPV4_STATS, 7),
    (lyn.Metric.MTPE_SERVER_CONFIG, lyn.MtpeNetParams(lyn.IpFamily.V4)), (lyn.Metric.LTE_CELL_LOCK_LIST, None),
], ids=lambda value: getattr(value, "name", ""))
@pytest.mark.board(BOTH_RADIOS)
def test_blocks_of_metrics_are_freed(metric, argument):
    with lyn.open() as modem:
        modem.get(metric, argument)
        before = allocated()
        for _ in range(REPEATED):
            modem.get(metric, argument)
        assert allocated() - before < 10 * REPEATED


@pytest.mark.board("[lte]\nul_mod = []\n")
def test_block_that_a_failed_call_hands_over_is_freed_too():
    with lyn.open() as modem:
        before = allocated()
        for _ in range(REPEATED):
            with pytest.raises(lyn.Failure):
                modem.get(lyn.Metric.LTE_MCS)
            with pytest.raises(lyn.Failure):
                modem.get_list([lyn.Metric.NR5G_MCS, lyn.Metric.LTE_MCS])
            with pytest.raises(lyn.Failure):
                modem.get(lyn.Metric.IPV4_STATS, 7)  # the handle stays where the block would be
        assert allocated() - before < 10 * REPEATED


@pytest.mark.board(BOTH_RADIOS.replace("answer_ms = 20", "answer_ms = 0").replace("fix_ms = 20", "fix_ms = 0"))
def test_blocks_of_answers_are_freed(get_when_ready):
    with lyn.open() as modem:
        events = modem.events(timeout=20)
        get_when_ready(modem, lyn.Metric.LOC_ROUTINE_BATCHING, lyn.LocBatchingReq(1))
        before = allocated()
        batches = 0
        while batches < 1000:
            batches += next(events).kind is lyn.Async.LOC_BATCH
        modem.set(lyn.Control.LOC_ROUTINE_BATCHING_STOP)
        for _ in range(1000):
            modem.get(lyn.Metric.NR5G_NBR_PCI)
            while next(events).kind is not lyn.Async.NR5G_NBR_INFO:
                pass
        assert allocated() - before < 100 * 1000
