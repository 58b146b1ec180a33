"""How the tree is configured: against the board's SDK in place of the simulated board, and as a shared library.

The SDK of these tests has the headers of platform/inc, and the simulated board for libraries.
"""
import os
import shutil
import subprocess

import pytest

from lyn import AUTO_DONE, BUILD, ROOT, Demo

HEADERS = ["diag_service.h", "location_client_api.h", "nas_service_v01.h", "oxmap_client.h", "yrp_client.h"]
LIBRARIES = ["diag", "location_client", "oxmap_client", "yrp_nas", "yrp_cci"]

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="builds plain trees of its own, with the plain board")


def cmake(*arguments):
    done = subprocess.run(["cmake", *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    return done.returncode, done.stdout


def configure(folder, *options):
    return cmake("-S", str(ROOT), "-B", str(folder), "-DCMAKE_BUILD_TYPE=Release", "-DLYN_TESTS=OFF", "-DLYN_BENCH=OFF",
                 *options)


def configure_sdk(folder, sdk):
    return configure(folder, "-DLYN_PLATFORM=sdk", f"-DLYN_SDK_DIR={sdk}")


@pytest.fixture
def sdk(tmp_path):
    folder = tmp_path / "sdk"
    (folder / "include").mkdir(parents=True)
    (folder / "lib").mkdir()
    for header in HEADERS:
        shutil.copy(ROOT / "platform/inc" / header, folder / "include")
    # The whole board in the first library; the others bring nothing of their own.
    board = BUILD / "platform/sim/liblyn_sim.a"
    (folder / "lib/libdiag.so").write_text(f"INPUT ( {board} -ltomlplusplus )\n")
    for library in LIBRARIES[1:]:
        subprocess.run(["ar", "rcs", str(folder / f"lib/lib{library}.a")], check=True)
    return folder


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
    (sdk / "lib/libyrp_nas.a").unlink()
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


def test_complete_sdk_is_accepted(tmp_path, sdk):
    status, output = configure_sdk(tmp_path / "build", sdk)
    assert status == 0, output


@pytest.mark.long
def test_demo_built_with_the_sdk_runs(tmp_path, sdk):
    status, output = configure_sdk(tmp_path / "build", sdk)
    assert status == 0, output
    status, output = cmake("--build", str(tmp_path / "build"), "-j", str(os.cpu_count()))
    assert status == 0, output
    result = Demo(tmp_path, tmp_path / "build/lyn_demo").auto(["1", "7 1", "2"])
    assert result.console.endswith(AUTO_DONE) and "[Registration Status] - 6" in result.console
    assert result.status == 0


@pytest.mark.long
def test_shared_library_exports_the_nine_operations_and_nothing_is_missing(tmp_path):
    status, output = configure(tmp_path / "build", "-DLYN_SHARED=ON")
    assert status == 0, output
    status, output = cmake("--build", str(tmp_path / "build"), "-j", str(os.cpu_count()))
    assert status == 0, output
    library, = (tmp_path / "build").rglob("liblyn*.so")
    program = tmp_path / "caller.c"
    program.write_text('#include "ox_lyn.h"\nint main(void) { return ox_lyn_deinit(0) == -2 ? 0 : 1; }\n')
    subprocess.run(["gcc", "-std=c11", f"-I{ROOT}/inc", str(program), str(library), f"-Wl,-rpath,{library.parent}",
                    "-o", str(tmp_path / "caller")], check=True)
    assert subprocess.run([str(tmp_path / "caller")], check=False).returncode == 0
    symbols = subprocess.run(["nm", "-D", "--defined-only", str(library)], check=True, capture_output=True, text=True)
    assert sum(line.split()[-1].startswith("ox_lyn_") for line in symbols.stdout.splitlines()) == 9
