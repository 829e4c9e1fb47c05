# SPDX-License-Identifier: Apache-2.0
"""Link events of the real kernel, in network and mount namespaces of the test's own (sandbox_run), with the
reference platform; and what the package does without a kernel in it.
"""

import os
import pickle
import subprocess
import sys
import threading
import unittest

import ybnet
from ybnet import layout, native

SANDBOX = os.environ.get("YBNET_SANDBOX", "")


def ip(*words: str) -> None:
    subprocess.run(["ip", *words], check=True)


@unittest.skipUnless(SANDBOX, "needs sandbox_run")
class EventsTest(unittest.TestCase):
    def setUp(self) -> None:
        self.lines: list[tuple[int, str, str]] = []
        self.lib = self.enterContext(ybnet.Library(log=lambda *line: self.lines.append(line)))
        # First of all: the socket takes the process id as its port id.
        self.events = self.enterContext(self.lib.events())
        self.lib.interface_create(3001, ybnet.Loopback(name="loop1"))
        self.addCleanup(subprocess.run, ["ip", "link", "del", "loop1"], stderr=subprocess.DEVNULL)
        self.until_quiet()

    def until_quiet(self) -> list[ybnet.Event]:
        found = []
        while (event := self.events.receive(timeout=0)) is not None:
            found.append(event)
        return found

    def test_up_down_and_deletion_come_with_the_system_ifindex(self) -> None:
        ip("link", "set", "loop1", "up")
        self.assertIn(ybnet.Event(ybnet.EventKind.UP, 3001), self.until_quiet())
        self.assertTrue(self.lib.state_get(3001))
        ip("link", "set", "loop1", "down")
        self.assertIn(ybnet.Event(ybnet.EventKind.DOWN, 3001), self.until_quiet())
        ip("link", "del", "loop1")
        self.assertIn(ybnet.Event(ybnet.EventKind.DELETED, 3001), self.until_quiet())

    def test_links_without_a_record_have_no_system_ifindex(self) -> None:
        ip("link", "add", "a0", "type", "veth", "peer", "name", "b0")
        found = self.until_quiet()
        self.assertGreaterEqual(len(found), 2)
        self.assertEqual({None}, {event.sys_ifindex for event in found})
        ip("link", "del", "a0")

    def test_iterating_waits_for_events(self) -> None:
        changer = threading.Timer(0.01, ip, ("link", "set", "loop1", "up"))
        changer.start()
        self.assertEqual(
            ybnet.EventKind.UP, next(event.kind for event in self.events if event.sys_ifindex == 3001)
        )
        changer.join()

    def test_loss_is_visible_and_later_events_come(self) -> None:
        self.events.set_buffer_size(receive=1)  # the kernel's least: a few messages
        for _ in range(20):
            ip("link", "set", "loop1", "up")
            ip("link", "set", "loop1", "down")
        found = self.until_quiet()
        self.assertTrue(found[0].lost, "a loss is reported before what was queued")
        self.assertLess(len(found), 40)
        self.assertFalse(self.lib.state_get(3001))
        ip("link", "set", "loop1", "up")
        self.assertIn(ybnet.Event(ybnet.EventKind.UP, 3001), self.until_quiet())

    def test_second_socket_is_refused_and_leaves_no_descriptor(self) -> None:
        before = os.listdir("/proc/self/fd")
        with self.assertRaises(ybnet.YbnetError) as caught:
            self.lib.events()
        self.assertEqual(ybnet.Status.ERROR, caught.exception.status)
        self.assertEqual(before, os.listdir("/proc/self/fd"))
        self.assertTrue(any("cannot bind NETLINK_ROUTE socket" in text for _, _, text in self.lines))

    def test_closing_twice_is_once_and_frees_the_port_id(self) -> None:
        self.events.close()
        self.events.close()
        with self.lib.events() as again:
            self.assertIsNone(again.receive(timeout=0))
        self.assertEqual([], list(again))

    def test_log_callback_gets_severity_module_and_text(self) -> None:
        with self.assertRaises(ybnet.YbnetError):
            self.lib.interface_create(3002, ybnet.Vlan(swid=0, vlan_id=5))
        self.assertEqual((1, "YB_NET_LIB", "swid0_eth doesn't exist\n"), self.lines[-1])


@unittest.skipUnless(SANDBOX, "needs sandbox_run")
class VerbosityTest(unittest.TestCase):
    def test_verbosity_is_that_of_both_modules_from_the_start(self) -> None:
        complaint = (1, "YB_NET_LIB", "Netlib ports DB - cannot get port with sys_ifindex==0\n")
        for verbosity, expected in ((0, []), (1, [complaint])):
            with self.subTest(verbosity):
                lines: list[tuple[int, str, str]] = []
                with ybnet.Library(verbosity=verbosity, log=lambda *line: lines.append(line)) as lib:
                    with self.assertRaises(ybnet.YbnetError):
                        lib.port(0)
                self.assertEqual(expected, [line for line in lines if "ports DB" in line[2]])


class LoadTest(unittest.TestCase):
    def test_library_that_is_not_there_is_a_load_error(self) -> None:
        with self.assertRaises(ybnet.LoadError):
            ybnet.load("libybnet-nowhere.so.9", platform=[])

    def test_library_that_is_another_one_is_a_load_error(self) -> None:
        with self.assertRaisesRegex(ybnet.LoadError, "libm.so.6.*yb_net_init"):
            ybnet.load("libm.so.6")

    def test_platform_that_is_not_there_is_a_load_error(self) -> None:
        program = "import ybnet; ybnet.load(platform=['libybnet-nowhere.so.9'])"
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
        self.assertIn("ybnet.native.LoadError: libybnet-nowhere.so.9", done.stderr)

    def test_environment_names_library_and_platform(self) -> None:
        given = {"YBNET_LIBRARY": "nowhere1.so", "YBNET_PLATFORM_LIBRARIES": "nowhere2.so:"}
        for variable, value in given.items():
            with self.subTest(variable):
                done = subprocess.run(
                    [sys.executable, "-c", "import ybnet; ybnet.load()"],
                    env={**os.environ, variable: value},
                    capture_output=True,
                    text=True,
                )
                self.assertIn(f"ybnet.native.LoadError: {value.rstrip(':')}", done.stderr)

    def test_each_argument_has_a_type(self) -> None:
        for name, arguments in native.PROTOTYPES.items():
            with self.subTest(name):
                for argument in arguments:
                    self.assertIsNotNone(native.ctype_of(argument))

    def test_errors_survive_pickling(self) -> None:
        error = pickle.loads(pickle.dumps(ybnet.EntryNotFound("f", 21)))
        self.assertEqual((ybnet.EntryNotFound, "f", 21), (type(error), error.function, error.status))
        self.assertEqual(77, ybnet.YbnetError("f", 77).status)
        self.assertEqual("f: 77", str(ybnet.YbnetError("f", 77)))

    def test_event_socket_fields_share_their_place(self) -> None:
        record = layout.EventSocketRecord()
        record.fd = 7
        self.assertEqual(7, record.sk)


if __name__ == "__main__":
    unittest.main()
