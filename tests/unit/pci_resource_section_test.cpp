// PcieResource building blocks that need no PCI bus: the record order, the
// decode ranges from the processor registers and the node objects of the
// PCI tree.
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/unit/packed_value.h"
#include "json/json_tree.h"
#include "pci_resources/pci_res_info.h"
#include "pci_resources/pci_tree.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/vendor_protocols.h"
#include "tests/unit/driver_fixture.h"

namespace {

PCI_RES_INFO Range(UINT64 Start, UINT64 End, UINT8 HeaderType, UINT64 Bus = 0) {
  PCI_RES_INFO R = {};
  R.StartAddress = Start;
  R.EndAddress = End;
  R.HeaderType = HeaderType;
  R.Bus = Bus;
  return R;
}

std::vector<UINT64> Buses(const std::vector<PCI_RES_INFO> &List) {
  std::vector<UINT64> Out;
  for (const PCI_RES_INFO &R : List) Out.push_back(Val(R.Bus));
  return Out;
}

std::string Print(JSON_NODE *Node) {
  CHAR8 *Text = JsonPrint(Node, FALSE);
  std::string Out = Text != nullptr ? Text : "";
  QorFreePool(Text);
  JsonDelete(Node);
  return Out;
}

// Register values the CPU CSR access protocol serves in a test.
std::map<UINT32, UINT32> gCsr;
UINT32 EFIAPI ReadCsr(UINT8 Socket, UINT8 Box, UINT32 Address) {
  EXPECT_EQ(Socket, 0);
  EXPECT_EQ(Box, 0);
  return gCsr[Address];
}

class DecodeRanges : public DriverOnEmulator {
 protected:
  // The built-in board has a CSR protocol of its own; these tests install theirs.
  void SetUp() override {
    Start(BoardFrom(R"({"faults": {"missingProtocols": ["cpuCsr"]}})"));
    QorResetPciResLists();
  }
  void TearDown() override {
    QorFreePool(gQorDecodeList);
    QorResetPciResLists();
    DriverOnEmulator::TearDown();
  }
  QOR_CPU_CSR_ACCESS_PROTOCOL Csr{nullptr, ReadCsr};
};

using PciTreeNodeObject = DriverOnEmulator;
// The sort takes its scratch record from the pool.
class PciResourceSort : public DriverOnEmulator {
 protected:
  void SetUp() override { Start(); }
};

}  // namespace

TEST(PciResourceOrder, LowerStartFirstThenTheEnclosingRange) {
  PCI_RES_INFO A = Range(0x1000, 0x1FFF, 0), B = Range(0x2000, 0x2FFF, 0), Wide = Range(0x1000, 0xFFFF, 1);
  EXPECT_EQ(QorComparePciRes(&A, &B), -1);
  EXPECT_EQ(QorComparePciRes(&B, &A), 1);
  EXPECT_EQ(QorComparePciRes(&Wide, &A), -1);
  EXPECT_EQ(QorComparePciRes(&A, &Wide), 1);
  EXPECT_EQ(QorComparePciRes(nullptr, nullptr), 0);
  EXPECT_EQ(QorComparePciRes(nullptr, &A), -1);
  EXPECT_EQ(QorComparePciRes(&A, nullptr), 1);
}

TEST(PciResourceOrder, SameRangeComparesOneSidedBetweenEndpointAndBridge) {
  PCI_RES_INFO Endpoint = Range(0x1000, 0x1FFF, 0), Bridge = Range(0x1000, 0x1FFF, 1);
  EXPECT_EQ(QorComparePciRes(&Endpoint, &Bridge), 1);
  EXPECT_EQ(QorComparePciRes(&Bridge, &Endpoint), 0);
  EXPECT_EQ(QorComparePciRes(&Endpoint, &Endpoint), 0);
}

TEST_F(PciResourceSort, QuickSortPutsTheBridgeBeforeTheEndpointOfTheSameRangeFromEitherSide) {
  // Pivot X first goes to the front; the remaining run [bridge 2, endpoint 1]
  // keeps its order because the bridge compares 0 with the endpoint pivot.
  std::vector<PCI_RES_INFO> List = {Range(0x1000, 0x1FFF, 0, 1), Range(0x1000, 0x1FFF, 1, 2), Range(0, 0xFFF, 0, 3)};
  QorSortPciRes(List.data(), List.size());
  EXPECT_EQ(Buses(List), (std::vector<UINT64>{3, 2, 1}));
  List = {Range(0x1000, 0x1FFF, 1, 2), Range(0x1000, 0x1FFF, 0, 1)};
  QorSortPciRes(List.data(), List.size());
  EXPECT_EQ(Buses(List), (std::vector<UINT64>{2, 1}));
}

TEST_F(PciResourceSort, ALongRunOfEqualRangesSortsOnASmallStack) {
  // Every element compares 0 with the pivot, so each partition peels off
  // one element: a sort recursing into that side would need thousands of
  // frames. Firmware stacks are small; so is this thread's.
  std::vector<PCI_RES_INFO> List(5000, Range(0x1000, 0x1FFF, 0));
  for (size_t I = 0; I < List.size(); I++) List[I].Bus = I;
  List.push_back(Range(0, 0xFFF, 0, 99999));
  pthread_attr_t Attributes;
  pthread_attr_init(&Attributes);
  pthread_attr_setstacksize(&Attributes, 64 * 1024);
  pthread_t Thread;
  auto Sort = [](void *Arg) -> void * {
    auto *L = static_cast<std::vector<PCI_RES_INFO> *>(Arg);
    QorSortPciRes(L->data(), L->size());
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&Thread, &Attributes, Sort, &List), 0);
  pthread_join(Thread, nullptr);
  pthread_attr_destroy(&Attributes);
  EXPECT_EQ(List.front().Bus, 99999u);
  std::vector<UINT64> Rest = Buses(List);
  std::sort(Rest.begin() + 1, Rest.end());
  for (size_t I = 1; I < Rest.size(); I++) ASSERT_EQ(Rest[I], I - 1) << "every record is kept once";
}

TEST_F(DecodeRanges, WithoutTheCsrProtocolOnlyVgaPamAndNoEarlyGo) {
  QorCollectLegacyAndMmCfgDecodeRes();
  ASSERT_EQ(gQorDecodeCount, 3u);
  EXPECT_EQ(Val(gQorDecodeList[0].StartAddress), 0xA0000u);
  EXPECT_EQ(Val(gQorDecodeList[0].EndAddress), 0xBFFFFu);
  EXPECT_EQ(Val(gQorDecodeList[0].RangeKind), QOR_RANGE_VGA);
  EXPECT_EQ(Val(gQorDecodeList[1].StartAddress), 0xC0000u);
  EXPECT_EQ(Val(gQorDecodeList[1].EndAddress), 0xFFFFFu);
  EXPECT_EQ(Val(gQorDecodeList[1].RangeKind), QOR_RANGE_PAM);
  EXPECT_EQ(Val(gQorDecodeList[2].StartAddress), 0xFE000000u);
  EXPECT_EQ(Val(gQorDecodeList[2].EndAddress), 0xFFFFFFFFu);
  EXPECT_EQ(Val(gQorDecodeList[2].RangeKind), QOR_RANGE_NO_EARLY_GO);
  EXPECT_NE(Log().find("QorCollectLegacyAndMmCfgDecodeRes locate CPU CSR Protocol fail!\n"), std::string::npos);
}

TEST_F(DecodeRanges, TsegMesegAndMmcfgFromTheProcessorRegisters) {
  gCsr = {
      {0x110200A8, 0x7B8ABCDE},  // TSEG base: low 20 bits dropped
      {0x110200AC, 0x7BF12345},  // TSEG limit: low 20 bits become ones
      {0x03020094, 0x00000001},  // MESEG base high: (1 << 13) << 19 = 4 GiB
      {0x03020090, 0x7C0FFFFF},  // MESEG base low: & 0xFFF80000
      {0x0302009C, 0x00080000},  // MESEG limit high: << 13 = 0x1_0000_0000
      {0x03020098, 0x7C7FFFFF},  // MESEG limit low
      {0x031200C4, 0x00000002},  // MMCFG base high
      {0x031200C0, 0x80000002},  // MMCFG base low, size rule 1: 1 GiB
  };
  EFI_HANDLE Handle = nullptr;
  ASSERT_EQ(Fw->InstallProtocol(&Handle, gQorCpuCsrAccessProtocolGuid, &Csr), EFI_SUCCESS);
  QorCollectLegacyAndMmCfgDecodeRes();
  ASSERT_EQ(gQorDecodeCount, 6u);
  EXPECT_EQ(Val(gQorDecodeList[2].StartAddress), 0x7B800000u);
  EXPECT_EQ(Val(gQorDecodeList[2].EndAddress), 0x7BFFFFFFu);
  EXPECT_EQ(Val(gQorDecodeList[2].RangeKind), QOR_RANGE_TSEG);
  EXPECT_EQ(Val(gQorDecodeList[3].StartAddress), 0x17C080000ull);
  EXPECT_EQ(Val(gQorDecodeList[3].EndAddress), 0x17C7FFFFFull);
  EXPECT_EQ(Val(gQorDecodeList[3].RangeKind), QOR_RANGE_MESEG);
  EXPECT_EQ(Val(gQorDecodeList[4].StartAddress), 0x280000000ull);
  EXPECT_EQ(Val(gQorDecodeList[4].EndAddress), 0x280000000ull + 0x40000000ull - 1);
  EXPECT_EQ(Val(gQorDecodeList[4].ResourceType), QOR_RES_TYPE_MMCFG);
  EXPECT_EQ(Val(gQorDecodeList[5].RangeKind), QOR_RANGE_NO_EARLY_GO);
}

TEST_F(DecodeRanges, MmcfgSizeRulesAndAZeroTsegLimit) {
  const std::vector<std::pair<UINT32, UINT64>> Rules = {{0, 0x80000000ull}, {1, 0x40000000ull}, {2, 0x20000000ull},
                                                        {3, 0x10000000ull}, {4, 0x10000000ull}, {5, 0x8000000ull},
                                                        {6, 0x4000000ull},  {7, 0x10000000ull}};
  EFI_HANDLE Handle = nullptr;
  ASSERT_EQ(Fw->InstallProtocol(&Handle, gQorCpuCsrAccessProtocolGuid, &Csr), EFI_SUCCESS);
  for (const auto &[Rule, Size] : Rules) {
    gCsr = {{0x031200C0, 0x40000000 | (Rule << 1)}};
    QorFreePool(gQorDecodeList);
    QorResetPciResLists();
    QorCollectLegacyAndMmCfgDecodeRes();
    ASSERT_EQ(gQorDecodeCount, 6u);
    EXPECT_EQ(Val(gQorDecodeList[4].EndAddress) - Val(gQorDecodeList[4].StartAddress) + 1, Size) << "rule " << Rule;
    EXPECT_EQ(Val(gQorDecodeList[2].EndAddress), 0u) << "a zero TSEG limit stays zero";
    EXPECT_EQ(Val(gQorDecodeList[3].EndAddress), 0u) << "no MESEG limit bits";
  }
}

TEST_F(PciTreeNodeObject, ConventionalFunctionShowsNoExpressKeysButItsPowerManagement) {
  Start();
  PCI_TREE_NODE Node = {};
  Node.Valid = 1;
  Node.VendorID = 0x8086;
  Node.DeviceID = 0x1234;
  Node.HeaderType = 0x80;  // multi-function endpoint
  Node.SubsystemVendorID = 0x1;
  Node.SubsystemID = 0x2;
  Node.PmValid = 1;
  Node.PmCapabilities = 0xC803;
  Node.PmControlStatus = 0x8;
  Node.AerValid = 0;
  EXPECT_EQ(Print(QorPciTreeNodeToJson(&Node)),
            "{\"Socket\":\"0x0\",\"Segment\":\"0x0\",\"Bus\":\"0x0\",\"Device\":\"0x0\",\"Function\":\"0x0\","
            "\"VendorID\":\"0x8086\",\"DeviceID\":\"0x1234\",\"RevisionID\":\"0x0\",\"ClassCode\":\"0x0\","
            "\"DeviceType\":\"EndPoint\",\"Subsystem VendorID\":\"0x1\",\"Subsystem DeviceID\":\"0x2\","
            "\"PCI or PCIe\":\"PCI\",\"Power Management Capability Register\":\"0xc803\","
            "\"Power Management Control and Status Register\":\"0x8\"}");
}

TEST_F(PciTreeNodeObject, RootPortShowsItsIndexWithinTheSocketAndSlotOnlyWhenImplemented) {
  Start();
  PCI_TREE_NODE Node = {};
  Node.Valid = 1;
  Node.HeaderType = 0x01;
  Node.IsPcie = 1;
  Node.IsRootPort = 1;
  Node.RootPortIndex = 60;
  Node.Socket = 1;
  Node.PcieCapValid = 1;
  Node.PcieCapabilities = 0x0042;  // slot not implemented
  Node.SlotCapabilities = 0x00380000;
  std::string Text = Print(QorPciTreeNodeToJson(&Node));
  EXPECT_NE(Text.find("\"Socket\":\"0x1\""), std::string::npos);
  EXPECT_NE(Text.find("\"RootPortIndex\":\"3\",\"DeviceType\":\"Bridge\",\"Primary Bus Number\""), std::string::npos);
  EXPECT_EQ(Text.find("Slot Capability Register"), std::string::npos);
  EXPECT_EQ(Text.find("Link Capability Register"), std::string::npos) << "zero link capabilities are left out";
  EXPECT_EQ(Text.find("ChildDeviceCount"), std::string::npos);
  Node.PcieCapabilities = 0x0142;
  Text = Print(QorPciTreeNodeToJson(&Node));
  EXPECT_NE(Text.find("\"Slot Capability Register\":\"0x380000\""), std::string::npos);
}

TEST_F(PciTreeNodeObject, ChildrenFollowTheRegistersWithTheirCount) {
  Start();
  PCI_TREE_NODE Child = {};
  Child.Valid = 1;
  Child.Bus = 2;
  PCI_TREE_NODE Node = {};
  Node.Valid = 1;
  Node.HeaderType = 1;
  Node.Children = &Child;
  Node.ChildCount = 1;
  std::string Text = Print(QorPciTreeNodeToJson(&Node));
  EXPECT_NE(Text.find("\"PCI or PCIe\":\"PCI\",\"ChildDeviceCount\":\"1\",\"ChildDevice\":[{\"Socket\":\"0x0\","
                      "\"Segment\":\"0x0\",\"Bus\":\"0x2\""),
            std::string::npos);
  PCI_TREE_NODE Moved = Node;
  Moved.Valid = 0;
  EXPECT_EQ(QorPciTreeNodeToJson(&Moved), nullptr);
}
