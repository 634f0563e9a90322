// The PCIe device walk on small emulated buses: which functions become
// records, their link, slot, root-port and socket fields, the link-update
// handlers and the bounds that keep bad machines from breaking the walk.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pci_resources/pci_tree.h"
#include "pcie/pcie_device_info.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

// Devices under one host bridge with root bus 0.
std::string Bus(const std::string &Devices, const std::string &Buses = "[0, 40]") {
  return R"({"hostBridges": [{"buses": )" + Buses + R"(, "devices": [)" + Devices + "]}]}";
}

std::string RootPort(int Device, const std::string &Extra, const std::string &Children) {
  return R"({"device": )" + std::to_string(Device) + R"(, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A")" +
         Extra + R"(, "devices": [)" + Children + "]}";
}

class PcieDeviceWalk : public PciBusOnEmulator {
 protected:
  void Walk() {
    QorPcieResetCaches();
    Records.assign(PCIE_DEVICE_MAX, PCIE_DEVICE_INFO{});
    Count = PCIE_DEVICE_MAX;
    ASSERT_EQ(QorCollectPcieDevices(&Count, Records.data()), EFI_SUCCESS);
  }
  const PCIE_DEVICE_INFO &Only() {
    EXPECT_EQ(Count, 1u);
    return Records[0];
  }
  std::vector<PCIE_DEVICE_INFO> Records;
  UINT64 Count = 0;
};

}  // namespace

// Function                          kept  because
// 00:02.0 endpoint on the root bus  no    path of two nodes
// 01:00.0 NIC function 0            yes
// 01:00.1 NIC function 1            no    not function 0
// 02:00.0 conventional PCI          no    no PCI Express capability
// 03:00.0 8086:37CC                 no    exclusion table
// 04:00.0 PCIe-to-PCI bridge        no    header type 1
// 06:00.0 10B5:87B0 sub 10B5:87B1   yes   sub ids differ from the table row
TEST_F(PcieDeviceWalk, KeepsPciExpressEndpointsAtFunctionZeroBelowARootPort) {
  StartPci(Bus(R"({"device": 2, "vendorId": "0x8086", "deviceId": "0x0998"},)" +
               RootPort(1, R"(, "slot": 5)",
                        R"({"vendorId": "0x8086", "deviceId": "0x1592", "classCode": "0x020000"},
                           {"function": 1, "vendorId": "0x8086", "deviceId": "0x1592", "classCode": "0x020000"})") +
               "," + RootPort(3, "", R"({"vendorId": "0x1234", "deviceId": "0x0001", "pcie": false})") + "," +
               RootPort(4, "", R"({"vendorId": "0x8086", "deviceId": "0x37CC"})") + "," +
               RootPort(5, "", R"({"type": "pcieToPciBridge", "vendorId": "0x1234", "deviceId": "0x0002"})") + "," +
               RootPort(6, "", R"({"vendorId": "0x10B5", "deviceId": "0x87B0", "subsystemVendorId": "0x10B5",
                                   "subsystemId": "0x87B1"})")));
  Walk();
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[0].DeviceID, 0x1592);
  EXPECT_EQ(Records[0].Bus, 1u);
  EXPECT_EQ(Records[0].Func, 0u);
  EXPECT_EQ(Records[0].Slot, 5u);
  EXPECT_EQ(Records[0].Level, 3u);
  EXPECT_EQ(Records[0].MezzSlot, 255u);
  EXPECT_EQ(Records[0].ClassCode, 2);
  EXPECT_EQ(Records[1].DeviceID, 0x87B0);
  EXPECT_EQ(Records[1].Slot, 65535u) << "no bridge above implements a slot";
}

TEST_F(PcieDeviceWalk, LinkFieldsComeFromStatusAndCapabilitiesAndGen6Reports80) {
  StartPci(Bus(RootPort(1, "", R"({"vendorId": "0x1234", "deviceId": "0x0010",
                                   "link": {"maxSpeed": 6, "maxWidth": 16, "speed": 4, "width": 8}})") +
               "," +
               RootPort(2, "", R"({"vendorId": "0x1234", "deviceId": "0x0011",
                                   "link": {"maxSpeed": 4, "maxWidth": 4, "speed": 3, "width": 2}})")));
  Walk();
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[0].LinkWidth, 8u);
  EXPECT_EQ(Records[0].LinkSpeed, 4u);
  EXPECT_EQ(Records[0].CardBandWidth, 16u);
  EXPECT_EQ(Records[0].PCIeGen, 6u);
  EXPECT_EQ(Records[0].MaxSpeed, 80u);
  EXPECT_EQ(Records[1].PCIeGen, 4u);
  EXPECT_EQ(Records[1].MaxSpeed, 160u);
  EXPECT_EQ(Records[1].CardBandWidth, 4u);
}

TEST_F(PcieDeviceWalk, SlotIsTheNearestBridgeAboveThatImplementsOne) {
  // rp (slot 9) / usp / dsp 0 (slot 12) / dev A;  rp / usp / dsp 1 (no slot) / dev B
  StartPci(Bus(RootPort(1, R"(, "slot": 9)", R"(
    {"type": "upstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0301", "devices": [
      {"device": 0, "type": "downstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0302", "slot": 12, "devices": [
        {"vendorId": "0x1234", "deviceId": "0x000A"}]},
      {"device": 1, "type": "downstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0302", "devices": [
        {"vendorId": "0x1234", "deviceId": "0x000B"}]}]})")));
  Walk();
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[0].DeviceID, 0x000A);
  EXPECT_EQ(Records[0].Slot, 12u);
  EXPECT_EQ(Records[1].DeviceID, 0x000B);
  EXPECT_EQ(Records[1].Slot, 9u);
}

// Stack table: count byte at 2048, entries of valid, reserved, segment (2),
// root port bus/device/function, bus base, bus limit, three reserved bytes.
TEST_F(PcieDeviceWalk, RootPortFromTheStackTableOrThroughTheParentWhenItStores0xFF) {
  const std::string Tree = Bus(RootPort(1, "", R"({"vendorId": "0x1234", "deviceId": "0x0001"})") + "," +
                               RootPort(2, "", R"({"vendorId": "0x1234", "deviceId": "0x0002"})"));
  StartPci(Tree, R"("systemInformation": {"patches": [{"offset": 2048, "bytes":
      "02 00 00 00  01 00 00 00 11 12 03 01 01 00 00 00  01 00 00 00 00 FF FF 02 02 00 00 00"}]})");
  Walk();
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[0].Bus, 1u);
  EXPECT_EQ(Records[0].CPUBus, 0x11u);
  EXPECT_EQ(Records[0].CPUDev, 0x12u);
  EXPECT_EQ(Records[0].CPUFunc, 0x03u);
  // Bus 2's entry stores 0xFF: the root port is the parent found by path.
  EXPECT_EQ(Records[1].Bus, 2u);
  EXPECT_EQ(Records[1].CPUBus, 0u);
  EXPECT_EQ(Records[1].CPUDev, 2u);
  EXPECT_EQ(Records[1].CPUFunc, 0u);
}

TEST_F(PcieDeviceWalk, SocketFollowsTheBusPartitionModeAndDivisor) {
  StartPci(Bus("", "[0, 0]"), R"("pcd": {"tokens": {"347": 3, "320": 1}})");
  EXPECT_EQ(QorComputeCpuNumber(0, 0x7F), 0u);
  EXPECT_EQ(QorComputeCpuNumber(0, 0x80), 1u);
  EXPECT_EQ(QorComputeCpuNumber(1, 0x10), 2u) << "segment 1 adds 2 / divisor";
  StartPci(Bus("", "[0, 0]"), R"("pcd": {"tokens": {"347": 15, "320": 2}})");
  EXPECT_EQ(QorComputeCpuNumber(0, 0x80), 1u) << "128 / (2 * 64)";
  EXPECT_EQ(QorComputeCpuNumber(2, 0x00), 4u) << "2 * 4 / 2";
  StartPci(Bus("", "[0, 0]"), R"("pcd": {"tokens": {"347": 7, "320": 1}})");
  EXPECT_EQ(QorComputeCpuNumber(0, 0xFF), 0u) << "other modes give 0";
  StartPci(Bus("", "[0, 0]"), R"("pcd": {"tokens": {"347": 3, "320": 0}})");
  EXPECT_EQ(QorComputeCpuNumber(0, 0xFF), 0u) << "a zero divisor gives 0";
}

// ---------------------------------------------------------- link updates

namespace {
// rp (slot 7, x16 gen4) / usp (x8 gen3, up 4) / dsp / DEVICE (x4 gen2)
std::string BehindSwitch(const std::string &Device, const std::string &DspExtra = "",
                         const std::string &DspIds = R"("vendorId": "0x1AB4", "deviceId": "0x0302")") {
  return Bus(RootPort(1, R"(, "slot": 7, "link": {"maxSpeed": 4, "maxWidth": 16})", R"(
    {"type": "upstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0301",
     "link": {"maxSpeed": 3, "maxWidth": 8, "speed": 3, "width": 4}, "devices": [
      {"type": "downstreamPort", )" + DspIds + DspExtra + R"(,
       "link": {"maxSpeed": 5, "maxWidth": 16, "speed": 5, "width": 16}, "devices": [)" +
                                                                         Device + "]}]}"));
}
std::string Dev(const char *Ids, const char *Link = R"({"maxSpeed": 2, "maxWidth": 4})") {
  return std::string("{") + Ids + R"(, "link": )" + Link + "}";
}
}  // namespace

TEST_F(PcieDeviceWalk, RootPortHandlersReadTheFunctionAtTheThirdPathNode) {
  StartPci(BehindSwitch(Dev(R"("vendorId": "0x8086", "deviceId": "0x37D0", "subsystemVendorId": "0x8086",
                                "subsystemId": "0x0002")")));
  Walk();
  const PCIE_DEVICE_INFO &R = Only();
  EXPECT_EQ(R.LinkWidth, 4u) << "the upstream port's link";
  EXPECT_EQ(R.LinkSpeed, 3u);
  EXPECT_EQ(R.CardBandWidth, 8u);
  EXPECT_EQ(R.PCIeGen, 3u);
  EXPECT_EQ(R.MaxSpeed, 80u) << "derived from the handler's PCIeGen";
  EXPECT_EQ(R.Slot, 7u) << "RootPortLinkUpdate leaves the slot";
}

TEST_F(PcieDeviceWalk, X8HandlerFixesTheCardWidthAndGpuHandlerTakesTheSlotAboveTheThirdNode) {
  StartPci(BehindSwitch(Dev(R"("vendorId": "0x8086", "deviceId": "0x37C8", "subsystemVendorId": "0x8086",
                                "subsystemId": "0x0001")")));
  Walk();
  EXPECT_EQ(Only().CardBandWidth, 8u);
  EXPECT_EQ(Only().LinkWidth, 4u);
  StartPci(BehindSwitch(Dev(R"("vendorId": "0x10DE", "deviceId": "0x25B6", "subsystemVendorId": "0x10DE",
                                "subsystemId": "0x14A9")"),
                        R"(, "slot": 30)"));
  Walk();
  EXPECT_EQ(Only().Slot, 7u) << "slot lookup from the upstream port, not the device's own (30)";
  EXPECT_EQ(Only().CardBandWidth, 8u);
  EXPECT_NE(Log().find("RootPortGpuUpdate 275 LinkWidth = 0x4,LinkSpeed = 0x3,slot = 0x7\n"), std::string::npos);
  EXPECT_NE(Log().find("RootPortGpuUpdate 277 PCIeGen = 0x3,CardBandWidth = 0x8,slot = 0x7\n"), std::string::npos);
}

TEST_F(PcieDeviceWalk, Biv150HandlerUsesTheSwitchUpstreamPortOrLeavesTheRecord) {
  const char *Ids = R"("vendorId": "0x1E3E", "deviceId": "0x0003", "subsystemVendorId": "0x0000",
                       "subsystemId": "0x0001")";
  StartPci(BehindSwitch(Dev(Ids), R"(, "slot": 30)"));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 4u);
  EXPECT_EQ(Only().PCIeGen, 3u);
  EXPECT_EQ(Only().Slot, 7u) << "slot lookup of the upstream port";
  EXPECT_NE(Log().find("BIV150GpuUpdate 336 LinkWidth = 0x4"), std::string::npos);
  // Directly below a root port there is no upstream port: the record keeps
  // its own link and slot.
  StartPci(Bus(RootPort(1, R"(, "slot": 3)", Dev(Ids))));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 4u);
  EXPECT_EQ(Only().PCIeGen, 2u);
  EXPECT_EQ(Only().Slot, 3u);
}

TEST_F(PcieDeviceWalk, SwitchHandlerReadsTheChildOfTheMarkedPortOrFallsBackToTheRootPortRoute) {
  const char *Ids = R"("vendorId": "0x1E9F", "deviceId": "0x27C6", "subsystemVendorId": "0x1E9F",
                       "subsystemId": "0x020C")";
  // The downstream port is the marked switch port: the device's own link,
  // the slot lookup of its own handle (the port's slot 30).
  StartPci(BehindSwitch(Dev(Ids), R"(, "slot": 30)", R"("vendorId": "0x1000", "deviceId": "0xC030")"));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 4u);
  EXPECT_EQ(Only().PCIeGen, 2u);
  EXPECT_EQ(Only().Slot, 30u);
  EXPECT_NE(Log().find("pPcieInfo->Slot == 30 \n"), std::string::npos);
  // Without it the walk runs out of parents and the root-port route decides.
  StartPci(BehindSwitch(Dev(Ids), R"(, "slot": 30)"));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 4u) << "upstream port at the third node";
  EXPECT_EQ(Only().PCIeGen, 3u);
  EXPECT_EQ(Only().Slot, 7u);
}

TEST_F(PcieDeviceWalk, BridgeWidthHandlerTakesTheNearestBridgesWidthUnlessItIsZero) {
  const char *Ids = R"("vendorId": "0x10B5", "deviceId": "0x8624", "subsystemVendorId": "0x0000",
                       "subsystemId": "0x0000")";
  StartPci(BehindSwitch(Dev(Ids)));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 16u) << "the downstream port above";
  EXPECT_EQ(Only().PCIeGen, 2u) << "nothing else changes";
  EXPECT_EQ(Only().CardBandWidth, 4u);
  StartPci(BehindSwitch(Dev(Ids), R"(, "patches": [{"offset": "0x62", "bytes": "00 00"}])"));
  Walk();
  EXPECT_EQ(Only().LinkWidth, 4u) << "a bridge reporting width 0 changes nothing";
}

TEST_F(PcieDeviceWalk, SecondFunctionZeroOfAMultiFunctionCardInTheSameSlotIsDropped) {
  const std::string Card = R"({"device": 0, "vendorId": "0x8086", "deviceId": "0x37C8", "subsystemVendorId": "0x8086",
                               "subsystemId": "0x0001"})";
  std::string Twice = Card;
  Twice.replace(Twice.find("\"device\": 0"), 11, "\"device\": 1");
  // Two chips of one card behind one slot, then the same card in another slot.
  StartPci(Bus(RootPort(1, R"(, "slot": 4)", Card + "," + Twice) + "," + RootPort(2, R"(, "slot": 5)", Card)));
  Walk();
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[0].Slot, 4u);
  EXPECT_EQ(Records[1].Slot, 5u);
}

TEST_F(PcieDeviceWalk, ALoopingCapabilityListEndsAndTheDeviceIsSkipped) {
  // 0x34 -> 0x40; the capability at 0x40 points to itself.
  StartPci(Bus(RootPort(1, "", R"({"vendorId": "0x1234", "deviceId": "0x0001",
                                   "patches": [{"offset": "0x40", "bytes": "01 40"}]})") +
               "," + RootPort(2, "", R"({"vendorId": "0x1234", "deviceId": "0x0002"})")));
  Walk();
  ASSERT_EQ(Count, 1u);
  EXPECT_EQ(Records[0].DeviceID, 0x0002);
}

TEST_F(PcieDeviceWalk, MoreKeptFunctionsThanRecordsStopAtTheLastRecord) {
  // 17 root ports with 32 endpoints each: 544 kept functions.
  std::string Ports;
  for (int P = 0; P < 17; P++) {
    std::string Children;
    for (int D = 0; D < 32; D++) {
      Children += std::string(D ? "," : "") + R"({"device": )" + std::to_string(D) +
                  R"(, "vendorId": "0x1234", "deviceId": "0x0100"})";
    }
    Ports += (P ? "," : "") + RootPort(P + 1, "", Children);
  }
  StartPci(Bus(Ports, "[0, 30]"));
  Walk();
  EXPECT_EQ(Count, static_cast<UINT64>(PCIE_DEVICE_MAX));
  EXPECT_EQ(Records[PCIE_DEVICE_MAX - 1].Bus, 16u);
}

TEST_F(PcieDeviceWalk, ExtendedCapabilitiesAreFoundUnlessTheSpaceMirrorsTheHeader) {
  // 0x100: AER (id 1, version 1) -> 0x140: DSN (id 3) -> end.
  StartPci(Bus(RootPort(1, "", R"({"vendorId": "0x1234", "deviceId": "0x0001", "patches": [
      {"offset": "0x100", "bytes": "01 00 01 14"}, {"offset": "0x140", "bytes": "03 00 01 00"}]},
    {"device": 1, "vendorId": "0x1234", "deviceId": "0x0001", "patches": [
      {"offset": "0x100", "bytes": "34 12 01 00"}]})")));
  EFI_PCI_IO_PROTOCOL *Real = PciIoAt(0, 1, 0, 0);
  EFI_PCI_IO_PROTOCOL *Mirror = PciIoAt(0, 1, 1, 0);
  ASSERT_NE(Real, nullptr);
  ASSERT_NE(Mirror, nullptr);
  EXPECT_EQ(QorPciFindExtCapability(Real, 0x0001), 0x100);
  EXPECT_EQ(QorPciFindExtCapability(Real, 0x0003), 0x140);
  EXPECT_EQ(QorPciFindExtCapability(Real, 0x000D), 0);
  // The header at 0x100 repeats the ids at 0x000 (id 0x1234 would read as a
  // capability and its "next" as 0x001 << 4): nothing is trusted there.
  EXPECT_EQ(QorPciFindExtCapability(Mirror, 0x1234), 0);
}
