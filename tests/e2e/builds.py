"""Builds of the tree beside the one that is tested: how they are configured and installed, and the board's SDK.

The SDK of these tests has the headers of platform/inc, and the simulated board for libraries.
"""
import os
import shutil
import subprocess

from lyn import BUILD, ROOT

SDK_HEADERS = ["diag_service.h", "location_client_api.h", "nas_service_v01.h", "oxmap_client.h", "yrp_client.h"]
SDK_LIBRARIES = ["diag", "location_client", "oxmap_client", "yrp_nas", "yrp_cci"]


def run(*command, **options):
    """The output of a command that has to succeed."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    assert done.returncode == 0, f"{' '.join(str(word) for word in command)}:\n{done.stdout}"
    return done.stdout


def configure(folder, *options):
    """Configure the tree without a preset, with what the tested build shares with it in the compiler cache."""
    done = subprocess.run(["cmake", "-S", str(ROOT), "-B", str(folder), "-DLYN_WERROR=ON", "-DLYN_TESTS=OFF",
                           "-DLYN_BENCH=OFF", *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    return done.returncode, done.stdout


def configure_sdk(folder, sdk):
    return configure(folder, "-DLYN_PLATFORM=sdk", f"-DLYN_SDK_DIR={sdk}")


def build(folder, *options):
    status, output = configure(folder, *options)
    assert status == 0, output
    run("cmake", "--build", folder, "-j", os.cpu_count())
    return folder


def install(folder, prefix):
    run("cmake", "--install", folder, "--prefix", prefix)
    return prefix


def make_sdk(folder):
    """The whole board is in the first library; the others bring nothing of their own."""
    (folder / "include").mkdir(parents=True)
    (folder / "lib").mkdir()
    for header in SDK_HEADERS:
        shutil.copy(ROOT / "platform/inc" / header, folder / "include")
    board = ["-Wl,--whole-archive", BUILD / "platform/sim/liblyn_sim.a", "-Wl,--no-whole-archive"]
    for library in SDK_LIBRARIES:
        run("c++", "-shared", f"-Wl,-soname,lib{library}.so.1", *board, "-o", folder / f"lib/lib{library}.so.1")
        (folder / f"lib/lib{library}.so").symlink_to(f"lib{library}.so.1")
        board = []
    return folder
