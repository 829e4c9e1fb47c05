# SPDX-License-Identifier: Apache-2.0
"""libybnet for Python: router interfaces, ports and link events of a switch host.

    with ybnet.Library() as lib:
        lib.interface_create(1001, ybnet.Vlan(swid=0, vlan_id=5))
        with lib.events() as events:
            for event in events:
                print(event)

Nothing is compiled: the package calls libybnet.so.1 through ctypes. See Library.
"""

from ybnet.errors import EntryExists, EntryNotFound, Status, YbnetError
from ybnet.events import Event, EventKind, EventSocket
from ybnet.library import Library
from ybnet.native import LoadError, load
from ybnet.records import (
    Interface,
    Loopback,
    NameFormat,
    Params,
    Pkey,
    Port,
    PortInfo,
    PortVlan,
    Vlan,
    is_lag,
)

__all__ = [
    "EntryExists",
    "EntryNotFound",
    "Event",
    "EventKind",
    "EventSocket",
    "Interface",
    "Library",
    "LoadError",
    "Loopback",
    "NameFormat",
    "Params",
    "Pkey",
    "Port",
    "PortInfo",
    "PortVlan",
    "Status",
    "Vlan",
    "YbnetError",
    "is_lag",
    "load",
]
