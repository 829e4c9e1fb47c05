# SPDX-License-Identifier: Apache-2.0
"""Router interfaces and ports as values, and their way into C structures and back."""

from __future__ import annotations

import ctypes
import os
from dataclasses import dataclass, field
from enum import IntEnum
from typing import Any, ClassVar

from ybnet import layout

RIF_NONE = 0xFFFF
VRID_NONE = 255
PORT_ATTR_B_NONE = 255

_TYPE_VLAN = 0
_TYPE_PORT_VLAN = 1
_TYPE_PORT = 2
_TYPE_PKEY = 3
_TYPE_LOOPBACK = 6
_LOG_PORT_TYPE_LAG = 1


class NameFormat(IntEnum):
    """How a VLAN netdev is called: "swid0_eth.5", or "vlan5"."""

    SWID = 0
    VLAN = 1


def unsigned(value: int, bits: int, what: str) -> int:
    """The value itself; ctypes would cut one that is out of range in silence."""
    if not 0 <= value < 1 << bits:
        raise ValueError(f"{what} is {value}: not a number of {bits} bits")
    return value


def name_bytes(text: str, size: int, what: str) -> bytes:
    """A name for a field of so many bytes. The library itself refuses one that fills it."""
    raw = os.fsencode(text)
    if b"\0" in raw or len(raw) > size:
        raise ValueError(f"{what} is {text!r}: it has a NUL or more than {size} bytes")
    return raw


def _text(raw: bytes) -> str:
    return os.fsdecode(raw)


@dataclass(frozen=True, kw_only=True)
class Params:
    """What all router interfaces have. vrf None: not given."""

    name: str = ""
    namespace: str = ""
    vrf: str | None = None
    type: ClassVar[int]

    def _fill(self, by_type: layout.ByType) -> None:
        """Writes the part that depends on the type."""

    def to_c(self) -> layout.InterfaceParams:
        """The parameter block; ValueError for what does not fit a field."""
        block = layout.InterfaceParams()
        block.name = name_bytes(self.name, 16, "name")
        block.ns_name = name_bytes(self.namespace, 32, "namespace")
        block.vrf_name = name_bytes(self.vrf or "", 16, "vrf")
        block.vrf_valid = 0 if self.vrf is None else 1
        block.type = self.type
        self._fill(block.by_type)
        return block


@dataclass(frozen=True, kw_only=True)
class Vlan(Params):
    """A VLAN on a switch partition's netdev, or on parent."""

    swid: int
    vlan_id: int
    name_format: NameFormat = NameFormat.SWID
    parent: str | None = None
    type: ClassVar[int] = _TYPE_VLAN

    def _fill(self, by_type: layout.ByType) -> None:
        vlan = by_type.vlan
        vlan.swid = unsigned(self.swid, 8, "swid")
        vlan.vlan_id = unsigned(self.vlan_id, 16, "vlan_id")
        vlan.name_format = unsigned(int(self.name_format), 32, "name_format")
        vlan.parent_given = 0 if self.parent is None else 1
        vlan.parent_name = name_bytes(self.parent or "", 16, "parent")


@dataclass(frozen=True, kw_only=True)
class PortVlan(Params):
    """A VLAN on a port's netdev."""

    vlan_id: int
    port_name: str
    type: ClassVar[int] = _TYPE_PORT_VLAN

    def _fill(self, by_type: layout.ByType) -> None:
        by_type.port_vlan.vlan_id = unsigned(self.vlan_id, 16, "vlan_id")
        by_type.port_vlan.port_name = name_bytes(self.port_name, 16, "port_name")


@dataclass(frozen=True, kw_only=True)
class Port(Params):
    """A netdev of the switch's kernel driver, which gets both values as they are."""

    value1: int = 0
    value2: int = 0
    type: ClassVar[int] = _TYPE_PORT

    def _fill(self, by_type: layout.ByType) -> None:
        by_type.port.value1 = unsigned(self.value1, 32, "value1")
        by_type.port.value2 = unsigned(self.value2, 32, "value2")


@dataclass(frozen=True, kw_only=True)
class Pkey(Params):
    """An InfiniBand partition key; recorded by others, never made by the library."""

    type: ClassVar[int] = _TYPE_PKEY


@dataclass(frozen=True, kw_only=True)
class Loopback(Params):
    """A bridge without ports."""

    type: ClassVar[int] = _TYPE_LOOPBACK


def params_from_c(block: layout.InterfaceParams) -> Params:
    """The value of a parameter block; ValueError for a type that this package does not know."""
    common: dict[str, Any] = {
        "name": _text(block.name),
        "namespace": _text(block.ns_name),
        "vrf": _text(block.vrf_name) if block.vrf_valid == 1 else None,
    }
    if block.type == _TYPE_VLAN:
        vlan = block.by_type.vlan
        known = vlan.name_format in (NameFormat.SWID, NameFormat.VLAN)
        return Vlan(
            **common,
            swid=vlan.swid,
            vlan_id=vlan.vlan_id,
            name_format=NameFormat(vlan.name_format) if known else vlan.name_format,
            parent=_text(vlan.parent_name) if vlan.parent_given else None,
        )
    if block.type == _TYPE_PORT_VLAN:
        port_vlan = block.by_type.port_vlan
        return PortVlan(**common, vlan_id=port_vlan.vlan_id, port_name=_text(port_vlan.port_name))
    if block.type == _TYPE_PORT:
        return Port(**common, value1=block.by_type.port.value1, value2=block.by_type.port.value2)
    if block.type == _TYPE_PKEY:
        return Pkey(**common)
    if block.type == _TYPE_LOOPBACK:
        return Loopback(**common)
    raise ValueError(f"router interface type {block.type} is not known")


@dataclass(frozen=True)
class Interface:
    """One recorded router interface. rif and vrid None: it has none."""

    sys_ifindex: int
    linux_ifindex: int
    params: Params
    rif: int | None = None
    vrid: int | None = None

    @classmethod
    def from_c(cls, record: layout.InterfaceRecord) -> Interface:
        return cls(
            sys_ifindex=record.sys_ifindex,
            linux_ifindex=record.linux_ifindex,
            params=params_from_c(record.params),
            rif=None if record.rif == RIF_NONE else record.rif,
            vrid=None if record.vrid == VRID_NONE else record.vrid,
        )


@dataclass(frozen=True, kw_only=True)
class PortInfo:
    """One port as its owner describes it.

    In a set, 0 (attr_b: None; name: "") means "leave what is recorded"; ybnet/yb_net_port.h has the whole
    rule. A port that was never recorded usually reads as one whose fields are all 0.
    """

    attr_a: int = 0
    attr_b: int | None = None
    attr_c: int = 0
    protocol: int = 0
    log_port: int = 0
    lag_log_port: int = 0
    attr_d: tuple[int, int, int] = (0, 0, 0)
    attr_e: int = 0
    mlag_id: int = 0
    name: str = ""
    attr_f: int = 0
    attr_g: tuple[int, int, int, int] = field(default=(0, 0, 0, 0))
    attr_h: int = 0
    attr_i: int = 0

    _BITS: ClassVar[dict[str, int]] = {
        "attr_a": 8,
        "attr_c": 32,
        "protocol": 32,
        "log_port": 32,
        "lag_log_port": 32,
        "attr_e": 16,
        "mlag_id": 16,
        "attr_f": 8,
        "attr_h": 8,
        "attr_i": 32,
    }

    def to_c(self) -> layout.PortRecord:
        """The record; ValueError for what does not fit a field."""
        record = layout.PortRecord()
        for name, bits in self._BITS.items():
            setattr(record, name, unsigned(getattr(self, name), bits, name))
        record.attr_b = PORT_ATTR_B_NONE if self.attr_b is None else unsigned(self.attr_b, 8, "attr_b")
        for name, bits, length in (("attr_d", 8, 3), ("attr_g", 32, 4)):
            values = [unsigned(value, bits, name) for value in getattr(self, name)]
            if len(values) != length:
                raise ValueError(f"{name} has {len(values)} values, not {length}")
            setattr(record, name, type(getattr(record, name))(*values))
        record.name = name_bytes(self.name, 16, "name")
        return record

    @classmethod
    def from_c(cls, record: layout.PortRecord) -> PortInfo:
        values: dict[str, Any] = {name: getattr(record, name) for name in cls._BITS}
        values["attr_b"] = None if record.attr_b == PORT_ATTR_B_NONE else record.attr_b
        values["attr_d"] = tuple(record.attr_d)
        values["attr_g"] = tuple(record.attr_g)
        return cls(**values, name=_text(record.name))


def is_lag(log_port: int) -> bool:
    """Whether a logical port is a LAG."""
    return unsigned(log_port, 32, "log_port") >> 28 == _LOG_PORT_TYPE_LAG


def array_of_ports(length: int) -> ctypes.Array[layout.PortRecord]:
    """Room for so many ports."""
    return (layout.PortRecord * length)()
