# SPDX-License-Identifier: Apache-2.0
"""What the enumerations and statuses made from ox_lyn.h are built on."""
import enum


class Number(enum.IntEnum):
    """A member of one of the header's enumerations: equal to its number, but to no member of another enumeration."""

    def __eq__(self, other):
        return self is other if isinstance(other, enum.Enum) else int(self) == other

    def __ne__(self, other):
        return not self == other

    __hash__ = int.__hash__


class Error(Exception):
    """An operation of the module failed. `status` is a Status, or the number of a modem client's own status."""

    def __init__(self, status, what):
        super().__init__(status, what)
        self.status = status

    def __str__(self):
        status, what = self.args
        if isinstance(status, enum.Enum):
            return f"{what}: {status.name} ({int(status)}), {self.__doc__}"
        return f"{what}: status {status}"
