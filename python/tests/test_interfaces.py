# SPDX-License-Identifier: Apache-2.0
"""Router interfaces and ports through the library itself, on the test kit's netdevs and shared memory.

Run under ybnet-testkit-run: ip(8) and vconfig(8) of the kit set the scene.
"""

import errno
import os
import subprocess
import unittest
from pathlib import Path
from unittest import mock

import ybnet
from ybnet.records import array_of_ports

LAG = 0x10000500
KIT = os.environ.get("YBNET_TESTKIT_DIR", "")


def ip(*words: str) -> None:
    subprocess.run(["ip", *words], check=True)


def runs() -> list[str]:
    return Path(KIT, "runs").read_text().splitlines()


@unittest.skipUnless(KIT, "needs ybnet-testkit-run")
class InterfacesTest(unittest.TestCase):
    def setUp(self) -> None:
        Path(KIT, "runs").unlink(missing_ok=True)
        ip("link", "add", "name", "swid0_eth", "type", "dummy")
        self.addCleanup(ip, "link", "del", "dev", "swid0_eth")
        self.lib = self.enterContext(ybnet.Library(reinitialize=True))

    def test_vlan_is_made_found_and_removed(self) -> None:
        made = self.lib.interface_create(1001, ybnet.Vlan(swid=0, vlan_id=5))
        self.assertEqual(ybnet.Vlan(swid=0, vlan_id=5, name="swid0_eth.5"), made)
        record = self.lib.interface(1001)
        self.assertEqual(ybnet.Interface(1001, record.linux_ifindex, made), record)
        self.assertEqual(record, self.lib.interface_by_netdev(record.linux_ifindex))
        self.assertEqual("vconfig add swid0_eth 5", runs()[-1])
        self.lib.interface_destroy(1001)
        with self.assertRaises(ybnet.EntryNotFound) as caught:
            self.lib.interface(1001)
        self.assertEqual(ybnet.Status.ENTRY_NOT_FOUND, caught.exception.status)
        self.assertIsInstance(caught.exception, LookupError)

    def test_full_create_records_ids_that_can_be_changed(self) -> None:
        vlan = ybnet.Vlan(swid=0, vlan_id=6, name_format=ybnet.NameFormat.VLAN, vrf="red")
        made = self.lib.interface_create_full(1002, vlan, rif=12, vrid=3)
        self.assertEqual(("vlan6", "red"), (made.name, made.vrf))
        record = self.lib.interface(1002)
        self.assertEqual((12, 3), (record.rif, record.vrid))
        self.assertEqual(record, self.lib.interface_by_netdev(record.linux_ifindex, vrf="red"))
        with self.assertRaises(ybnet.EntryNotFound):
            self.lib.interface_by_netdev(record.linux_ifindex, vrf="blue")
        with self.assertRaises(ybnet.EntryExists):
            self.lib.interface_vrid_set(1002, 4)
        self.lib.interface_vrid_set(1002, None)
        self.lib.interface_rif_set(1002, None)
        record = self.lib.interface(1002)
        self.assertEqual((None, None), (record.rif, record.vrid))
        self.lib.interface_destroy(1002)

    def test_interface_in_a_namespace_is_found_there_only(self) -> None:
        ip("netns", "add", "blue")
        self.addCleanup(ip, "netns", "del", "blue")
        self.lib.interface_create(1003, ybnet.Vlan(swid=0, vlan_id=7, namespace="blue"))
        record = self.lib.interface(1003)
        self.assertEqual("blue", record.params.namespace)
        self.assertEqual(record, self.lib.interface_by_netdev(record.linux_ifindex, "blue"))
        with self.assertRaises(ybnet.EntryNotFound):
            self.lib.interface_by_netdev(record.linux_ifindex)
        self.lib.interface_destroy(1003)

    def test_each_type_comes_back_as_it_was_given(self) -> None:
        for params in (
            ybnet.Vlan(swid=0, vlan_id=8, parent="swid0_eth"),
            ybnet.PortVlan(port_name="swid0_eth", vlan_id=9),
            ybnet.Port(name="sw1p1", value1=7, value2=0xFFFFFFFF),
            ybnet.Loopback(name="loop1"),
        ):
            with self.subTest(type(params).__name__):
                made = self.lib.interface_create(1004, params)
                self.assertEqual(made, self.lib.interface(1004).params)
                self.assertEqual(type(params), type(made))
                self.lib.interface_destroy(1004)

    def test_edit_changes_a_vlan_id(self) -> None:
        self.lib.interface_create(1005, ybnet.PortVlan(port_name="swid0_eth", vlan_id=10))
        self.lib.interface_edit(1005, ybnet.PortVlan(port_name="swid0_eth", vlan_id=11))
        self.assertEqual(11, self.lib.interface(1005).params.vlan_id)
        self.lib.interface_remove_all()
        with self.assertRaises(ybnet.EntryNotFound):
            self.lib.interface(1005)

    def test_state_is_set_and_read(self) -> None:
        self.lib.interface_create(1006, ybnet.Vlan(swid=0, vlan_id=12))
        self.assertFalse(self.lib.state_get(1006))
        self.lib.state_set(1006, True)
        self.assertTrue(self.lib.state_get(1006))
        self.lib.state_set(1006, False)
        self.assertFalse(self.lib.state_get(1006))
        self.lib.interface_destroy(1006)

    def test_refusal_carries_the_status_and_the_function(self) -> None:
        with self.assertRaises(ybnet.YbnetError) as caught:
            self.lib.interface_create(1007, ybnet.Vlan(swid=9, vlan_id=5))
        self.assertEqual(ybnet.Status.PARAM_ERROR, caught.exception.status)
        self.assertEqual("yb_net_interface_set", caught.exception.function)
        self.assertEqual("yb_net_interface_set: PARAM_ERROR", str(caught.exception))

    def test_values_that_do_not_fit_are_refused_before_the_call(self) -> None:
        for params in (
            ybnet.Vlan(swid=256, vlan_id=5),
            ybnet.Vlan(swid=0, vlan_id=0x10000),
            ybnet.Vlan(swid=0, vlan_id=-1),
            ybnet.Loopback(name="a" * 17),
            ybnet.Loopback(name="a\0b"),
            ybnet.Loopback(name="a", namespace="n" * 33),
        ):
            with self.subTest(params), self.assertRaises(ValueError):
                self.lib.interface_create(1008, params)
        with self.assertRaises(ValueError):
            self.lib.interface(1 << 32)

    def test_name_that_fills_its_field_arrives_whole(self) -> None:
        block = ybnet.Loopback(name="a" * 16, namespace="n" * 32).to_c()
        self.assertEqual((b"a" * 16, b"n" * 32), (block.name, block.ns_name))

    def test_verbosity_is_set_and_read(self) -> None:
        self.assertEqual(3, self.lib.verbosity)
        self.lib.verbosity = 5
        self.assertEqual(5, self.lib.verbosity)
        self.lib.verbosity = 3

    def test_library_that_cannot_start_is_stopped_again(self) -> None:
        Path(KIT, "fail", "open_device").write_text(str(errno.ENODEV))
        self.addCleanup(Path(KIT, "fail", "open_device").unlink)
        with self.assertRaises(ybnet.YbnetError) as caught, ybnet.Library(reinitialize=True):
            self.fail("started without a driver")
        self.assertEqual(ybnet.Status.DEVICE_ERROR, caught.exception.status)
        with self.assertRaises(ybnet.YbnetError) as caught:
            self.lib.interface(1001)
        self.assertEqual(ybnet.Status.DB_NOT_INITIALIZED, caught.exception.status)


@unittest.skipUnless(KIT, "needs ybnet-testkit-run")
class PortsTest(unittest.TestCase):
    def setUp(self) -> None:
        self.lib = self.enterContext(ybnet.Library(reinitialize=True))

    def test_port_comes_back_as_it_was_given(self) -> None:
        port = ybnet.PortInfo(
            attr_a=1,
            attr_b=2,
            attr_c=0xFFFFFFFF,
            protocol=1,
            log_port=0x0001_2300,
            attr_d=(4, 5, 6),
            attr_e=7,
            name="swp18",
            attr_f=8,
            attr_g=(9, 10, 11, 12),
            attr_h=13,
            attr_i=14,
        )
        self.lib.port_set(2001, port)
        self.assertEqual(port, self.lib.port(2001))
        self.assertEqual(2001, self.lib.log_port(0x0001_2300))
        self.lib.port_destroy(2001)
        with self.assertRaises(ybnet.EntryNotFound):
            self.lib.log_port(0x0001_2300)

    def test_set_merges_what_is_given(self) -> None:
        self.lib.port_set(2002, ybnet.PortInfo(attr_b=5, attr_c=6, name="a"))
        self.lib.port_set(2002, ybnet.PortInfo(attr_c=7))
        self.assertEqual(ybnet.PortInfo(attr_b=5, attr_c=7, name="a"), self.lib.port(2002))

    def test_all_ports_are_listed(self) -> None:
        self.assertEqual([], self.lib.ports())
        wanted = {f"p{i}" for i in range(1, 101)}
        for i in range(1, 101):
            self.lib.port_set(i, ybnet.PortInfo(name=f"p{i}", protocol=1 + i % 2, log_port=i << 8))
        self.assertEqual(wanted, {port.name for port in self.lib.ports()})
        self.assertEqual(50, len(self.lib.ports(protocol=2)))
        self.assertEqual({2}, {port.protocol for port in self.lib.ports(protocol=2)})

    def test_ports_recorded_while_they_are_listed_are_not_missed(self) -> None:
        call = self.lib._native.call

        def counting_is_followed_by_new_ports(function: str, *arguments: object) -> None:
            call(function, *arguments)
            if function == "yb_net_ports_get_all" and arguments[1] is None:
                for i in range(1, 11):
                    self.lib.port_set(i, ybnet.PortInfo(name=f"p{i}"))

        with mock.patch.object(self.lib._native, "call", counting_is_followed_by_new_ports):
            found = self.lib.ports()
        self.assertEqual({f"p{i}" for i in range(1, 11)}, {port.name for port in found})

    def test_lags_and_mlags_are_bound(self) -> None:
        self.assertTrue(ybnet.is_lag(LAG))
        self.assertFalse(ybnet.is_lag(0x00012300))
        self.lib.port_set(2003, ybnet.PortInfo(log_port=LAG, mlag_id=9, name="lag5"))
        self.lib.port_set(2004, ybnet.PortInfo(log_port=0x00012400, name="member"))
        self.assertEqual(LAG, self.lib.lag_of_mlag(9))
        self.assertEqual(9, self.lib.mlag_of_lag(LAG))
        self.assertIsNone(self.lib.lag_of_mlag(10))
        self.lib.port_lag_set(2004, LAG)
        self.assertEqual(LAG, self.lib.port(2004).lag_log_port)
        self.lib.port_lag_set(2004, None)
        self.assertEqual(0, self.lib.port(2004).lag_log_port)
        with self.assertRaises(ybnet.YbnetError) as caught:
            self.lib.lag_of_mlag(1001)
        self.assertEqual(ybnet.Status.PARAM_EXCEEDS_RANGE, caught.exception.status)

    def test_values_that_do_not_fit_are_refused_before_the_call(self) -> None:
        for port in (
            ybnet.PortInfo(attr_a=256),
            ybnet.PortInfo(mlag_id=1 << 16),
            ybnet.PortInfo(attr_d=(1, 2)),  # type: ignore[arg-type]
            ybnet.PortInfo(attr_g=(0, 0, 0, 1 << 32)),
            ybnet.PortInfo(name="n" * 17),
        ):
            with self.subTest(port), self.assertRaises(ValueError):
                self.lib.port_set(2005, port)

    def test_array_has_the_records_size(self) -> None:
        self.assertEqual(72 * 3, len(bytes(array_of_ports(3))))


if __name__ == "__main__":
    unittest.main()
