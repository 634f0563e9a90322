// The walk's detections: the BF2 card (variable for CustomerId 1, location
// PCDs for 17), the Zijin device with the switch record filled after the
// walk, and the GPU list kept in the platform's data block.
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/packed_value.h"
#include "emulator/gpu_list.h"
#include "emulator/pcd_database.h"
#include "pcie/special_devices.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

PCIE_DEVICE_INFO Ids(UINT16 Vendor, UINT16 Device, UINT16 SubVendor, UINT16 SubDevice) {
  PCIE_DEVICE_INFO R = {};
  R.VendorID = Vendor;
  R.DeviceID = Device;
  R.SubVendorID = SubVendor;
  R.SubDeviceID = SubDevice;
  return R;
}

class DetectionTest : public PciBusOnEmulator {
 protected:
  void StartCustomer(int CustomerId, const std::string &Pci = "{}") {
    StartPci(Pci, R"("pcd": {"customerId": )" + std::to_string(CustomerId) + "}");
  }
  std::vector<qor::emu::PcdWrite> PcdWrites() { return qor::emu::PcdDatabase::Current()->Writes(); }
};

// ------------------------------------------------------------ BF2

TEST_F(DetectionTest, Bf2ForCustomer1WritesBf2PresentAndSetsTheFlag) {
  StartCustomer(1);
  PCIE_DEVICE_INFO R = Ids(0x15B3, 0xA2D6, 0x1234, 0x5678);
  BOOLEAN Found = FALSE;
  QorFindBF2Device(&R, &Found);
  EXPECT_TRUE(Found);
  const auto &Writes = Fw->Variables().Writes();
  ASSERT_EQ(Writes.size(), 1u);
  EXPECT_EQ(Val(Writes[0].Name), u"Bf2Present");
  EXPECT_EQ(std::memcmp(&Writes[0].Guid, &gQorSkobiofBf2VariableGuid, sizeof(EFI_GUID)), 0);
  EXPECT_EQ(Val(Writes[0].Attributes), 3u) << "non-volatile, boot-service access";
  EXPECT_EQ(Val(Writes[0].Data), std::vector<uint8_t>{1});
  EXPECT_TRUE(PcdWrites().empty());
}

TEST_F(DetectionTest, Bf2ForCustomer17StoresItsLocationLowBytesInTokens344To346) {
  StartCustomer(17);
  PCIE_DEVICE_INFO R = Ids(0x15B3, 0xA2D6, 0, 0);
  R.Bus = 0x1A3;
  R.Dev = 0x12;
  R.Func = 0x107;
  BOOLEAN Found = FALSE;
  QorFindBF2Device(&R, &Found);
  EXPECT_TRUE(Found);
  auto Writes = PcdWrites();
  ASSERT_EQ(Writes.size(), 3u);
  EXPECT_EQ(Val(Writes[0].Token), 344u);
  EXPECT_EQ(Val(Writes[0].Value), 0xA3u);
  EXPECT_EQ(Val(Writes[1].Token), 345u);
  EXPECT_EQ(Val(Writes[1].Value), 0x12u);
  EXPECT_EQ(Val(Writes[2].Token), 346u);
  EXPECT_EQ(Val(Writes[2].Value), 0x07u);
  for (const auto &Write : Writes) EXPECT_EQ(Val(Write.Size), 1u) << "Set8";
  EXPECT_TRUE(Fw->Variables().Writes().empty());
}

TEST_F(DetectionTest, Bf2ForOtherCustomersOnlySetsTheFlagAndOtherCardsNothing) {
  StartCustomer(3);
  PCIE_DEVICE_INFO R = Ids(0x15B3, 0xA2D6, 0, 0);
  BOOLEAN Found = FALSE;
  QorFindBF2Device(&R, &Found);
  EXPECT_TRUE(Found);
  PCIE_DEVICE_INFO Other = Ids(0x15B3, 0xA2DC, 0, 0);  // a boot-mode card, not a BF2
  BOOLEAN OtherFound = FALSE;
  QorFindBF2Device(&Other, &OtherFound);
  EXPECT_FALSE(OtherFound);
  EXPECT_TRUE(Fw->Variables().Writes().empty());
  EXPECT_TRUE(PcdWrites().empty());
}

TEST_F(DetectionTest, AFailedBf2PresentWriteIsLoggedAsAnError) {
  StartPci("{}", R"("pcd": {"customerId": 1}, "faults": {"failVariableSet": ["Bf2Present"]})");
  PCIE_DEVICE_INFO R = Ids(0x15B3, 0xA2D6, 0, 0);
  BOOLEAN Found = FALSE;
  QorFindBF2Device(&R, &Found);
  EXPECT_NE(Log().find(" [SkobiofBF2] dxe bTmpBf2Present SetVariable failed: Device Error\n"), std::string::npos);
}

// ------------------------------------------------------------ Zijin and its switch

// Root port 00:01.0 (slot 5) -> upstream 01:00.0 -> downstream 02:00.0 ->
// Zijin device 03:00.0.
std::string ZijinTree(const char *UpstreamIds) {
  return std::string(R"({"hostBridges": [{"buses": [0, 9], "devices": [
    {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": 5, "devices": [
      {"type": "upstreamPort", )") +
         UpstreamIds + R"(, "link": {"maxSpeed": 4, "maxWidth": 16, "speed": 3, "width": 8}, "devices": [
        {"type": "downstreamPort", "vendorId": "0x1172", "deviceId": "0x0056", "devices": [
          {"vendorId": "0x1AF4", "deviceId": "0x1041", "subsystemVendorId": "0x1BD4", "subsystemId": "0xF006",
           "classCode": "0x020000"}]}]}]}]}]})";
}

TEST_F(DetectionTest, ZijinDeviceHandsBackItsPathCutToTheSwitchAndTheSwitchRecordIsFilled) {
  StartCustomer(17, ZijinTree(R"("vendorId": "0x1172", "deviceId": "0x0055")"));
  PCIE_DEVICE_INFO R = Ids(0x1AF4, 0x1041, 0x1BD4, 0xF006);
  R.DevicePath = PathOf(HandleAt(0, 3, 0, 0));
  BOOLEAN Found = FALSE;
  EFI_DEVICE_PATH_PROTOCOL *SwitchPath = nullptr;
  QorFindZijinDevice(&R, &Found, &SwitchPath);
  ASSERT_TRUE(Found);
  ASSERT_NE(SwitchPath, nullptr);
  EXPECT_EQ(QorGetDevicePathSize(SwitchPath), QorGetDevicePathSize(PathOf(HandleAt(0, 1, 0, 0))));
  EXPECT_EQ(std::memcmp(SwitchPath, PathOf(HandleAt(0, 1, 0, 0)), QorGetDevicePathSize(SwitchPath)), 0);

  PCIE_DEVICE_INFO Switch = {};
  EXPECT_EQ(FillSwitchInfo(SwitchPath, &Switch), EFI_SUCCESS);
  EXPECT_EQ(Val(Switch.VendorID), 0x1172);
  EXPECT_EQ(Val(Switch.DeviceID), 0x0055);
  EXPECT_EQ(Val(Switch.Bus), 1u);
  EXPECT_EQ(Val(Switch.ClassCode), 0x06);
  EXPECT_EQ(Val(Switch.Slot), 5u) << "the slot of the root port above the switch";
  EXPECT_EQ(Val(Switch.LinkWidth), 8u);
  EXPECT_EQ(Val(Switch.CardBandWidth), 16u);
  EXPECT_EQ(Val(Switch.LinkSpeed), 3u);
  EXPECT_EQ(Val(Switch.PCIeGen), 4u);
  EXPECT_EQ(Val(Switch.MezzSlot), 255u);
  EXPECT_EQ(Val(Switch.MaxSpeed), 0u) << "left zero in the switch record";
  EXPECT_EQ(Val(Switch.Handle), nullptr);
  EXPECT_EQ(Val(Switch.DevicePath), nullptr);
  EXPECT_EQ(Val(Switch.DevicePathText), nullptr);
  QorFreePool(SwitchPath);
}

TEST_F(DetectionTest, ASwitchWithOtherIdsGivesNoRecord) {
  StartCustomer(17, ZijinTree(R"("vendorId": "0x10B5", "deviceId": "0x9765")"));
  PCIE_DEVICE_INFO R = Ids(0x1AF4, 0x1041, 0x1BD4, 0xF006);
  R.DevicePath = PathOf(HandleAt(0, 3, 0, 0));
  BOOLEAN Found = FALSE;
  EFI_DEVICE_PATH_PROTOCOL *SwitchPath = nullptr;
  QorFindZijinDevice(&R, &Found, &SwitchPath);
  PCIE_DEVICE_INFO Switch = {};
  EXPECT_EQ(FillSwitchInfo(SwitchPath, &Switch), EFI_UNSUPPORTED);
  EXPECT_NE(Log().find("The device's vendor id is not 0x1172 or  the device id id not 0x0055, so is unsupport\n"),
            std::string::npos);
  QorFreePool(SwitchPath);
}

TEST_F(DetectionTest, ZijinIsLookedForOnlyForCustomer17AndOnlyWithTheExactIds) {
  StartCustomer(1, ZijinTree(R"("vendorId": "0x1172", "deviceId": "0x0055")"));
  PCIE_DEVICE_INFO R = Ids(0x1AF4, 0x1041, 0x1BD4, 0xF006);
  R.DevicePath = PathOf(HandleAt(0, 3, 0, 0));
  BOOLEAN Found = FALSE;
  EFI_DEVICE_PATH_PROTOCOL *SwitchPath = nullptr;
  QorFindZijinDevice(&R, &Found, &SwitchPath);
  EXPECT_FALSE(Found);
  EXPECT_EQ(FillSwitchInfo(PathOf(HandleAt(0, 1, 0, 0)), &R), EFI_UNSUPPORTED) << "not customer 17";

  StartCustomer(17, ZijinTree(R"("vendorId": "0x1172", "deviceId": "0x0055")"));
  PCIE_DEVICE_INFO Near = Ids(0x1AF4, 0x1041, 0x1BD4, 0xF005);
  Near.DevicePath = PathOf(HandleAt(0, 3, 0, 0));
  QorFindZijinDevice(&Near, &Found, &SwitchPath);
  EXPECT_FALSE(Found);
  EXPECT_EQ(SwitchPath, nullptr);
}

// ------------------------------------------------------------ the GPU list

class GpuListTest : public PciBusOnEmulator {
 protected:
  void SetUp() override { StartPci("{}"); }
  PCIE_DEVICE_INFO Gpu(UINT8 Class, UINT32 Slot, UINT16 Vendor = 0x10DE, UINT16 Device = 0x2330) {
    PCIE_DEVICE_INFO R = Ids(Vendor, Device, 0x10DE, 0x16C1);
    R.ClassCode = Class;
    R.Slot = Slot;
    return R;
  }
  qor::emu::GpuList List() { return qor::emu::ReadGpuList(Plat->SystemInformationBlock()); }
};

TEST_F(GpuListTest, StoresDisplayAndProcessingAcceleratorsOncePerSlotWithTheirLinkFields) {
  std::vector<PCIE_DEVICE_INFO> Records = {Gpu(0x03, 1), Gpu(0x02, 9), Gpu(0x12, 2), Gpu(0x03, 1, 0x10DE, 0x2331)};
  Records[0].Bus = 0x17;
  Records[0].Dev = 2;
  Records[0].PCIeGen = 5;
  Records[0].LinkSpeed = 4;
  Records[0].CardBandWidth = 16;
  Records[0].LinkWidth = 8;
  QorCollectGPUInfo(Records.data(), Records.size());
  qor::emu::GpuList L = List();
  ASSERT_EQ(Val(L.Count), 2);
  EXPECT_EQ(Val(L.Entries[0].Slot), 1u);
  EXPECT_EQ(Val(L.Entries[0].Bus), 0x17);
  EXPECT_EQ(Val(L.Entries[0].Dev), 2);
  EXPECT_EQ(Val(L.Entries[0].VendorID), 0x10DE);
  EXPECT_EQ(Val(L.Entries[0].DeviceID), 0x2330);
  EXPECT_EQ(Val(L.Entries[0].SubDeviceID), 0x16C1);
  EXPECT_EQ(Val(L.Entries[0].PCIeGen), 5);
  EXPECT_EQ(Val(L.Entries[0].LinkSpeed), 4);
  EXPECT_EQ(Val(L.Entries[0].CardBandWidth), 16);
  EXPECT_EQ(Val(L.Entries[0].LinkWidth), 8);
  EXPECT_EQ(Val(L.Entries[1].Slot), 2u);
  EXPECT_NE(Log().find("QorCollectGPUInfo GPUCount = 2\n"), std::string::npos);
  EXPECT_NE(Log().find("QorCollectGPUInfo 1504  DevCount = 4 \n"), std::string::npos);
}

TEST_F(GpuListTest, TableRowsMatchOnAllFiveValuesAndTheFillerRowOnlyItsOwn) {
  std::vector<PCIE_DEVICE_INFO> Records = {
      Ids(0x1D94, 0x6211, 0x1D94, 0x6210),  // row 6, class 0x0B
      Ids(0x1D94, 0x6211, 0x1D94, 0x6211),  // sub device differs
      Ids(0x00FF, 0x00FF, 0x00FF, 0x00FF),  // the filler row, class 0x07
      Ids(0x2057, 0x3694, 0x0001, 0x0001),  // row 7 but class 0x0B
  };
  Records[0].ClassCode = 0x0B;
  Records[1].ClassCode = 0x0B;
  Records[2].ClassCode = 0x07;
  Records[3].ClassCode = 0x0B;
  for (UINT32 I = 0; I < Records.size(); I++) Records[I].Slot = 10 + I;
  QorCollectGPUInfo(Records.data(), Records.size());
  qor::emu::GpuList L = List();
  ASSERT_EQ(Val(L.Count), 2);
  EXPECT_EQ(Val(L.Entries[0].Slot), 10u);
  EXPECT_EQ(Val(L.Entries[1].Slot), 12u);
}

TEST_F(GpuListTest, ATableMatchInAListedSlotIsRememberedForTheNextDevice) {
  // The second accelerator shares slot 3, is skipped, and its match makes
  // the NIC after it count as a GPU (kept as built).
  std::vector<PCIE_DEVICE_INFO> Records = {Ids(0x1D22, 0x3688, 0x0001, 0x0001), Ids(0x1D22, 0x3688, 0x0001, 0x0001),
                                           Gpu(0x02, 7)};
  Records[0].ClassCode = Records[1].ClassCode = 0x07;
  Records[0].Slot = Records[1].Slot = 3;
  QorCollectGPUInfo(Records.data(), Records.size());
  qor::emu::GpuList L = List();
  ASSERT_EQ(Val(L.Count), 2);
  EXPECT_EQ(Val(L.Entries[1].Slot), 7u);
}

TEST_F(GpuListTest, TheThirtyThirdGpuIsStoredBeforeTheListStops) {
  std::vector<PCIE_DEVICE_INFO> Records;
  for (UINT32 Slot = 1; Slot <= 40; Slot++) Records.push_back(Gpu(0x03, Slot));
  QorCollectGPUInfo(Records.data(), Records.size());
  qor::emu::GpuList L = List();
  EXPECT_EQ(Val(L.Count), 33);
  ASSERT_EQ(L.Entries.size(), 33u);
  EXPECT_EQ(Val(L.Entries[32].Slot), 33u);
  size_t Stops = 0;
  for (size_t At = Log().find("GPU Number is already"); At != std::string::npos;
       At = Log().find("GPU Number is already", At + 1)) {
    Stops++;
  }
  EXPECT_EQ(Stops, 1u);
  EXPECT_NE(Log().find("QorCollectGPUInfo GPU Number is already at the maximum!!!\n"), std::string::npos);
}

}  // namespace
