#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""watch_signal.py [SECONDS]: the serving cell of LTE and NR 5G, and then every change of its signal, for some seconds
or until the end of the input (Ctrl-D) or Ctrl-C. What signal.c does, in Python.
"""
import os
import select
import sys
import threading
import time

import lyn
from lyn import Indication, Metric

# What is read once and, with a threshold, watched; and how many of the API's units make one of ours.
VALUES = [
    (Metric.REG_STATUS, Indication.REG_STATUS, 1, "registration status", "", 1),
    (Metric.LTE_SERV_EARFCN, None, 0, "LTE EARFCN", "", 1),
    (Metric.LTE_SERV_PCI, None, 0, "LTE PCI", "", 1),
    (Metric.LTE_SERV_RSRP, Indication.LTE_RSRP, 2, "LTE RSRP", " dBm", 1),
    (Metric.LTE_SERV_RSRQ, Indication.LTE_RSRQ, 1, "LTE RSRQ", " dB", 1),
    (Metric.LTE_SERV_SINR, Indication.LTE_SINR, 10, "LTE SINR", " dB", 10),
    (Metric.NR5G_SERV_EARFCN, None, 0, "NR 5G ARFCN", "", 1),
    (Metric.NR5G_SERV_PCI, None, 0, "NR 5G PCI", "", 1),
    (Metric.NR5G_SERV_RSRP, Indication.NR5G_RSRP, 2, "NR 5G RSRP", " dBm", 1),
    (Metric.NR5G_SERV_RSRQ, Indication.NR5G_RSRQ, 1, "NR 5G RSRQ", " dB", 1),
    (Metric.NR5G_SERV_SINR, Indication.NR5G_SINR, 10, "NR 5G SINR", " dB", 10),
]


def print_value(number, name, unit, scale):
    print(f"{name}: {number / scale:.10g}{unit}", flush=True)


def print_serving_cell(modem):
    for metric, _, _, name, unit, scale in VALUES:
        try:
            print_value(modem.get(metric), name, unit, scale)
        except (lyn.InfoUnavailable, lyn.ServiceUnavailable):
            print(f"{name}: not available")


def close_at_end(modem, seconds):
    """Of the time or the input, beside the events: a close ends the iteration over them."""
    end = time.monotonic() + seconds
    left = seconds or None
    while (left is None or left > 0) and select.select([0], [], [], left)[0] and os.read(0, 4096):
        left = seconds and end - time.monotonic() or None
    modem.close()


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 0
    with lyn.open() as modem:
        print_serving_cell(modem)
        watched = {}
        for _, indication, threshold, *how in VALUES:
            if indication:
                modem.subscribe(indication, threshold)
                watched[indication] = how
        threading.Thread(target=close_at_end, args=[modem, seconds], daemon=True).start()
        for event in modem.events():
            if event.kind in watched:
                print_value(event.value, *watched[event.kind])


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
    except lyn.Error as error:
        sys.exit(str(error))
