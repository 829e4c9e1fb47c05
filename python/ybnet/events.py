# SPDX-License-Identifier: Apache-2.0
"""Link events: kernel messages about netdevs, translated to system ifindexes."""

from __future__ import annotations

import ctypes
import os
import select
from collections.abc import Iterator
from dataclasses import dataclass
from enum import IntEnum
from types import TracebackType

from ybnet import layout
from ybnet.errors import Status, check
from ybnet.native import Native
from ybnet.records import unsigned

_CMD_CREATE = 12
_CMD_DESTROY = 13
_GROUP_LINK = 0


class EventKind(IntEnum):
    """What happened to a link; LOST is this package's own, and means that events are missing."""

    NONE = 0
    DOWN = 1
    UP = 2
    CHANGE = 3
    DELETED = 4
    LOST = -1


@dataclass(frozen=True)
class Event:
    """One event. sys_ifindex None: a link that has no record, or an event of no link."""

    kind: EventKind
    sys_ifindex: int | None = None

    @property
    def lost(self) -> bool:
        """Events before this one are missing: read the states that matter anew."""
        return self.kind == EventKind.LOST


class EventSocket:
    """A subscription to link events, made by Library.events(). Close it, or use it in a with statement.

    Register it before the process sends its first request (which state_set() and port netdevs do): the
    socket takes the process id as its port id, as a request socket does that comes first. One per process.

    Iterating waits for events and yields them, lost ones too, until the socket is closed; messages that are
    no link events are skipped. For loops of one's own there are fileno() and receive().

    A socket belongs to one thread at a time. close() does not wake another one that waits in receive() or
    iterates, and frees a descriptor number that it still uses: have that thread stop (with a timeout, or poll
    on fileno() and something of one's own), then close.
    """

    def __init__(self, native: Native) -> None:
        self._native = native
        self._record = layout.EventSocketRecord()
        status = native.status(
            "yb_net_register_net_if_event_group", _CMD_CREATE, _GROUP_LINK, ctypes.byref(self._record)
        )
        self._closed = False
        if status != Status.SUCCESS:
            self._closed = True
            # A failed bind(2) leaves a descriptor behind, a failed socket(2) -1.
            if status == Status.ERROR and self._record.fd >= 0:
                os.close(self._record.fd)
            check("yb_net_register_net_if_event_group", status)

    def fileno(self) -> int:
        """The descriptor, readable when an event, or the news of a loss, waits."""
        fd = ctypes.c_int32(-1)
        self._native.call("yb_net_get_fd", ctypes.byref(self._record), ctypes.byref(fd))
        return fd.value

    def set_buffer_size(self, receive: int, send: int = 4096) -> None:
        """Sets the kernel's buffers, in bytes: a larger one makes losses rarer."""
        self._native.call(
            "yb_net_set_buffer_size",
            ctypes.byref(self._record),
            unsigned(receive, 32, "receive"),
            unsigned(send, 32, "send"),
        )

    def receive(self, timeout: float | None = None) -> Event | None:
        """Waits for one event, at most timeout seconds; None when none came in that time."""
        waiting = select.poll()
        waiting.register(self.fileno(), select.POLLIN)
        if not waiting.poll(None if timeout is None else max(0, int(timeout * 1000))):
            return None
        event = layout.EventRecord()
        status = self._native.status(
            "yb_net_if_event_receive", ctypes.byref(self._record), ctypes.byref(event)
        )
        if status == Status.ERROR:  # of a readable descriptor: always taken as a loss
            return Event(EventKind.LOST)
        check("yb_net_if_event_receive", status)
        return Event(EventKind(event.event_type), event.sys_ifindex or None)

    def __iter__(self) -> Iterator[Event]:
        while not self._closed:
            event = self.receive()
            if event is not None and event.kind != EventKind.NONE:
                yield event

    def close(self) -> None:
        """Ends the subscription; once is enough. By the thread that receives, or when none does any more."""
        if self._closed:
            return
        self._closed = True
        fd = self.fileno()
        self._native.call(
            "yb_net_register_net_if_event_group", _CMD_DESTROY, _GROUP_LINK, ctypes.byref(self._record)
        )
        os.close(fd)

    def __enter__(self) -> EventSocket:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, problem: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()
