# SPDX-License-Identifier: Apache-2.0
"""The examples for application developers, run as they stand: what they print on a board, and how they end."""
import os
import re
import signal
import subprocess

import pytest

from builds import install, run
from lyn import BUILD, EMULATOR, ROOT, Demo

EXAMPLES = BUILD / "examples"
PROGRAMS = {"signal": EXAMPLES / "signal", "watch_signal.py": ROOT / "examples/watch_signal.py"}
BOARD = """
[board]
noise_db = 0
[lte]
earfcn = 1301
rsrp = -95
snr = 135
[nr5g]
arfcn = 2016667
pci = 501
snr = -15
rsrq = "absent"
[[at]]
after = "nas.108"
skip = 6
ms = 20
lte = { rsrp = -99 }
"""
SERVING_CELL = """\
registration status: 6
LTE EARFCN: 1301
LTE PCI: 214
LTE RSRP: -95 dBm
LTE RSRQ: -11 dB
LTE SINR: 13.5 dB
NR 5G ARFCN: 2016667
NR 5G PCI: 500
NR 5G RSRP: -98 dBm
NR 5G RSRQ: not available
NR 5G SINR: -1.5 dB
"""
# NR 5G alone; with LTE beside it the modem takes no such lock.
NR5G_ALONE = """
[sys_info]
lte = "absent"
nr5g = "service"
nr5g_pci = -1
[nr5g]
scs = 2
neighbour = [{ arfcn = 640000, pci = 7, rsrp = -110 }, { arfcn = 636000, pci = 9, rsrp = -90 }]
"""


@pytest.fixture
def start(tmp_path):
    def run(name, scenario, *arguments):
        if name.endswith(".py") and BUILD.name != "release":
            pytest.skip("the package is built in the release preset only")
        program = PROGRAMS.get(name, EXAMPLES / name)
        return Demo(tmp_path, program, *arguments).session(scenario, env={"PYTHONPATH": str(BUILD / "python")})
    return run


def of_example(console):
    """What an example printed itself, without the module's line on the mobile AP."""
    return console.replace("\nMobileAP Enable succeeds.", "", 1)


@pytest.mark.parametrize("name", PROGRAMS)
@pytest.mark.parametrize("end", ["SIGINT", "end of input"])
def test_signal_prints_the_serving_cell_and_what_changes_until_it_is_ended(start, name, end):
    with start(name, BOARD) as session:
        session.wait_for("LTE RSRP: -99 dBm\n")
        if end == "SIGINT":
            session.launch.signal(signal.SIGINT)
        else:
            session.close_stdin()
        result = session.finish()
    assert (result.status, result.stderr) == (0, "")
    console = of_example(result.console)
    assert console.startswith(SERVING_CELL)
    changes = console.removeprefix(SERVING_CELL).splitlines()
    assert sorted(changes) == ["LTE RSRP: -95 dBm", "LTE RSRP: -99 dBm", "LTE RSRQ: -11 dB", "LTE SINR: 13.5 dB",
                               "NR 5G RSRP: -98 dBm", "NR 5G SINR: -1.5 dB"]
    assert "release" in [row["name"] for row in result.journal if row["lib"] == "yrp"]


@pytest.mark.parametrize("name", PROGRAMS)
def test_signal_ends_by_itself_after_its_seconds(start, name):
    with start(name, BOARD, "1") as session:
        assert session.wait() == 0


@pytest.mark.parametrize("name, text", [("signal", "the module cannot be brought up: status -1\n"),
                                        ("watch_signal.py", "open: ERR_FAILURE (-1), ")])
def test_signal_says_why_it_does_not_start(start, name, text):
    with start(name, '[[fault]]\non = "yrp.init_instance"\n') as session:
        session.close_stdin()
        result = session.finish()
    assert result.status == 1 and text in result.stderr


def test_signal_without_service_reads_nothing(start):
    with start("signal", '[sys_info]\nlte = "no_service"\nnr5g_pci = -1\n') as session:
        session.close_stdin()
        console = of_example(session.finish().console)
    assert re.findall("(.*): not available", console) == [line.split(":")[0] for line in SERVING_CELL.splitlines()][1:]


def test_signal_frees_what_it_has_no_use_for(start):
    """The leak checker of the sanitized build counts the blocks."""
    events = ('[[at]]\nafter = "nas.108"\nskip = 6\npanel = { index = 1 }\nqos_flow = { bearer = 1 }\n'
              'install_measurement = [{}]\n[[at]]\nafter = "nas.108"\nskip = 6\nms = 50\nlte = { rsrp = -120 }\n')
    with start("signal", "[board]\nnoise_db = 0\n" + events) as session:
        session.wait_for("LTE RSRP: -120 dBm\n")
        session.close_stdin()
        result = session.finish()
    assert (result.status, result.stderr) == (0, "")


def test_scan_and_lock_locks_to_the_strongest_neighbour_and_unlocks(start):
    with start("scan_and_lock", NR5G_ALONE) as session:
        session.close_stdin()
        result = session.finish()
    assert (result.status, result.stderr) == (0, "")
    assert of_example(result.console).splitlines() == [
        "neighbour: NR-ARFCN 640000, PCI 7, RSRP -110 dBm", "neighbour: NR-ARFCN 636000, PCI 9, RSRP -90 dBm",
        "locked to PCI 9", "unlocked"]
    lock, unlock = [row["fields"] for row in result.journal if (row["dir"], row.get("id")) == ("request", 270)]
    assert lock["type"] == 0
    assert lock["cell_identity"] | {"pci": 9, "scs": 2, "arfcn": 636000} == lock["cell_identity"]
    assert unlock == {"type": 2}


@pytest.mark.parametrize("scenario, text", [
    (NR5G_ALONE + '[[fault]]\non = "nas.77"\nskip = 1\ntransport = -1\n', "sub-carrier spacing: the modem refused"),
    ('[[fault]]\non = "nas.133"\nresult = 1\n', "scan: the modem refused"),
    ("[scan]\nstatus = 1\n", "scan: the modem could not scan\n"),
    ("", "lock: the modem refused, or does not do this in its present service (-1)\n"),
    (NR5G_ALONE + '[[fault]]\non = "nas.270"\nskip = 1\nresult = 1\n', "unlock: the modem refused"),
    ('[[fault]]\non = "yrp.init_instance"\n', "start: the modem refused"),
    (NR5G_ALONE + '[[fault]]\non = "yrp.release"\n', "stop: the modem refused"),
], ids=["spacing", "refused scan", "failed scan", "lock", "unlock", "start", "stop"])
def test_scan_and_lock_names_what_went_wrong(start, scenario, text):
    with start("scan_and_lock", scenario) as session:
        session.close_stdin()
        result = session.finish()
    assert result.status == 1
    assert text in result.stderr


def test_scan_and_lock_without_a_neighbour_locks_nothing(start):
    with start("scan_and_lock", NR5G_ALONE.replace("neighbour = [", "neighbour = []\n#")) as session:
        session.close_stdin()
        result = session.finish()
    assert result.status == 0 and of_example(result.console) == "no neighbour\n"


@pytest.fixture(scope="module")
def prefix(tmp_path_factory):
    if BUILD.name != "release":
        pytest.skip("what is installed is what ships, no sanitizer build")
    folder = tmp_path_factory.mktemp("installed")
    return install(BUILD, folder / "first").rename(folder / "second")


def test_examples_are_a_project_of_their_own_with_the_installed_module(tmp_path, prefix):
    build = tmp_path / "build"
    run("cmake", "-S", ROOT / "examples", "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", build)
    for name in ("signal", "scan_and_lock"):
        assert str(prefix) in run("ldd", build / name)
    with Demo(tmp_path, build / "signal").session(BOARD) as session:
        session.close_stdin()
        assert of_example(session.finish().console).startswith(SERVING_CELL)


def test_installed_package_runs_wherever_it_lies(tmp_path, prefix):
    packages = prefix / "lib/python3/dist-packages"
    installed = sorted(path.name for path in (packages / "lyn").iterdir())
    extension, = [name for name in installed if name.endswith(".so")]
    assert installed == sorted(["__init__.py", "base.py", extension, "header.py", "modem.py", "records.py"])
    assert str(prefix) in run("ldd", packages / "lyn" / extension)
    with Demo(tmp_path, PROGRAMS["watch_signal.py"]).session(BOARD, env={"PYTHONPATH": str(packages)}) as session:
        session.close_stdin()
        assert of_example(session.finish().console).startswith(SERVING_CELL)


def test_scan_and_lock_refuses_a_band_that_is_none():
    for band in ("0", "513", "x"):
        done = subprocess.run([*EMULATOR, str(EXAMPLES / "scan_and_lock"), band], capture_output=True, text=True,
                              check=False, env=os.environ)
        assert (done.returncode, done.stderr) == (2, "usage: scan_and_lock [BAND]; a band is 1 to 512\n")
