# SPDX-License-Identifier: Apache-2.0
"""Status codes as exceptions (ybnet/yb_status.h)."""

from __future__ import annotations

from enum import IntEnum


class Status(IntEnum):
    """What libybnet's functions return."""

    SUCCESS = 0
    ERROR = 1
    NO_RESOURCES = 5
    NO_MEMORY = 6
    CMD_UNSUPPORTED = 10
    CMD_INVALID = 11
    PARAM_NULL = 12
    PARAM_ERROR = 13
    PARAM_EXCEEDS_RANGE = 14
    DB_NOT_INITIALIZED = 18
    ENTRY_NOT_FOUND = 21
    ENTRY_ALREADY_EXISTS = 22
    ALREADY_INITIALIZED = 31
    DEVICE_ERROR = 102


class YbnetError(Exception):
    """A call that did not return SUCCESS.

    function is the C function's name, status what it returned: a Status, or a plain int that this package
    does not know. What went wrong in detail is in the log.
    """

    def __init__(self, function: str, status: int) -> None:
        self.function = function
        self.status: Status | int = Status(status) if status in Status._value2member_map_ else status
        name = self.status.name if isinstance(self.status, Status) else str(status)
        super().__init__(f"{function}: {name}")

    def __reduce__(self) -> tuple[type[YbnetError], tuple[str, int]]:
        return type(self), (self.function, int(self.status))


class EntryNotFound(YbnetError, LookupError):
    """No record matches the key."""


class EntryExists(YbnetError):
    """A record with this key exists, or a VRID is already set."""


def check(function: str, status: int) -> None:
    """Raises the exception that belongs to a status; SUCCESS has none."""
    if status == Status.SUCCESS:
        return
    if status == Status.ENTRY_NOT_FOUND:
        raise EntryNotFound(function, status)
    if status == Status.ENTRY_ALREADY_EXISTS:
        raise EntryExists(function, status)
    raise YbnetError(function, status)
