# SPDX-License-Identifier: Apache-2.0
"""The library, started and stopped by a with statement, and its functions as methods."""

from __future__ import annotations

import ctypes
from collections.abc import Callable, Sequence
from contextlib import suppress
from types import TracebackType
from typing import Any

from ybnet import layout
from ybnet.errors import YbnetError
from ybnet.events import EventSocket
from ybnet.native import Native, load
from ybnet.records import (
    RIF_NONE,
    VRID_NONE,
    Interface,
    Params,
    PortInfo,
    array_of_ports,
    name_bytes,
    params_from_c,
    unsigned,
)

_CMD_EDIT = 2
_CMD_CREATE = 12
_CMD_DESTROY = 13
_CMD_SET = 15
_CMD_UNSET = 16
_CMD_GET = 17

_NAMESPACE_SIZE = 32
_VRF_SIZE = 16

LogCallback = Callable[[int, str, str], None]


class Library:
    """libybnet in this process: started on entering the with statement, stopped on leaving it.

    verbosity: 0 (silent) to 5 (DEBUG), of both modules. reinitialize: erase both databases, for every process. log: called
    with severity, module and text of each line, by the platform's logging library (the reference platform
    does; without it, lines go to standard error). It may be called while the library holds a lock, so it
    must not call the library. library, platform: see ybnet.load().

    Methods raise YbnetError, with the status, for what the library refuses, and ValueError for values that
    do not fit their C types. Those that make, change or remove netdevs, and state_set(), are called from one
    thread at a time; the others from any. One Library per process is started at a time.
    """

    def __init__(
        self,
        *,
        verbosity: int = 3,
        reinitialize: bool = False,
        log: LogCallback | None = None,
        library: str | None = None,
        platform: Sequence[str] | None = None,
    ) -> None:
        self._verbosity = unsigned(verbosity, 32, "verbosity")
        self._reinitialize = reinitialize
        self._native: Native = load(library, platform)
        # Kept as long as the library may call it.
        self._log = layout.LOG_CALLBACK(_decoding(log)) if log is not None else layout.LOG_CALLBACK()

    def __enter__(self) -> Library:
        # The start sets the API module's only; the databases' module is to heed it from its first line on.
        self.verbosity = self._verbosity
        try:
            self._native.call("yb_net_init", self._log, self._verbosity, int(self._reinitialize))
        except YbnetError:
            with suppress(YbnetError):  # what was started stays started; the first failure counts
                self._native.call("yb_net_deinit")
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, problem: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._native.call("yb_net_deinit")

    # ---- Verbosity -----------------------------------------------------------

    @property
    def verbosity(self) -> int:
        """The highest level that is written: 1 ERROR to 5 DEBUG, 0 for none."""
        level = ctypes.c_uint32()
        self._native.call("yb_net_log_verbosity_level", _CMD_GET, ctypes.byref(level))
        return level.value

    @verbosity.setter
    def verbosity(self, level: int) -> None:
        value = ctypes.c_uint32(unsigned(level, 32, "verbosity"))
        self._native.call("yb_net_log_verbosity_level", _CMD_SET, ctypes.byref(value))

    # ---- Router interfaces -----------------------------------------------------

    def interface_create(self, sys_ifindex: int, params: Params) -> Params:
        """Makes the netdev and its record; returns params with the netdev's final name."""
        block = params.to_c()
        self._native.call("yb_net_interface_set", _CMD_CREATE, _number(sys_ifindex), ctypes.byref(block))
        return params_from_c(block)

    def interface_create_full(
        self, sys_ifindex: int, params: Params, rif: int | None = None, vrid: int | None = None
    ) -> Params:
        """interface_create() with router interface id and VRID; no other process sees it half-made."""
        block = params.to_c()
        self._native.call(
            "yb_net_interface_set_full",
            _CMD_CREATE,
            _number(sys_ifindex),
            ctypes.byref(block),
            _or_none(rif, RIF_NONE, "rif"),
            _or_none(vrid, VRID_NONE, "vrid"),
        )
        return params_from_c(block)

    def interface_edit(self, sys_ifindex: int, params: Params) -> None:
        """Gives a PortVlan interface another VLAN id."""
        block = params.to_c()
        self._native.call("yb_net_interface_set", _CMD_EDIT, _number(sys_ifindex), ctypes.byref(block))

    def interface_destroy(self, sys_ifindex: int) -> None:
        """Removes the netdev and the record."""
        self._native.call("yb_net_interface_set", _CMD_DESTROY, _number(sys_ifindex), None)

    def interface_remove_all(self) -> None:
        """Removes all VLANs, then all ports; loopbacks stay."""
        self._native.call("net_lib_interface_remove_all")

    def interface_rif_set(self, sys_ifindex: int, rif: int | None) -> None:
        """Records the router interface id; None for none."""
        self._native.call("yb_net_interface_rif_set", _number(sys_ifindex), _or_none(rif, RIF_NONE, "rif"))

    def interface_vrid_set(self, sys_ifindex: int, vrid: int | None) -> None:
        """Records the VRID of an interface that has none; None clears it at any time."""
        self._native.call(
            "yb_net_interface_vrid_set", _number(sys_ifindex), _or_none(vrid, VRID_NONE, "vrid")
        )

    def interface(self, sys_ifindex: int) -> Interface:
        """The record; EntryNotFound when there is none."""
        return self._interface("yb_net_interface_params_get", _number(sys_ifindex))

    def interface_by_netdev(
        self, linux_ifindex: int, namespace: str = "", vrf: str | None = None
    ) -> Interface:
        """The record of a netdev; its VRF counts only when given. EntryNotFound when there is none."""
        index = unsigned(linux_ifindex, 32, "linux_ifindex")
        ns = name_bytes(namespace, _NAMESPACE_SIZE, "namespace")
        function = "yb_net_interface_params_get_by_linux_ifindex_ns"
        if vrf is None:
            return self._interface(function, index, ns)
        return self._interface(function + "_vrf", index, ns, name_bytes(vrf, _VRF_SIZE, "vrf"))

    def _interface(self, function: str, *key: Any) -> Interface:
        record = layout.InterfaceRecord()
        self._native.call(function, *key, ctypes.byref(record))
        return Interface.from_c(record)

    # ---- Link state ------------------------------------------------------------

    def state_set(self, sys_ifindex: int, up: bool) -> None:
        """Sets the administrative state of the interface's netdev."""
        self._native.call("yb_net_interface_state_set", _number(sys_ifindex), int(up))

    def state_get(self, sys_ifindex: int) -> bool:
        """Whether the interface's netdev is administratively up."""
        state = ctypes.c_uint32()
        self._native.call("yb_net_interface_state_get", _number(sys_ifindex), ctypes.byref(state))
        return state.value != 0

    def events(self) -> EventSocket:
        """Subscribes to link events."""
        return EventSocket(self._native)

    # ---- Ports -----------------------------------------------------------------

    def port_set(self, sys_ifindex: int, info: PortInfo) -> None:
        """Records a port, or merges info into its record."""
        record = info.to_c()
        self._native.call("yb_net_port_set", _CMD_SET, _number(sys_ifindex), ctypes.byref(record))

    def port_destroy(self, sys_ifindex: int) -> None:
        """Removes a port. One that was never recorded is often removed without a word."""
        self._native.call("yb_net_port_set", _CMD_DESTROY, _number(sys_ifindex), None)

    def port(self, sys_ifindex: int) -> PortInfo:
        """The record. A port that was never recorded usually reads as zeros."""
        record = layout.PortRecord()
        self._native.call("yb_net_port_get", _number(sys_ifindex), ctypes.byref(record))
        return PortInfo.from_c(record)

    def ports(self, protocol: int = 0) -> list[PortInfo]:
        """All recorded ports, or those with a protocol, in no order that means anything."""
        wanted = unsigned(protocol, 32, "protocol")
        size = ctypes.c_uint32()
        self._native.call("yb_net_ports_get_all", wanted, None, ctypes.byref(size))
        while True:
            # One more than there were: only an array that is not full has them all.
            room = size.value + 1
            records = array_of_ports(room)
            size.value = room
            self._native.call("yb_net_ports_get_all", wanted, records, ctypes.byref(size))
            if size.value < room:
                return [PortInfo.from_c(record) for record in records[: size.value]]
            size.value = room * 2

    def port_lag_set(self, sys_ifindex: int, lag_log_port: int | None) -> None:
        """Binds a port to a LAG; None unbinds it."""
        command = _CMD_UNSET if lag_log_port is None else _CMD_SET
        lag = unsigned(lag_log_port or 0, 32, "lag_log_port")
        self._native.call("yb_net_port_lag_set", command, _number(sys_ifindex), lag)

    def log_port(self, log_port: int) -> int:
        """The system ifindex of a logical port; EntryNotFound when it has none."""
        found = ctypes.c_uint32()
        self._native.call("yb_net_log_port_get", unsigned(log_port, 32, "log_port"), ctypes.byref(found))
        return found.value

    def lag_of_mlag(self, mlag_id: int) -> int | None:
        """The logical port of the LAG that an MLAG id is bound to; None for none."""
        found = ctypes.c_uint32()
        self._native.call("yb_net_lag_get", unsigned(mlag_id, 16, "mlag_id"), ctypes.byref(found))
        return found.value or None

    def mlag_of_lag(self, log_port: int) -> int | None:
        """The MLAG id that a LAG is bound to; None for none."""
        found = ctypes.c_uint16()
        self._native.call("yb_net_mlag_get", unsigned(log_port, 32, "log_port"), ctypes.byref(found))
        return found.value or None


def _number(sys_ifindex: int) -> int:
    return unsigned(sys_ifindex, 32, "sys_ifindex")


def _or_none(value: int | None, none: int, what: str) -> int:
    return none if value is None else unsigned(value, 16, what)


def _decoding(log: LogCallback) -> Callable[[int, bytes | None, bytes | None], None]:
    def call(severity: int, module: bytes | None, text: bytes | None) -> None:
        log(severity, (module or b"").decode(errors="replace"), (text or b"").decode(errors="replace"))

    return call
