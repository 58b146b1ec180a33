# SPDX-License-Identifier: Apache-2.0
"""The LYN Device Manager in Python: metrics, controls and events of a cellular modem board.

    import lyn

    with lyn.open() as modem:
        print(modem.get(lyn.Metric.LTE_SERV_RSRP), "dBm")
        modem.subscribe(lyn.Indication.LTE_RSRP, threshold=2)
        for event in modem.events(timeout=10):
            print(event.kind.name, event.value)

Metric, Control, Indication and Async name everything there is; blocks are dataclasses, and statuses are exceptions
derived from Error, NotSupported for one.
"""
from . import header
from .base import Error
from .header import *  # noqa: F403
from .modem import Modem, open
from .records import Event

__all__ = ["Error", "Event", "Modem", "open", *header.__all__]
__version__ = header.VERSION
