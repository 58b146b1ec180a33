#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""usage: watch.py BUILD --json=FILE [--exporter=PROGRAM] [--rounds=N] [--smoke]

What a watched board costs: processor time at one reading a second, resident memory, a scrape beside one of the node
exporter, series by series, and fifty boards at once. Each board is a process of lyn_watch with the simulated board in
it. Prints lines as the benchmark programs do and appends the figures to FILE, one JSON object a line.
"""
import argparse
import http.client
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

from figures import report

GOAL_CPU = 0.002  # of a core
GOAL_RSS_KIB = 12 * 1024
BOARDS = 50


def cpu_seconds(pid):
    """Processor time of a process so far, threads that have ended included."""
    return time.clock_gettime((~pid << 3) | 2)


def resident_kib(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return int(re.search(r"VmRSS:\s+(\d+)", status)[1])


class Server:
    """A process that serves metrics on a port."""

    def __init__(self, command, port):
        self.port = port
        env = {name: value for name, value in os.environ.items() if not name.startswith("LYN_SIM_")}
        self.process = subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        end = time.monotonic() + 30
        while True:
            try:
                self.scrape()
                return
            except OSError:
                if time.monotonic() > end or self.process.poll() is not None:
                    sys.exit(f"watch: {command[0]} does not serve")
                time.sleep(0.05)

    def scrape(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        connection.request("GET", "/metrics")
        body = connection.getresponse().read()
        connection.close()
        return body

    def series(self):
        return sum(1 for line in self.scrape().splitlines() if line and not line.startswith(b"#"))

    def scrape_seconds(self, times):
        """Processor time of a scrape, over one connection that is kept open, as a collector does."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        begin = cpu_seconds(self.pid)
        for _ in range(times):
            connection.request("GET", "/metrics")
            connection.getresponse().read()
        seconds = cpu_seconds(self.pid) - begin
        connection.close()
        return seconds / times

    def end(self):
        self.process.terminate()
        self.process.wait(10)


def board(options, port):
    return Server([str(options.build / "lyn_watch"), "--serve", str(port), "--every", "1s"], port)


def scrapes(options):
    """What a scrape takes of the process that is scraped, and that by series; who is first alternates."""
    ours = board(options, options.port)
    theirs = Server([options.exporter, f"--web.listen-address=127.0.0.1:{options.port + 1}"], options.port + 1)
    times = 2 if options.smoke else 100
    sides = [(ours, []), (theirs, [])]
    for turn in range(options.rounds):
        for server, micros in sides if turn % 2 == 0 else reversed(sides):
            micros.append(1e6 * server.scrape_seconds(times))
    counts = [server.series() for server, _ in sides]
    for server, _ in sides:
        server.end()
    report(options, "watch.scrape.us", *(micros for _, micros in sides), "us a scrape, theirs the node exporter's")
    report(options, "watch.scrape.us_per_series", *([value / count for value in micros]
                                                    for (_, micros), count in zip(sides, counts)),
           f"us a series, {counts[0]} and {counts[1]} of them, theirs the node exporter's")


def watched(options, boards, name):
    """Processor time and memory of boards that are read once a second and scraped every 15 s."""
    servers = [board(options, options.port + number) for number in range(boards)]
    length = 1 if options.smoke else 30
    shares = []
    for _ in range(options.rounds):
        begin, before = time.monotonic(), [cpu_seconds(server.pid) for server in servers]
        for scrape in (0, length / 2):
            time.sleep(max(0, begin + scrape - time.monotonic()))
            for server in servers:
                server.scrape()
        time.sleep(max(0, begin + length - time.monotonic()))
        used = sum(cpu_seconds(server.pid) - mine for server, mine in zip(servers, before))
        shares.append(used / (time.monotonic() - begin) / boards)
    memory = statistics.mean(resident_kib(server.pid) for server in servers)
    for server in servers:
        server.end()
    report(options, f"watch.cpu.{name}", shares, [GOAL_CPU] * len(shares), "of a core a board, theirs the goal")
    report(options, f"watch.rss.{name}", [memory], [GOAL_RSS_KIB], "KiB a board, theirs the goal")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--json", required=True)
    parser.add_argument("--exporter", help="prometheus-node-exporter; without it nothing is compared with it")
    parser.add_argument("--port", type=int, default=19700)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--smoke", action="store_true")
    options = parser.parse_args()
    options.build, options.json = options.build.resolve(), pathlib.Path(options.json).resolve()
    if options.smoke:
        options.rounds = 1
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        if options.exporter:
            scrapes(options)
        watched(options, 1, "one")
        watched(options, 3 if options.smoke else BOARDS, "fifty")


if __name__ == "__main__":
    main()
