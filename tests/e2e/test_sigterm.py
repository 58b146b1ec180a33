# SPDX-License-Identifier: Apache-2.0
"""SIGTERM ends the program with status 0 at any moment after its banner, also while the board is busy."""
import concurrent.futures
import os
import random
import time

import pytest

import lyn

RUNS = 1000
SEED = int(os.environ.get("LYN_SEED") or random.SystemRandom().randrange(1 << 32))

HEADER = "Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n"
LONG_DRIVE = HEADER + "".join(f"0,0,0,LTE,{-100 + row % 9},-10,{row % 30},9,1,1,-95,-14\n" for row in range(5000))

BOARDS = {
    # Changing measurements, ten a millisecond, so that every thread of module and board is at work.
    "timeline": "[board]\ntick_ms = 1\n" + "".join(
        f"[[at]]\nms = 0\nafter = 'nas.108'\nlte = {{ rsrp = {rsrp} }}\nrepeat = 100000\nevery_ms = 1\n"
        for rsrp in range(-100, -90)),
    "drive": "[trace]\nfile = 'drive.csv'\nspeed = 0\nafter = 'nas.108'\n",
    "drive_from_the_start": "[trace]\nfile = 'drive.csv'\nspeed = 0\n",
    "flood": "[[at]]\nms = 0\nraw = { lib = 'nas', id = 81, bytes = '01020000' }\nrepeat = 1000000\nevery_ms = 0\n"
             "[[at]]\nms = 0\nmodem = 'down'\nrepeat = 100000\nevery_ms = 0\n",
    "restarting_modem": "[[at]]\nms = 0\nmodem = 'down'\nrepeat = 100000\nevery_ms = 2\n"
                        "[[at]]\nms = 1\nmodem = 'up'\nrepeat = 100000\nevery_ms = 2\n",
}

INPUTS = {
    "idle": b"",
    "registered": b"1\n7 1\n",
    "busy": b"1\n3 1\n3 2\n3 3 1\n" + b"7 10\n7 1\n4\n" * 50,
    "register_cycles": b"1\n2\n" * 100,
}


def one_run(demo, board, kind, delay):
    """Start, wait for the banner, let `delay` seconds pass, send the signal; what went wrong, or None."""
    # The exit may come between the end of the command thread and its join, which is no leak of the program's, and while
    # a thread is being started, where the search for leaks waits for ever for a lock of that thread.
    tsan = os.environ.get("TSAN_OPTIONS", "") + ":report_thread_leaks=0"
    asan = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
    launch = demo.launch(scenario=BOARDS[board], env={"LYN_SIM_JOURNAL": None, "LYN_SIM_DIAG": None,
                                                      "TSAN_OPTIONS": tsan, "ASAN_OPTIONS": asan})
    launch.private = os.path.exists("/data/data_oxmap/lyn_auto_test.cfg")  # a thousand runs are quicker without
    if "drive" in board:
        (launch.folder / "drive.csv").write_text(LONG_DRIVE)
    with lyn.Session(launch, limit=64 << 20, timeout=30) as session:
        session.wait_for("Device Manager Client Application")
        session.send_raw(INPUTS[kind])
        time.sleep(delay)
        status = session.terminate()
        errors = session.errors.text()
    return None if status == 0 and not errors else f"{board}, {kind}, {delay * 1000:.2f} ms: status {status} {errors!r}"


@pytest.mark.release_only
def test_thousand_runs_killed_at_random_moments_end_with_status_0(demo):
    chance = random.Random(SEED)
    plan = [(chance.choice(list(BOARDS)), chance.choice(list(INPUTS)),
             chance.choice([0.002, 0.01, 0.04]) * chance.random()) for _ in range(RUNS)]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        failures = [text for text in pool.map(lambda step: one_run(demo, *step), plan) if text]
    assert not failures, f"LYN_SEED={SEED}: {len(failures)} of {RUNS}: {failures[:10]}"


@pytest.mark.parametrize("board", BOARDS)
def test_sigterm_ends_with_status_0(demo, board):
    for kind in INPUTS:
        assert one_run(demo, board, kind, 0.05) is None


def test_sigterm_ends_a_registration_that_waits_for_the_service(demo):
    with demo.session(scenario="[nas]\navailable = false\n") as session:
        session.send("1")
        session.wait_journal(lambda row: row["name"] == "yrp_cci_os_signal_wait" and row["dir"] == "call")
        assert session.terminate() == 0
        result = session.finish()
    assert result.console.endswith("LYN DEMO APP : Register application.\n")
    assert result.stderr == ""
    assert not result.calls("call", "init_instance")


def test_registration_goes_on_once_the_service_is_offered(demo):
    with demo.session(scenario=f"[nas]\navailable_after_ms = {50 * lyn.SCALE}\n") as session:
        session.send("1")
        session.wait_for("LYN DEMO APP : Application registered successfully.\n")
        assert session.terminate() == 0
        assert session.finish().calls("call", "yrp_cci_os_signal_wait")
