"""SIGTERM ends the program with status 0 at any moment after its banner, also while the board is busy."""
import concurrent.futures
import os
import random
import signal
import time

import pytest

import lyn

RUNS = 1000
SEED = int(os.environ.get("LYN_SEED") or random.SystemRandom().randrange(1 << 32))

# Changing measurements, ten a millisecond, so that every thread of module and board is at work.
BUSY_BOARD = "[board]\ntick_ms = 1\n" + "".join(
    f"[[at]]\nms = 0\nafter = 'nas.108'\nlte = {{ rsrp = {rsrp} }}\nrepeat = 100000\nevery_ms = 1\n"
    for rsrp in range(-100, -90))

INPUTS = {
    "idle": b"",
    "registered": b"1\n7 1\n",
    "busy": b"1\n3 1\n3 2\n3 3 1\n" + b"7 10\n7 1\n4\n" * 50,
    "register_cycles": b"1\n2\n" * 100,
}


def one_run(demo, kind, delay):
    """Start, wait for the banner, let `delay` seconds pass, send the signal; what went wrong, or None."""
    launch = demo.launch(scenario=BUSY_BOARD, env={"LYN_SIM_JOURNAL": None, "LYN_SIM_DIAG": None})
    with lyn.Session(launch, limit=64 << 20, timeout=30) as session:
        session.wait_for("Device Manager Client Application")
        session.send_raw(INPUTS[kind])
        time.sleep(delay)
        status = session.terminate()
        errors = session.errors.text()
    return None if status == 0 and not errors else f"{kind}, {delay * 1000:.2f} ms: status {status} {errors!r}"


@pytest.mark.release_only
def test_thousand_runs_killed_at_random_moments_end_with_status_0(demo):
    chance = random.Random(SEED)
    plan = [(chance.choice(list(INPUTS)), chance.choice([0.002, 0.01, 0.04]) * chance.random()) for _ in range(RUNS)]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        failures = [text for text in pool.map(lambda step: one_run(demo, *step), plan) if text]
    assert not failures, f"LYN_SEED={SEED}: {len(failures)} of {RUNS}: {failures[:10]}"


@pytest.mark.parametrize("kind", sorted(INPUTS))
def test_sigterm_ends_with_status_0(demo, kind):
    assert one_run(demo, kind, 0.05) is None
