# SPDX-License-Identifier: Apache-2.0
"""Clean Debian systems to install packages in: a tarball of one is made once (mmdebstrap, from the network) and kept in
build/roots; each test unpacks it into a folder of its own and enters that with bubblewrap, as its root.

What the machine does not allow makes a test skip, with a line that says what was missing.
"""
import hashlib
import os
import shutil
import subprocess

import pytest

from lyn import ROOT

SUITE = "bookworm"
# What a developer has there who links the module, and calls it from Python.
PACKAGES = ["cmake", "g++", "gcc", "make", "pkg-config", "python3-cffi-backend"]
FOLDER = ROOT / "build/roots"
# What dpkg and ldconfig keep for themselves, whatever is installed.
KEPT = ("var/lib/dpkg/", "var/lib/apt/", "var/log/", "var/cache/")


def output_or_skip(what, *command):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    if done.returncode != 0:
        pytest.skip(f"{what}: {' '.join(done.stdout.split()[-40:])}")


def tarball():
    if not shutil.which("mmdebstrap"):
        pytest.skip("no clean root: mmdebstrap is not installed")
    name = hashlib.sha256(" ".join([SUITE, *PACKAGES]).encode()).hexdigest()[:12]
    kept, fresh = FOLDER / f"{SUITE}-{name}.tar", FOLDER / "fresh.tar"
    FOLDER.mkdir(parents=True, exist_ok=True)
    if not kept.exists():
        hint = "" if os.geteuid() == 0 else " (not as root it needs uidmap and a line in /etc/subuid)"
        output_or_skip(f"no clean root, mmdebstrap failed{hint}", "mmdebstrap", "--quiet", "--variant=minbase",
                       f"--include={','.join(PACKAGES)}", SUITE, fresh)
        fresh.rename(kept)
    return kept


class CleanRoot:
    """A system in a folder; what is in the folder `work` is seen as /work there."""

    def __init__(self, folder):
        self.folder = folder / "root"
        self.work = folder / "work"
        for path in (self.folder, self.work, self.folder / "work"):
            path.mkdir()
        # Devices are those of the machine: only root can make some.
        output_or_skip("no clean root, tar failed", "tar", "-C", self.folder, "--exclude=./dev/*", "-xf", tarball())
        output_or_skip("a clean root cannot be entered, bwrap failed", *self.command("true"))

    def command(self, *words, env=None):
        user = [] if os.geteuid() == 0 else ["--unshare-user", "--uid", "0", "--gid", "0"]
        env = {"PATH": "/usr/sbin:/usr/bin", "HOME": "/root", "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive",
               **(env or {})}
        variables = [word for name, value in env.items() for word in ("--setenv", name, value)]
        return ["bwrap", *user, "--bind", self.folder, "/", "--dev-bind", "/dev", "/dev", "--ro-bind", "/proc", "/proc",
                "--tmpfs", "/tmp", "--bind", self.work, "/work", "--chdir", "/work", "--clearenv", *variables,
                "--die-with-parent", "--", *words]

    def files(self):
        """Every path of the system but what is kept beside it."""
        found = set()
        for folder, folders, names in os.walk(self.folder):
            top = os.path.relpath(folder, self.folder)
            found |= {os.path.normpath(os.path.join(top, name)) for name in folders + names}
        return {name for name in found if not name.startswith(KEPT)}
