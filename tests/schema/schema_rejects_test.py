"""The document schemas reject wrong documents and accept the right ones.

The base is a hand-written document with every section filled as the
driver's sections are laid out (samples/every_section_filled.json), the
three PCI sections included; each case changes one thing a faulty filler or
a careless consumer-side "fix" would change, and the checker must refuse it.
"""
import copy
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from document_schema import SECTION_ORDER, DocumentChecker, Members, dump_members, load_members  # noqa: E402

SAMPLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "samples", "every_section_filled.json")


def at(tree, path):
    """The value at path: keys name the first member of that name, numbers index lists."""
    for step in path:
        if isinstance(step, int):
            tree = tree[step]
        else:
            tree = next(value for key, value in tree if key == step)
    return tree


def set_member(tree, path, value):
    parent = at(tree, path[:-1])
    for index, (key, _) in enumerate(parent):
        if key == path[-1]:
            parent[index] = (key, value)
            return
    parent.append((path[-1], value))


def rename_member(tree, path, new_name):
    parent = at(tree, path[:-1])
    index = next(i for i, (key, _) in enumerate(parent) if key == path[-1])
    parent[index] = (new_name, parent[index][1])


def drop_member(tree, path):
    parent = at(tree, path[:-1])
    del parent[next(i for i, (key, _) in enumerate(parent) if key == path[-1])]


class SchemaTestCase(unittest.TestCase):
    checker = DocumentChecker()

    def setUp(self):
        with open(SAMPLE, encoding="utf-8") as handle:
            self.base = load_members(handle.read())

    def assertValid(self, tree):
        self.assertEqual(self.checker.inventory_errors(dump_members(tree)), [])

    def assertRejected(self, change, text=None):
        """change(tree) alters a copy of the base document, which must then be refused."""
        if text is None:
            tree = copy.deepcopy(self.base)
            change(tree)
            text = dump_members(tree)
        self.assertNotEqual(self.checker.inventory_errors(text), [], text[:300])


class AcceptedDocuments(SchemaTestCase):
    def test_every_section_filled(self):
        self.assertValid(self.base)

    def test_any_section_unfilled_is_an_empty_object(self):
        # A forced upload sends "{}" for every section not filled.
        for section in SECTION_ORDER:
            with self.subTest(section=section):
                tree = copy.deepcopy(self.base)
                set_member(tree, [section], Members())
                self.assertValid(tree)
        self.assertValid(Members((section, Members()) for section in SECTION_ORDER))


class DocumentShape(SchemaTestCase):
    def test_a_missing_extra_or_misplaced_section(self):
        self.assertRejected(lambda t: drop_member(t, ["MiscInfo"]))
        self.assertRejected(lambda t: t.append(("FlashInfo", Members())))
        self.assertRejected(lambda t: t.insert(0, t.pop(1)))  # PchInfo before BiosVersion

    def test_text_forms_of_numbers(self):
        text = dump_members(self.base)
        self.assertRejected(None, text.replace('"MaxCpu":2', '"MaxCpu":2.0'))
        self.assertRejected(None, text.replace('"MaxCpu":2', '"MaxCpu":2e0'))
        self.assertRejected(None, text.replace('"MaxCpu":2', '"MaxCpu":-2'))
        self.assertRejected(lambda t: set_member(t, ["CpuInfo", "MaxCpu"], "2"))
        self.assertRejected(lambda t: set_member(t, ["VmdInfo", "Enable"], 0))

    def test_repeated_keys_outside_iio_info(self):
        self.assertRejected(lambda t: at(t, ["TpmInfo"]).append(("TpmSupport", 1)))

    def test_kept_spellings_are_required(self):
        self.assertRejected(lambda t: rename_member(t, ["CpuInfo", "Accelarator"], "Accelerator"))
        self.assertRejected(lambda t: rename_member(t, ["PcieDevice", "DeviceCout"], "DeviceCount"))
        self.assertRejected(lambda t: rename_member(t, ["MemoryMap", "MemoryMap", 0, "Attritudes"], "Attributes"))
        self.assertRejected(lambda t: rename_member(t, ["PcieResource", "OtherReourceRange"], "OtherResourceRange"))


class TextBuiltSections(SchemaTestCase):
    def test_fixed_values_and_ranges(self):
        self.assertRejected(lambda t: set_member(t, ["PchInfo", "Count"], 2))
        self.assertRejected(lambda t: set_member(t, ["PchInfo", "Sku"], "ES"))  # the name holds no A0 or A1
        self.assertRejected(lambda t: set_member(t, ["BiosVersion", "MicroCodeVer"], "0x2b000639"))
        self.assertRejected(lambda t: set_member(t, ["TpmInfo", "DevicePresent"], 2))
        self.assertRejected(lambda t: set_member(t, ["TpmInfo", "PcrBanks"], 16))
        self.assertRejected(lambda t: set_member(t, ["TpmInfo", "TpmEnable"], 256))
        self.assertRejected(lambda t: set_member(t, ["CpuInfo", "InfoList", 0, "MaxSpeed"], 4010))
        self.assertRejected(lambda t: set_member(t, ["CpuInfo", "InfoList", 0, "PPIN"], "2f4e3a1b6c7d8e91"))
        self.assertRejected(lambda t: set_member(t, ["DimmInfo", "InfoList", 0, "DimmTech"], "DDR5"))

    def test_lists_and_their_elements(self):
        self.assertRejected(lambda t: drop_member(t, ["CpuInfo", "InfoList", 0, "Upgrade"]))
        self.assertRejected(lambda t: at(t, ["OnBoardSataInfo", "SataList", 1]).insert(0, ("PhySlot", "SATA5")))
        self.assertRejected(lambda t: at(t, ["DimmResultInfo", "SocketResult", 0, "ChannelResult"]).pop())
        self.assertRejected(lambda t: set_member(t, ["DimmResultInfo", "SocketResult", 1, "CPU"], 0))
        self.assertRejected(lambda t: set_member(t, ["DimmResultInfo", "SocketResult", 0, "ChannelResult", 0,
                                                     "DimmNum"], 1))


class IioInfoMembers(SchemaTestCase):
    def iio(self, tree):
        return at(tree, ["IioInfo"])

    def test_one_socket_or_sockets_out_of_order(self):
        self.assertRejected(lambda t: self.iio(t).__delitem__(slice(2, 4)))
        self.assertRejected(lambda t: self.iio(t).__setitem__(slice(0, 4), self.iio(t)[2:4] + self.iio(t)[0:2]))
        # Turned into an array of sockets: the BMC reads two members of each name.
        self.assertRejected(lambda t: set_member(t, ["IioInfo"], Members([
            ("Sockets", [Members(self.iio(t)[0:2]), Members(self.iio(t)[2:4])])])))

    def test_ports_follow_the_bifurcation_table(self):
        def ports(tree, socket, stack):
            return self.iio(tree)[2 * socket + 1][1][stack]
        self.assertRejected(lambda t: ports(t, 0, 0).append(("Port0B", "8")))   # A and B only: no code gives it
        self.assertRejected(lambda t: ports(t, 0, 1).append(("Port2F", "2")))   # another stack's number
        self.assertRejected(lambda t: ports(t, 1, 4).__setitem__(0, ("Port4A", 255)))  # a number, not a text
        self.assertRejected(lambda t: ports(t, 1, 4).__setitem__(0, ("Port4A", "256")))


class TreeBuiltSections(SchemaTestCase):
    def test_memory_map(self):
        self.assertRejected(lambda t: set_member(t, ["MemoryMap", "MemoryMap", 1, "Pages"], "0x9F"))
        self.assertRejected(lambda t: set_member(t, ["MemoryMap", "MemoryMap", 1, "Pages"], "0x09f"))
        self.assertRejected(lambda t: set_member(t, ["MemoryMap", "MemoryMap", 1, "Type"], "Conventional"))
        self.assertRejected(lambda t: set_member(t, ["MemoryMap", "Summary", "UnusableMemory"], "0x0"))
        self.assertRejected(lambda t: set_member(t, ["MemoryMap", "Count"], "2"))

    def test_pcie_device(self):
        nic, nvme, dpu = (["PcieDevice", "DeviceList", i] for i in range(3))
        self.assertRejected(lambda t: drop_member(t, nvme + ["NVMeInfo"]))
        self.assertRejected(lambda t: drop_member(t, nvme + ["PhySlot"]))            # M.2 slot 251
        self.assertRejected(lambda t: set_member(t, nic + ["NVMeInfo"], copy.deepcopy(at(t, nvme + ["NVMeInfo"]))))
        self.assertRejected(lambda t: set_member(t, nvme + ["NVMeInfo", "BehindVMD"], False))
        self.assertRejected(lambda t: set_member(t, nvme + ["Capacity"], 960197124096))
        self.assertRejected(lambda t: set_member(t, nic + ["MaxSpeed"], 100))
        self.assertRejected(lambda t: set_member(t, nic + ["NicInfo", "PortInfo", 0, "Mac"], "00:1B:21:AA:BB:01"))
        self.assertRejected(lambda t: set_member(t, nic + ["VPDInfo"], copy.deepcopy(at(t, dpu + ["VPDInfo"]))))
        self.assertRejected(lambda t: drop_member(t, dpu + ["NicInfo"]))

    def test_pcie_topology(self):
        port = ["PcieTopology", "PciTree", 0]
        child = port + ["ChildDevice", 0]
        legacy = ["PcieTopology", "PciTree", 1]
        self.assertRejected(lambda t: set_member(t, legacy + ["Link Capability Register"], "0x3f483"))
        self.assertRejected(lambda t: set_member(t, legacy + ["Socket"], "0x1"))
        self.assertRejected(lambda t: set_member(t, port + ["PCIe Capability Register"], "0x42"))  # slot bit clear
        self.assertRejected(lambda t: drop_member(t, port + ["Slot Capability Register"]))
        self.assertRejected(lambda t: drop_member(t, port + ["ChildDeviceCount"]))
        self.assertRejected(lambda t: set_member(t, port + ["ChildDeviceCount"], 1))
        self.assertRejected(lambda t: set_member(t, child + ["Primary Bus Number"], "0x17"))
        self.assertRejected(lambda t: set_member(t, child + ["Link Capability Register"], "0x0"))
        self.assertRejected(lambda t: set_member(t, port + ["RootPortIndex"], "57"))

    def test_pcie_resource(self):
        bridge = ["PcieResource", "PCIMemIoResources", 0, "ResourceDetail"]
        endpoint = ["PcieResource", "PCIMemIoResources", 1, "ResourceDetail"]
        self.assertRejected(lambda t: set_member(t, bridge + ["SlotDesc"], "0x100"))
        self.assertRejected(lambda t: set_member(t, endpoint + ["SlotDesc"], "NoSlot:Slot not implement."))
        self.assertRejected(lambda t: set_member(t, bridge + ["Description"],
                                                 "This resource is consumed by the end point device."))
        self.assertRejected(lambda t: at(t, ["PcieResource", "OtherReourceRange"]).pop())
        self.assertRejected(lambda t: set_member(t, ["PcieResource", "OtherReourceRange", 0, "StartAddress"],
                                                 "0xa000"))


class FlashDocument(unittest.TestCase):
    checker = DocumentChecker()

    def test_two_members_in_order(self):
        self.assertEqual(self.checker.flash_errors('{"Bios Rom Size":"32MB","Flash ID":15679513}'), [])
        for wrong in ['{"Flash ID":15679513,"Bios Rom Size":"32MB"}',
                      '{"Bios Rom Size":"32MB","Flash ID":"15679513"}',
                      '{"Bios Rom Size":"32MB","Flash ID":16777216}',
                      '{"Bios Rom Size":"64MB","Flash ID":15679513}',
                      '{"Bios Rom Size":"32MB","Flash ID":15679513,"Flash Size":"32MB"}',
                      '{"Bios Rom Size":"32MB"}',
                      '{}']:
            with self.subTest(document=wrong):
                self.assertNotEqual(self.checker.flash_errors(wrong), [])

    def test_text_forms_as_sent(self):
        good = b'{"Bios Rom Size":"32MB","Flash ID":15679513}'
        self.assertEqual(self.checker.sent_file_errors("push_FlashInfo.json", good), [])
        self.assertNotEqual(self.checker.sent_file_errors("push_FlashInfo.json", good + b"\n"), [])
        with open(SAMPLE, "rb") as handle:
            inventory = handle.read().rstrip(b"\n")
        self.assertEqual(self.checker.sent_file_errors("push_BiosBeforeBoot.json", inventory + b"\n"), [])
        self.assertNotEqual(self.checker.sent_file_errors("push_BiosBeforeBoot.json", inventory), [])
        self.assertNotEqual(self.checker.sent_file_errors("push_BiosBeforeBoot.json", inventory + b"\n\0"), [])


if __name__ == "__main__":
    unittest.main()
