# SPDX-License-Identifier: Apache-2.0
"""The C structures, field by field, under the names of the headers.

tests/test_layout.py compares each size and offset with what the C compiler says about the headers.
"""

from __future__ import annotations

import ctypes
from ctypes import c_char, c_int32, c_uint8, c_uint16, c_uint32, c_void_p

LOG_CALLBACK = ctypes.CFUNCTYPE(None, c_uint32, ctypes.c_char_p, ctypes.c_char_p)


class VlanParams(ctypes.Structure):
    c_name = "yb_net_vlan_params_t"
    _fields_ = [
        ("swid", c_uint8),
        ("reserved", c_uint8),
        ("vlan_id", c_uint16),
        ("name_format", c_uint32),
        ("parent_given", c_uint32),
        ("parent_name", c_char * 16),
    ]


class PortVlanParams(ctypes.Structure):
    c_name = "yb_net_port_vlan_params_t"
    _fields_ = [
        ("unused", c_uint8 * 8),
        ("vlan_id", c_uint16),
        ("port_name", c_char * 16),
        ("unused_tail", c_uint8 * 2),
    ]


class PortParams(ctypes.Structure):
    c_name = "yb_net_port_params_t"
    _fields_ = [("value1", c_uint32), ("value2", c_uint32), ("unused", c_uint8 * 20)]


class ByType(ctypes.Union):
    """The unnamed union of InterfaceParams."""

    _fields_ = [
        ("vlan", VlanParams),
        ("port_vlan", PortVlanParams),
        ("port", PortParams),
        ("bytes", c_uint8 * 28),
    ]


class InterfaceParams(ctypes.Structure):
    c_name = "yb_net_interface_params_t"
    _fields_ = [
        ("name", c_char * 16),
        ("ns_name", c_char * 32),
        ("vrf_name", c_char * 16),
        ("vrf_valid", c_uint32),
        ("type", c_uint32),
        ("by_type", ByType),
    ]


class InterfaceRecord(ctypes.Structure):
    c_name = "yb_net_interface_record_t"
    _fields_ = [
        ("sys_ifindex", c_uint32),
        ("linux_ifindex", c_uint32),
        ("params", InterfaceParams),
        ("rif", c_uint16),
        ("vrid", c_uint16),
    ]


class PortRecord(ctypes.Structure):
    c_name = "yb_net_port_info_t"
    _fields_ = [
        ("attr_a", c_uint8),
        ("attr_b", c_uint8),
        ("reserved1", c_uint8 * 2),
        ("attr_c", c_uint32),
        ("protocol", c_uint32),
        ("log_port", c_uint32),
        ("lag_log_port", c_uint32),
        ("attr_d", c_uint8 * 3),
        ("reserved2", c_uint8),
        ("attr_e", c_uint16),
        ("mlag_id", c_uint16),
        ("name", c_char * 16),
        ("attr_f", c_uint8),
        ("reserved3", c_uint8 * 3),
        ("attr_g", c_uint32 * 4),
        ("attr_h", c_uint8),
        ("reserved4", c_uint8 * 3),
        ("attr_i", c_uint32),
    ]


class _Socket(ctypes.Union):
    _fields_ = [("sk", c_void_p), ("fd", c_int32)]


class EventSocketRecord(ctypes.Structure):
    c_name = "yb_net_sk_t"
    _anonymous_ = ("_socket",)
    _fields_ = [("type", c_uint32), ("_socket", _Socket)]


class EventRecord(ctypes.Structure):
    c_name = "yb_net_if_event_t"
    _fields_ = [("event_type", c_uint32), ("sys_ifindex", c_uint32)]


STRUCTURES: tuple[type[ctypes.Structure], ...] = (
    VlanParams,
    PortVlanParams,
    PortParams,
    InterfaceParams,
    InterfaceRecord,
    PortRecord,
    EventSocketRecord,
    EventRecord,
)
