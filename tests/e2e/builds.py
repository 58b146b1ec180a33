# SPDX-License-Identifier: Apache-2.0
"""Builds of the tree beside the one that is tested: how they are configured, installed and used, and the board's SDK.

The SDK of these tests has the headers of platform/inc, and the simulated board for libraries.
"""
import os
import re
import shutil
import subprocess

from lyn import BUILD, ROOT

SDK_HEADERS = ["diag_service.h", "location_client_api.h", "nas_service_v01.h", "oxmap_client.h", "yrp_client.h"]
SDK_LIBRARIES = ["diag", "location_client", "oxmap_client", "yrp_nas", "yrp_cci"]

HEADER = (ROOT / "inc/ox_lyn.h").read_text(encoding="utf-8")
VERSION = ".".join(re.findall(r"#define OX_LYN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", HEADER))

# Programs that use what is installed, and the board that they are run on.
CALLER = """
#include <ox_lyn.h>
#include <stdio.h>
#include <stdlib.h>

static void on_event(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *event, uint32_t user_data) {
  (void)hndl, (void)user_data;
  free(event);
}

int main(void) {
  ox_lyn_hndl_t hndl;
  ox_lyn_dm_info_t info = {OX_LYN_RECORD_GET_E};
  if (ox_lyn_init(&hndl, 0, on_event) != OX_LYN_SUCCESS) return 1;
  info.metric = OX_LYN_GET_LTE_SERV_RSRP_E;
  if (ox_lyn_get_info(hndl, &info) != OX_LYN_SUCCESS) return 2;
  printf("\\nRSRP %lld\\n", (long long)info.value.i64);
  return ox_lyn_deinit(hndl) == OX_LYN_SUCCESS ? 0 : 3;
}
"""

PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(caller LANGUAGES {language})
find_package(lyn {version} REQUIRED)
foreach(library IN ITEMS {libraries})
  add_executable(${{library}} {source})
  target_link_libraries(${{library}} PRIVATE lyn::${{library}})
endforeach()
"""

SCENARIO = "[board]\nnoise_db = 0\n[lte]\nrsrp = -101\n"


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


def build(name, *options):
    """Build afresh, as deep in the tree as the presets do, so that the compiler cache knows what they have in common."""
    folder = ROOT / "build" / f"e2e.{name}"
    shutil.rmtree(folder, ignore_errors=True)
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
