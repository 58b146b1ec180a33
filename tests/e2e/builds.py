# SPDX-License-Identifier: Apache-2.0
"""Builds of the tree beside the one that is tested: how they are configured, installed and used, and the board's SDK.

The SDK of these tests has what a board's has: the headers of platform/inc, and the simulated board in libraries of which
each has its own symbols.
"""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from lyn import BUILD, ROOT

SDK_HEADERS = ["diag_service.h", "location_client_api.h", "nas_service_v01.h", "oxmap_client.h", "yrp_client.h"]

# Which objects of the simulated board are a library, by their names; the last one has what is left. NAS is a stub, since
# the board has its one operation in another object.
SDK_LIBRARIES = {"diag": "sim_diag.*", "location_client": "sim_location.*", "oxmap_client": "sim_oxmap.*", "yrp_nas": None,
                 "yrp_cci": "*"}
NAS_OBJECT = "nas_get_service_object_internal_v01"
NAS_STUB = f"""
extern const void *board_nas_object(int major, int minor, int tool);
const void *{NAS_OBJECT}(int major, int minor, int tool) {{ return board_nas_object(major, minor, tool); }}
"""

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


def copy_tree(folder):
    """The files that git knows, with what is not committed of them, and nothing that was built."""
    for name in run("git", "-C", ROOT, "ls-files", "-co", "--exclude-standard").splitlines():
        if (ROOT / name).exists():
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, folder / name)
    return folder


def configure(folder, *options, tree=ROOT):
    """Configure a tree without a preset, with what the tested build shares with it in the compiler cache."""
    done = subprocess.run(["cmake", "-S", str(tree), "-B", str(folder), "-DLYN_WERROR=ON", "-DLYN_TESTS=OFF",
                           "-DLYN_BENCH=OFF", *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    return done.returncode, done.stdout


def configure_sdk(folder, sdk):
    return configure(folder, "-DLYN_PLATFORM=sdk", f"-DLYN_SDK_DIR={sdk}")


def build(name, *options, tree=ROOT):
    """Build afresh, as deep in the tree as the presets do, so that the compiler cache knows what they have in common."""
    folder = tree / "build" / f"e2e.{name}"
    shutil.rmtree(folder, ignore_errors=True)
    status, output = configure(folder, *options, tree=tree)
    assert status == 0, output
    run("cmake", "--build", folder, "-j", os.cpu_count())
    return folder


def install(folder, prefix):
    run("cmake", "--install", folder, "--prefix", prefix)
    return prefix


def make_sdk(folder):
    """Headers and shared libraries, and nothing else."""
    (folder / "include").mkdir(parents=True)
    (folder / "lib").mkdir()
    for header in SDK_HEADERS:
        shutil.copy(ROOT / "platform/inc" / header, folder / "include")
    with tempfile.TemporaryDirectory() as objects:
        parts = pathlib.Path(objects)
        run("ar", "x", BUILD / "platform/sim/liblyn_sim.a", cwd=parts)
        run("objcopy", "--redefine-sym", f"{NAS_OBJECT}=board_nas_object", parts / "sim_yrp.cpp.o")
        for library, pattern in SDK_LIBRARIES.items():
            own = list(parts.glob(pattern)) if pattern else ["-xc", "-"]
            run("c++" if pattern else "cc", "-shared", "-fPIC", f"-Wl,-soname,lib{library}.so.1", *own,
                "-o", folder / f"lib/lib{library}.so.1", input=NAS_STUB)
            for taken in own if pattern else []:
                taken.unlink()
            (folder / f"lib/lib{library}.so").symlink_to(f"lib{library}.so.1")
    return folder
