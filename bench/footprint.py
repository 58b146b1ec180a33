#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""usage: footprint.py BUILD --json=FILE [--rounds=N] [--smoke]

What the built demo client costs a board: size of code, memory once registered, time to the first menu, and the time of
long automatic files. Prints lines as the benchmark programs do and appends the figures to FILE, one JSON object a line.
The size of code is also that of --arm64=BUILD, where the cross compiler is installed.
"""
import argparse
import glob
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time

from figures import report

ROOT = pathlib.Path(__file__).resolve().parent.parent
ARM64_TOOLS = "aarch64-linux-gnu-"
GOAL_CODE = 200 * 1024
GOAL_RSS_KIB = 1024
GOAL_LINES = 100000


def loaded_size(path, tools):
    """Octets of the sections that are loaded: of a program, or of all objects of a library."""
    done = subprocess.run([tools + "size", "-t", path], check=True, capture_output=True, text=True)
    text, data = done.stdout.splitlines()[-1].split()[:2]
    return int(text) + int(data)


def sizes(options, folder, build, tools="", suffix=""):
    """The module alone, and the stripped demo client with it; the board's symbols are left open."""
    lib = build / "src/liblyn.a"
    objects = sorted(glob.glob(str(build / "demo/CMakeFiles/lyn_demo.dir/*.o")))
    program = os.path.join(folder, "demo" + suffix)
    subprocess.run([tools + "g++", "-pthread", *objects, lib, "-Wl,--unresolved-symbols=ignore-all",
                    "-Wl,--gc-sections", "-s", "-o", program], check=True)
    for name, path in {"size.lib": lib, "size.demo": program}.items():
        report(options, name + suffix, [loaded_size(path, tools)], [GOAL_CODE], "bytes, theirs the goal")


def arm64_sizes(options, folder):
    if not options.arm64:
        return
    if shutil.which(ARM64_TOOLS + "g++"):
        sizes(options, folder, options.arm64, ARM64_TOOLS, ".arm64")
    else:
        print("footprint: g++-aarch64-linux-gnu is not installed, the sizes for arm64 are left out", flush=True)


def rss_anon_kib(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("RssAnon"))


class Client:
    """The demo client at its menu, on pipes."""

    def __init__(self, command, env):
        self.started = time.monotonic()
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=env)
        self.text = b""

    def wait_for(self, text, timeout=30):
        """Read until `text` has come behind what was waited for before; the time it took since the start."""
        end = time.monotonic() + timeout
        while text not in self.text:
            ready, _, _ = select.select([self.process.stdout], [], [], end - time.monotonic())
            chunk = os.read(self.process.stdout.fileno(), 65536) if ready else b""
            if not chunk:
                sys.exit(f"footprint: {text!r} did not come")
            self.text += chunk
        self.text = self.text.split(text, 1)[1]
        return time.monotonic() - self.started

    def send(self, line):
        self.process.stdin.write(line)
        self.process.stdin.flush()

    def end(self):
        self.process.kill()
        self.process.communicate()


def demo_env():
    """Without a scenario: the default board."""
    return {name: value for name, value in os.environ.items() if not name.startswith("LYN_SIM_")}


def resident(options, folder):
    """Anonymous memory of the registered client, board included, over that of an empty C++ program."""
    source, empty = os.path.join(folder, "empty.cpp"), os.path.join(folder, "empty")
    pathlib.Path(source).write_text("#include <cstdio>\n#include <thread>\n"
                                    "int main() { std::puts(\"menu\"); std::fflush(stdout); return std::getchar(); }\n",
                                    encoding="ascii")
    subprocess.run(["g++", "-O2", "-pthread", source, "-o", empty], check=True)
    ours = []
    for _ in range(options.rounds):
        plain = Client([empty], demo_env())
        plain.wait_for(b"menu")
        demo = Client([options.build / "lyn_demo"], demo_env())
        demo.wait_for(b"\n")
        demo.send(b"1\n")
        demo.wait_for(b"registered successfully")
        time.sleep(0.1)
        ours.append(rss_anon_kib(demo.process.pid) - rss_anon_kib(plain.process.pid))
        demo.end()
        plain.end()
    report(options, "rss.registered", ours, [GOAL_RSS_KIB] * len(ours), "KiB over an empty program, theirs the goal")


def start(options):
    """From the start to the first menu, beside /bin/true from its start to its end."""
    ours, theirs = [], []
    for _ in range(options.rounds * 3):
        demo = Client([options.build / "lyn_demo"], demo_env())
        ours.append(1000 * demo.wait_for(b"Option > "))
        demo.end()
        begin = time.monotonic()
        subprocess.run(["/bin/true"], check=True)
        theirs.append(1000 * (time.monotonic() - begin))
    report(options, "start.ms", ours, theirs, "ms, theirs /bin/true")


def auto_seconds(options, folder, lines):
    path = os.path.join(folder, "auto.cfg")
    pathlib.Path(path).write_text("1\n" + "7 10\n" * lines + "2\n", encoding="ascii")
    begin = time.monotonic()
    done = subprocess.run([ROOT / "tools/private-data", path, options.build / "lyn_demo"], env=demo_env(), check=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    seconds = time.monotonic() - begin
    if done.stdout.count(b": 7 10\n") != lines or b"successfully processed" not in done.stdout:
        sys.exit("footprint: the automatic file was not processed whole")
    return seconds


def auto_lines(options, folder):
    """Lines a second of a file of 100,000, and its growth beside one of a quarter."""
    lines = 400 if options.smoke else 100000
    speed, growth, quarter = [], [], []
    for _ in range(options.rounds):
        long = auto_seconds(options, folder, lines)
        short = auto_seconds(options, folder, lines // 4)
        speed.append(lines / long)
        growth.append(long)
        quarter.append(4 * short)
    report(options, "auto.lines_per_s", speed, [GOAL_LINES] * len(speed), "lines/s beside 100,000")
    report(options, "auto.growth", growth, quarter, "s, theirs four times a quarter")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--arm64", type=pathlib.Path)
    parser.add_argument("--json", required=True)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--smoke", action="store_true")
    options = parser.parse_args()
    options.build = options.build.resolve()
    if options.smoke:
        options.rounds = 1
    with tempfile.TemporaryDirectory() as folder:
        sizes(options, folder, options.build)
        arm64_sizes(options, folder)
        resident(options, folder)
        start(options)
        auto_lines(options, folder)


main()
