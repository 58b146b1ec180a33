# SPDX-License-Identifier: Apache-2.0
"""The module as a context manager: one method for each operation, and the events as an iterator."""
import atexit
import itertools
import queue
import threading
from collections.abc import Iterable, Iterator

from ._ox_lyn import ffi, lib
from .base import Error
from .header import ERRORS, Control, Indication, Metric, NotInitialized, RecordType, Status, ValueType
from .records import Event, Question, named, order, take_event

# Where the callback puts the events of each user of the module, by the user_data given to it.
_queues = {}
_users = itertools.count(1)
_callback = threading.local()


@ffi.def_extern()
def lyn_on_event(_, info, user):
    """Runs on the module's own thread, under its lock: it only takes the event. A failure to goes to the reader."""
    _callback.runs = True
    try:
        item = take_event(info)
    except BaseException as error:  # nobody could catch it behind the module
        item = error
    _queues[user].put(item)


def _check(status, what):
    if status:
        status = named(Status, status)
        raise ERRORS.get(status, Error)(status, what)


def _member(kind, value):
    if not isinstance(value, kind):
        raise TypeError(f"a lyn.{kind.__name__} is needed, not {value!r}")
    return value


class Modem:
    """The module while it is up. Any thread may call it, but for what Python runs on the module's own (a finalizer).

    A call returns when the modem has answered, for which it has 50 s a request, and other Python threads run meanwhile.
    """

    def __init__(self):
        handle, user = ffi.new("ox_lyn_hndl_t *"), next(_users) & 0xFFFFFFFF
        self._events = _queues[user] = queue.SimpleQueue()
        self._user, self._handle, self._gate = user, 0, threading.Lock()
        status = lib.ox_lyn_init(handle, user, lib.lyn_on_event)
        if status:
            del _queues[user]
        _check(status, "open")
        self._handle = handle[0]
        atexit.register(self.close)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self) -> None:
        """Take the module down, which ends every iteration over the events. A second time it does nothing."""
        with self._gate:
            if not self._handle:
                return
            self._refuse_callback()
            handle, self._handle = self._handle, 0
            status = lib.ox_lyn_deinit(handle)
        atexit.unregister(self.close)
        del _queues[self._user]
        self._events.put(None)
        _check(status, "close")

    def get(self, metric: Metric, argument=None):
        """Read a metric: a number, a member of an enumeration, a block, a list of them, or octets; or start one that is
        answered by an event, and return None. `argument` is what some metrics take, a block or a profile's index.
        """
        return self._ask("get", [(metric, argument)], lib.ox_lyn_get_info)[0]

    def get_list(self, metrics: Iterable[Metric | tuple]) -> list:
        """Read several metrics in one call; those of neighbours share one scan. One that takes an argument is given as
        a pair.
        """
        pairs = [each if isinstance(each, tuple) else (each, None) for each in metrics]
        return self._ask("get_list", pairs, lib.ox_lyn_get_info_list, len(pairs))

    def _ask(self, operation, pairs, function, *count):
        infos = ffi.new("ox_lyn_dm_info_t[]", len(pairs))
        questions = [Question(infos[at], _member(Metric, metric), argument)
                     for at, (metric, argument) in enumerate(pairs)]
        try:
            self._call(f"{operation} {', '.join(metric.name for metric, _ in pairs)}", function, infos, *count)
            return [question.answer() for question in questions]
        finally:
            for question in questions:
                question.release()

    def set(self, control: Control, value=None) -> None:
        """Carry out a control. `value` is the block or number that it takes."""
        record, block = order(_member(Control, control), value)
        self._call(f"set {control.name}", lib.ox_lyn_set_info, record)
        del block

    def subscribe(self, indication: Indication, threshold: int = 1) -> None:
        """Subscribe an indication; those of the signal come when it has changed by `threshold`, 1 to 65535."""
        what = f"subscribe {_member(Indication, indication).name}"
        if not 1 <= threshold <= 0xFFFF:
            raise ValueError(f"{what}: a threshold is 1 to 65535, not {threshold}")
        record = ffi.new("ox_lyn_dm_ind_info_t *", (RecordType.IND, indication, ValueType.INT64, threshold))
        self._call(what, lib.ox_lyn_set_ind_info, record)

    def unsubscribe(self, *indications: Indication) -> None:
        """Unsubscribe indications, all or none; one that is not subscribed is no error."""
        numbers = [_member(Indication, each) for each in indications]
        self._call(f"unsubscribe {', '.join(each.name for each in numbers)}", lib.ox_lyn_clear_ind_list,
                   ffi.new("uint32_t[]", numbers), len(numbers))

    def subscriptions(self) -> list[Indication]:
        """What is subscribed, in the module's order."""
        numbers = ffi.new("uint32_t[]", len(Indication))
        self._call("subscriptions", lib.ox_lyn_get_ind_list, numbers, len(numbers))
        return [Indication(number) for number in numbers if number]

    def events(self, timeout: float | None = None) -> Iterator[Event]:
        """The events in their order, each once: indications and answers. Ends when none has come for `timeout` seconds,
        and when the module is closed.
        """
        self._open_handle("events")
        return self._arrivals(timeout)

    def _arrivals(self, timeout):
        while True:
            try:
                item = self._events.get(timeout=timeout)
            except queue.Empty:
                return
            if item is None:
                self._events.put(None)  # for other readers
                return
            if isinstance(item, BaseException):
                raise item
            yield item

    def _open_handle(self, what):
        self._refuse_callback()
        if not self._handle:
            raise NotInitialized(Status.ERR_NOT_INITIALIZED, f"{what} after close")
        return self._handle

    @staticmethod
    def _refuse_callback():
        if getattr(_callback, "runs", False):
            raise RuntimeError("the module cannot be called from the thread of its events")

    def _call(self, what, function, *arguments):
        _check(function(self._open_handle(what), *arguments), what)


def open() -> Modem:  # as lyn.open
    """Bring the module up; there is one in a process. Use it in a `with` statement, or close it."""
    return Modem()
