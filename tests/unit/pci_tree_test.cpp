// The PCI tree on the emulated bus: linking by device path, what a node
// reports of its capabilities, and the PcieTopology section it becomes.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "pci_resources/pci_tree.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

class PciTree : public PciBusOnEmulator {
 protected:
  void TearDown() override {
    QorFreePciTree(gQorPciTreeNodes, gQorPciTreeNodeCount);
    gQorPciTreeNodes = nullptr;
    gQorPciTreeNodeCount = 0;
    PciBusOnEmulator::TearDown();
  }
  void Collect() {
    gQorPciTreeNodes = nullptr;
    gQorPciTreeNodeCount = 0;
    QorCollectPciTree();
  }
  // The section's document, parsed.
  rapidjson::Document Fill() {
    LocalSection Section("PcieTopology", 0x80000, 9);
    EXPECT_EQ(QorFillPcieTopology(&Section.Record), EFI_SUCCESS);
    rapidjson::Document Doc;
    Doc.Parse(Section.Text().c_str());
    EXPECT_TRUE(Doc.IsObject()) << Section.Text();
    return Doc;
  }
  uint64_t Requests() {
    const qor::emu::PoolCounters &C = Fw->GetPool().Counters();
    return C.Allocations + C.FailedAllocations;
  }
  // Bus numbers of the top-level nodes, each with its children's, as
  // "bus(child bus, ...)".
  static std::string Shape(const PCI_TREE_NODE *Nodes, UINT64 Count, bool TopLevel) {
    std::string Out;
    for (UINT64 I = 0; I < Count; I++) {
      if (TopLevel && Nodes[I].Valid == 0) continue;
      if (!Out.empty()) Out += " ";
      char Name[16];
      std::snprintf(Name, sizeof(Name), "%02llx:%02llx", (unsigned long long)Nodes[I].Bus,
                    (unsigned long long)Nodes[I].Device);
      Out += Name;
      if (Nodes[I].ChildCount != 0) Out += "(" + Shape(Nodes[I].Children, Nodes[I].ChildCount, false) + ")";
    }
    return Out;
  }
  std::string Shape() { return Shape(gQorPciTreeNodes, gQorPciTreeNodeCount, true); }
};

const char *kEndpoint = R"({"vendorId": "0x1AB4", "deviceId": "0x0001"})";

}  // namespace

// Root bus 0: a root port with nothing behind it, an endpoint, the PCH.
// Every path has two nodes, so nothing is linked.
TEST_F(PciTree, BelowThreeDevicePathNodesTheTreeStaysFlat) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086"},
                                                             {"device": 2, "vendorId": "0x1AB4"}]}]})");
  Collect();
  EXPECT_EQ(gQorPciTreeNodeCount, 3u);
  EXPECT_EQ(Shape(), "00:01 00:02 00:1f");
  EXPECT_NE(Log().find("QorCollectPciTree,     MaxDPDepth: 2  \n"), std::string::npos);
}

// PcieRoot(0)/Pci(1,0)                       root port 00:01
//   /Pci(0,0)                                switch upstream 01:00
//     /Pci(0,0) and /Pci(1,0)                downstream 02:00, 02:01
//       /Pci(0,0)                            endpoints 03:00, 04:00
// PcieRoot(0)/Pci(2,0)/Pci(0,0)              endpoint 05:00 below root port 00:02
TEST_F(PciTree, EachFunctionHangsBelowTheFunctionWhosePathIsOneNodeShorter) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [{"type": "upstreamPort", "vendorId": "0x10B5", "devices": [
        {"device": 0, "type": "downstreamPort", "vendorId": "0x10B5", "devices": [)" + std::string(kEndpoint) + R"(]},
        {"device": 1, "type": "downstreamPort", "vendorId": "0x10B5", "devices": [)" + kEndpoint + R"(]}]}]},
      {"device": 2, "type": "rootPort", "vendorId": "0x8086", "devices": [)" + kEndpoint + "]}]}]}");
  Collect();
  EXPECT_EQ(Shape(), "00:01(01:00(02:00(03:00) 02:01(04:00))) 00:02(05:00) 00:1f");
  rapidjson::Document Doc = Fill();
  EXPECT_EQ(Doc["Count"].GetInt(), 9) << "every handle, linked ones too";
  const rapidjson::Value &Tree = Doc["PciTree"];
  ASSERT_EQ(Tree.Size(), 3u);
  const rapidjson::Value &Usp = Tree[0]["ChildDevice"][0];
  EXPECT_STREQ(Tree[0]["ChildDeviceCount"].GetString(), "1");
  EXPECT_STREQ(Usp["ChildDeviceCount"].GetString(), "2");
  EXPECT_STREQ(Usp["ChildDevice"][1]["Bus"].GetString(), "0x2");
  EXPECT_STREQ(Usp["ChildDevice"][1]["Device"].GetString(), "0x1");
  EXPECT_STREQ(Usp["ChildDevice"][1]["ChildDevice"][0]["Bus"].GetString(), "0x4");
  EXPECT_FALSE(Tree[2].HasMember("ChildDeviceCount")) << "the PCH links nothing";
  EXPECT_FALSE(Tree[2].HasMember("ChildDevice"));
}

// Two host bridges with UID 0 give root ports 00:01.0 and 10:01.0 the same
// path PcieRoot(0)/Pci(1,0), and their endpoints 01:00.0 and 11:00.0 the
// same path below it: both endpoints go to the first root port.
TEST_F(PciTree, OfTwoMatchingParentsTheEarlierOneWins) {
  StartPci(R"({"hostBridges": [
      {"uid": 0, "buses": [0, 9], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [)" +
           std::string(kEndpoint) + R"(]}]},
      {"uid": 0, "buses": [16, 25], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [)" +
           kEndpoint + "]}]}]}");
  Collect();
  EXPECT_EQ(Shape(), "00:01(01:00 11:00) 00:1f 10:01");
}

TEST_F(PciTree, ANodeWhoseParentCannotGrowItsChildListStaysAtTheTop) {
  const std::string Machine = R"({"hostBridges": [{"buses": [0, 9], "devices": [{"device": 1, "type": "rootPort",
      "vendorId": "0x8086", "devices": [)" + std::string(kEndpoint) + "]}]}]}";
  StartPci(Machine);
  uint64_t Before = Requests();
  Collect();
  uint64_t Link = Requests() - Before;  // the collection's last request grows the child list
  ASSERT_EQ(Shape(), "00:01(01:00) 00:1f");
  QorFreePciTree(gQorPciTreeNodes, gQorPciTreeNodeCount);
  gQorPciTreeNodes = nullptr;

  StartPci(Machine);
  Fw->GetPool().FailAllocation(Requests() + Link);
  Collect();
  EXPECT_EQ(Shape(), "00:01 01:00 00:1f");
  EXPECT_EQ(Fw->GetPool().Counters().FailedAllocations, 1u);
}

// Root port 00:01.0, slot 5, port 3 of socket 1 (index 60); AER, DPC and
// ACS from the board. Below it a downstream-port-free endpoint 01:00.0
// with a serial number and Secondary PCI Express; a conventional function
// 00:02.0; a switch downstream port without a slot.
TEST_F(PciTree, ANodeReportsTheCapabilityRegistersItHasAndOnlyThose) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x8086", "slot": 5, "iio": {"socket": 1, "port": 3},
       "extendedCapabilities": [
         {"type": "aer", "uncorrectableMask": "0x00400000", "uncorrectableSeverity": "0x00462030", "correctableMask": "0x2000"},
         {"type": "dpc", "control": "0x0042", "rpPioMask": "0x00070707", "rpPioSeverity": 1, "rpPioSysError": 2, "rpPioException": 3},
         {"type": "acs", "capability": "0x001F", "control": "0x001D"}],
       "devices": [{"vendorId": "0x1AB4", "extendedCapabilities": [
         {"type": "secondaryPcie", "laneErrorStatus": "0x3"}, {"type": "serialNumber", "value": "0x0011223344556677"}]}]},
      {"device": 2, "pcie": false, "vendorId": "0x1AB4"},
      {"device": 3, "type": "rootPort", "vendorId": "0x8086", "devices": [{"type": "upstreamPort", "vendorId": "0x10B5", "devices": [
        {"type": "downstreamPort", "vendorId": "0x10B5"}]}]}]}]})");
  rapidjson::Document Doc = Fill();
  const rapidjson::Value &Port = Doc["PciTree"][0];
  EXPECT_STREQ(Port["Socket"].GetString(), "0x1");
  EXPECT_STREQ(Port["RootPortIndex"].GetString(), "3");
  EXPECT_STREQ(Port["Slot Capability Register"].GetString(), "0x282580");  // slot 5, 75 W
  EXPECT_STREQ(Port["Uncorrectable Error Mask Register"].GetString(), "0x400000");
  EXPECT_STREQ(Port["Uncorrectable Error Severity Register"].GetString(), "0x462030");
  EXPECT_STREQ(Port["Correctable Error Mask Register"].GetString(), "0x2000");
  EXPECT_STREQ(Port["DPC Capability Register"].GetString(), "0x14e0");
  EXPECT_STREQ(Port["DPC Control Register"].GetString(), "0x42");
  EXPECT_STREQ(Port["RP PIO Mask Register"].GetString(), "0x70707");
  EXPECT_STREQ(Port["RP PIO Exception Register"].GetString(), "0x3");
  EXPECT_STREQ(Port["PCIe ACS Capabilities Register"].GetString(), "0x1f");
  EXPECT_STREQ(Port["PCIe ACS Control Register"].GetString(), "0x1d");
  EXPECT_FALSE(Port.HasMember("Device Serial Number Register"));
  EXPECT_FALSE(Port.HasMember("Lane Error Status Register"));

  const rapidjson::Value &Endpoint = Port["ChildDevice"][0];
  EXPECT_STREQ(Endpoint["Socket"].GetString(), "0x1");
  EXPECT_FALSE(Endpoint.HasMember("RootPortIndex"));
  EXPECT_STREQ(Endpoint["Device Serial Number Register"].GetString(), "0x11223344556677");
  EXPECT_STREQ(Endpoint["Lane Error Status Register"].GetString(), "0x3");
  EXPECT_FALSE(Endpoint.HasMember("Slot Capability Register"));
  EXPECT_FALSE(Endpoint.HasMember("Uncorrectable Error Mask Register"));
  EXPECT_FALSE(Endpoint.HasMember("DPC Capability Register"));

  const rapidjson::Value &Conventional = Doc["PciTree"][1];
  EXPECT_STREQ(Conventional["PCI or PCIe"].GetString(), "PCI");
  EXPECT_STREQ(Conventional["Socket"].GetString(), "0x0");
  EXPECT_TRUE(Conventional.HasMember("Power Management Capability Register"));
  EXPECT_FALSE(Conventional.HasMember("PCIe Capability Register"));
  EXPECT_FALSE(Conventional.HasMember("Link Capability Register"));

  const rapidjson::Value &Dsp = Doc["PciTree"][2]["ChildDevice"][0]["ChildDevice"][0];
  EXPECT_STREQ(Dsp["DeviceType"].GetString(), "Bridge");
  EXPECT_TRUE(Dsp.HasMember("Link Capability Register"));
  EXPECT_FALSE(Dsp.HasMember("Slot Capability Register")) << "no slot implemented";
}

// Function 00:02.0 whose capability list loops (PM -> PCI Express -> PM)
// and whose extended list points back at itself: the walks end.
TEST_F(PciTree, LoopingCapabilityListsEnd) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 2, "vendorId": "0x1AB4",
      "faults": {"capabilityLoop": true}, "extendedCapabilities": [{"type": "raw", "id": "0x0B"}],
      "patches": [{"offset": "0x102", "bytes": "01 10"}]}]}]})");
  Collect();
  const PCI_TREE_NODE &Node = gQorPciTreeNodes[0];
  EXPECT_EQ(Node.IsPcie, 1);
  EXPECT_EQ(Node.PmValid, 1);
  EXPECT_EQ(Node.AerValid, 0);
  EXPECT_EQ(Node.AcsValid, 0);
}

// The node keeps the function's whole 4 KiB space as it was read.
TEST_F(PciTree, APciExpressNodeHoldsItsConfigurationSpace) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 2, "vendorId": "0x1AB4",
      "extendedCapabilities": [{"type": "serialNumber", "value": "0x0102030405060708"}]}]}]})");
  Collect();
  const std::vector<uint8_t> &Bytes = Plat->Pci().Find({0, 0, 2, 0})->Bytes();
  ASSERT_EQ(Bytes.size(), 4096u);
  EXPECT_EQ(std::vector<uint8_t>(gQorPciTreeNodes[0].ConfigSpace, gQorPciTreeNodes[0].ConfigSpace + 4096), Bytes);
}
