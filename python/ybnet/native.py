# SPDX-License-Identifier: Apache-2.0
"""Loading libybnet.so.1, and its functions with their types.

libybnet leaves the platform's functions (logging, driver access, utilities) undefined: the process brings
them. They are loaded first, for everybody to see, unless the process has them already.
"""

from __future__ import annotations

import ctypes
import os
from collections.abc import Sequence
from typing import Any

from ybnet import layout
from ybnet.errors import check

DEFAULT_LIBRARY = "libybnet.so.1"
DEFAULT_PLATFORM = ("libyb_log.so.1", "libyb_util.so.1", "libybd.so.1")

# One function of each platform library.
_PLATFORM_FUNCTIONS = ("yb_log", "crc_16", "ybd_open_device")

# Arguments as the headers declare them; every function returns yb_status_t. A C compiler holds these texts
# against the headers in tests/test_layout.py.
PROTOTYPES: dict[str, tuple[str, ...]] = {
    "yb_net_init": ("yb_log_cb_t", "uint32_t", "uint32_t"),
    "yb_net_deinit": (),
    "yb_net_log_verbosity_level": ("yb_access_cmd_t", "uint32_t *"),
    "yb_net_interface_set": ("yb_access_cmd_t", "uint32_t", "yb_net_interface_params_t *"),
    "yb_net_interface_set_full": (
        "yb_access_cmd_t",
        "uint32_t",
        "yb_net_interface_params_t *",
        "uint16_t",
        "uint16_t",
    ),
    "net_lib_interface_remove_all": (),
    "yb_net_interface_rif_set": ("uint32_t", "uint16_t"),
    "yb_net_interface_vrid_set": ("uint32_t", "uint16_t"),
    "yb_net_interface_params_get": ("uint32_t", "yb_net_interface_record_t *"),
    "yb_net_interface_params_get_by_linux_ifindex_ns_vrf": (
        "uint32_t",
        "const char *",
        "const char *",
        "yb_net_interface_record_t *",
    ),
    "yb_net_interface_params_get_by_linux_ifindex_ns": (
        "uint32_t",
        "const char *",
        "yb_net_interface_record_t *",
    ),
    "yb_net_interface_state_set": ("uint32_t", "uint32_t"),
    "yb_net_interface_state_get": ("uint32_t", "uint32_t *"),
    "yb_net_port_set": ("yb_access_cmd_t", "uint32_t", "const yb_net_port_info_t *"),
    "yb_net_port_get": ("uint32_t", "yb_net_port_info_t *"),
    "yb_net_ports_get_all": ("uint32_t", "yb_net_port_info_t *", "uint32_t *"),
    "yb_net_port_lag_set": ("yb_access_cmd_t", "uint32_t", "uint32_t"),
    "yb_net_log_port_get": ("uint32_t", "uint32_t *"),
    "yb_net_lag_get": ("uint32_t", "uint32_t *"),
    "yb_net_mlag_get": ("uint32_t", "uint16_t *"),
    "yb_net_register_net_if_event_group": ("yb_access_cmd_t", "uint32_t", "yb_net_sk_t *"),
    "yb_net_if_event_receive": ("yb_net_sk_t *", "yb_net_if_event_t *"),
    "yb_net_get_fd": ("yb_net_sk_t *", "int32_t *"),
    "yb_net_set_buffer_size": ("yb_net_sk_t *", "uint32_t", "uint32_t"),
}

_SCALARS: dict[str, Any] = {
    "uint16_t": ctypes.c_uint16,
    "uint32_t": ctypes.c_uint32,
    "int32_t": ctypes.c_int32,
    "yb_access_cmd_t": ctypes.c_uint32,
    "yb_log_cb_t": layout.LOG_CALLBACK,
}


class LoadError(OSError):
    """libybnet or a library of the platform could not be loaded."""


def ctype_of(text: str) -> Any:
    """The ctypes type of an argument in PROTOTYPES."""
    if text == "const char *":
        return ctypes.c_char_p
    if not text.endswith("*"):
        return _SCALARS[text]
    pointed = text.removeprefix("const ").removesuffix("*").strip()
    structures = {structure.c_name: structure for structure in layout.STRUCTURES}
    return ctypes.POINTER(structures.get(pointed) or _SCALARS[pointed])


class Native:
    """libybnet's functions. Calling one raises for every status but SUCCESS."""

    def __init__(self, handle: ctypes.CDLL) -> None:
        self._functions: dict[str, Any] = {}
        for name, arguments in PROTOTYPES.items():
            try:
                function = getattr(handle, name)
            except AttributeError as problem:
                raise LoadError(str(problem)) from problem
            function.restype = ctypes.c_uint32
            function.argtypes = [ctype_of(argument) for argument in arguments]
            self._functions[name] = function

    def status(self, name: str, *arguments: Any) -> int:
        """Calls a function and returns its status."""
        return int(self._functions[name](*arguments))

    def call(self, name: str, *arguments: Any) -> None:
        """Calls a function; YbnetError unless it succeeds."""
        check(name, self.status(name, *arguments))


def _open(name: str, mode: int) -> ctypes.CDLL:
    try:
        return ctypes.CDLL(name, mode=mode | os.RTLD_NOW)
    except OSError as problem:
        raise LoadError(str(problem)) from problem


def _platform_is_there() -> bool:
    process = ctypes.CDLL(None)
    return all(hasattr(process, name) for name in _PLATFORM_FUNCTIONS)


def load(library: str | None = None, platform: Sequence[str] | None = None) -> Native:
    """Loads libybnet, and the platform's libraries before it.

    library: a name or path; else YBNET_LIBRARY of the environment, else "libybnet.so.1".
    platform: names or paths in the order in which they are to be loaded; else YBNET_PLATFORM_LIBRARIES,
    separated by colons, else the reference platform's. None is loaded when the process has the platform's
    functions already, linked or preloaded.
    """
    if library is None:
        library = os.environ.get("YBNET_LIBRARY") or DEFAULT_LIBRARY
    if platform is None:
        given = os.environ.get("YBNET_PLATFORM_LIBRARIES")
        platform = DEFAULT_PLATFORM if given is None else [name for name in given.split(":") if name]
    if not _platform_is_there():
        for name in platform:
            _open(name, os.RTLD_GLOBAL)
    return Native(_open(library, os.RTLD_LOCAL))
