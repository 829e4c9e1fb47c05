# SPDX-License-Identifier: Apache-2.0
"""The package against the headers, as the C compiler reads them: drift of either fails.

YBNET_INCLUDE names the directory of the headers, CC the compiler.
"""

import ctypes
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from ybnet import errors, events, layout, library, native, records

INCLUDE = os.environ.get("YBNET_INCLUDE", str(Path(__file__).parents[2] / "include"))
CC = os.environ.get("CC", "cc")

# Constants that the package writes out, under the names that the headers have for them.
CONSTANTS = {
    **{f"YB_STATUS_{status.name}": status.value for status in errors.Status},
    **{f"YB_NET_IF_EVENT_LINK_{kind.name}": kind.value for kind in events.EventKind if kind.value > 0},
    "YB_NET_IF_EVENT_NONE": events.EventKind.NONE,
    "YB_ACCESS_CMD_EDIT": library._CMD_EDIT,
    "YB_ACCESS_CMD_CREATE": library._CMD_CREATE,
    "YB_ACCESS_CMD_DESTROY": library._CMD_DESTROY,
    "YB_ACCESS_CMD_SET": library._CMD_SET,
    "YB_ACCESS_CMD_UNSET": library._CMD_UNSET,
    "YB_ACCESS_CMD_GET": library._CMD_GET,
    "YB_NET_IF_EVENT_GROUP_LINK": events._GROUP_LINK,
    "YB_L2_INTERFACE_TYPE_VLAN": records.Vlan.type,
    "YB_L2_INTERFACE_TYPE_PORT_VLAN": records.PortVlan.type,
    "YB_L2_INTERFACE_TYPE_PORT": records.Port.type,
    "YB_L2_INTERFACE_TYPE_PKEY": records.Pkey.type,
    "YB_L2_INTERFACE_TYPE_LOOPBACK": records.Loopback.type,
    "YB_NET_NAME_FORMAT_SWID": records.NameFormat.SWID,
    "YB_NET_NAME_FORMAT_VLAN": records.NameFormat.VLAN,
    "YB_NET_RIF_NONE": records.RIF_NONE,
    "YB_NET_VRID_NONE": records.VRID_NONE,
    "YB_NET_PORT_ATTR_B_NONE": records.PORT_ATTR_B_NONE,
    "YB_NET_LOG_PORT_TYPE_LAG": records._LOG_PORT_TYPE_LAG,
    "YB_NET_IF_STATE_UP": 1,
    "YB_NET_NS_NAME_SIZE": library._NAMESPACE_SIZE,
    "YB_NET_VRF_NAME_SIZE": library._VRF_SIZE,
}

PROGRAM_HEAD = """
#include <stddef.h>
#include <stdio.h>
#include <ybnet/net_lib.h>
#define SIZE(type) printf(#type " %zu\\n", sizeof(type))
#define FIELD(type, field) \\
    printf(#type "." #field " %zu %zu\\n", offsetof(type, field), sizeof(((type *)0)->field))
#define CONSTANT(name) printf(#name " %lld\\n", (long long)(name))
"""


def compiled(body: str) -> str:
    """The output of a C program."""
    with tempfile.TemporaryDirectory() as work:
        source = Path(work, "program.c")
        source.write_text(PROGRAM_HEAD + body)
        program = Path(work, "program")
        done = subprocess.run(
            [CC, "-std=gnu11", "-Wall", "-Werror", f"-I{INCLUDE}", "-o", program, source],
            capture_output=True,
            text=True,
        )
        if done.returncode != 0:
            raise AssertionError(done.stderr)
        return subprocess.run([program], check=True, capture_output=True, text=True).stdout


def paths_of(structure: type, prefix: str = "", base: int = 0) -> list[tuple[str, int, int]]:
    """Field paths, offsets and sizes, those inside unions and structures included."""
    found = []
    anonymous = getattr(structure, "_anonymous_", ())
    for name, kind, *_ in structure._fields_:
        offset = base + getattr(structure, name).offset
        if name not in anonymous:
            found.append((prefix + name, offset, ctypes.sizeof(kind)))
        if issubclass(kind, (ctypes.Structure, ctypes.Union)):
            inner = prefix if name in anonymous else f"{prefix}{name}."
            found += paths_of(kind, inner, offset)
    return found


class LayoutTest(unittest.TestCase):
    def test_structures_are_laid_out_as_the_compiler_says(self) -> None:
        expected = []
        body = "int main(void) {\n"
        for structure in layout.STRUCTURES:
            body += f"    SIZE({structure.c_name});\n"
            expected.append(f"{structure.c_name} {ctypes.sizeof(structure)}")
            for path, offset, size in paths_of(structure):
                body += f"    FIELD({structure.c_name}, {path});\n"
                expected.append(f"{structure.c_name}.{path} {offset} {size}")
        self.assertGreater(len(expected), 60)
        self.assertEqual(expected, compiled(body + "    return 0;\n}\n").splitlines())

    def test_fields_leave_no_gap(self) -> None:
        """A field that the headers gain inside padding, or that the package forgot, would be one."""
        for structure in layout.STRUCTURES:
            if structure is layout.EventSocketRecord:
                continue  # 4 bytes of padding before a pointer
            with self.subTest(structure.c_name):
                sizes = [ctypes.sizeof(kind) for _, kind in structure._fields_]
                self.assertEqual(ctypes.sizeof(structure), sum(sizes))

    def test_constants_have_the_headers_values(self) -> None:
        body = "int main(void) {\n" + "".join(f"    CONSTANT({name});\n" for name in CONSTANTS)
        expected = [f"{name} {int(value)}" for name, value in CONSTANTS.items()]
        self.assertEqual(expected, compiled(body + "    return 0;\n}\n").splitlines())

    def test_every_status_of_the_header_is_known(self) -> None:
        header = Path(INCLUDE, "ybnet", "yb_status.h").read_text()
        names = re.findall(r"^ *YB_STATUS_([A-Z_]+) = ", header, re.MULTILINE)
        self.assertEqual([status.name for status in errors.Status], names)

    def test_prototypes_are_the_headers(self) -> None:
        """Weak, so that nothing need be linked: the compiler only compares types."""
        body = "int main(void) {\n"
        for name, arguments in native.PROTOTYPES.items():
            body += f"    yb_status_t (*const {name}_)({', '.join(arguments) or 'void'}) = {name};\n"
            body += f"    (void){name}_;\n"
        weak = "".join(f"#pragma weak {name}\n" for name in native.PROTOTYPES)
        self.assertEqual("", compiled(weak + body + "    return 0;\n}\n"))

    def test_drift_is_noticed(self) -> None:
        """Both checks fail for a wrong type: they compare, and do not only compile."""
        with self.assertRaises(AssertionError):
            compiled("int main(void) { yb_status_t (*f)(uint32_t) = yb_net_deinit; (void)f; return 0; }\n")
        with self.assertRaises(AssertionError):
            compiled("int main(void) { FIELD(yb_net_port_info_t, attr_z); return 0; }\n")


if __name__ == "__main__":
    unittest.main()
